# tests/fuzz/NAME.cpp is a fuzz target: with clang and MEDIACORE_FUZZ a program that searches, in every other build a program
# that replays tests/fuzz/corpus/NAME, where old finds are kept, together with a few inputs that every parser must survive.

file(GLOB fuzz_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/fuzz/*.cpp)
add_custom_target(fuzz_targets)
foreach(source IN LISTS fuzz_sources)
  cmake_path(GET source STEM name)
  set(corpus ${CMAKE_SOURCE_DIR}/tests/fuzz/corpus/${name})
  if(MEDIACORE_FUZZ)
    add_executable(fuzz_${name} ${source})
    target_link_libraries(fuzz_${name} PRIVATE mediacore_static mc_flags)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  elseif("unit" IN_LIST MEDIACORE_TEST_LABELS)
    add_executable(fuzz_${name} ${source} ${CMAKE_SOURCE_DIR}/tests/fuzz/replay/replay_main.cpp)
    target_link_libraries(fuzz_${name} PRIVATE mediacore_static mc_flags)
    add_test(NAME ${MEDIACORE_TEST_PREFIX}fuzz_${name}.replay COMMAND fuzz_${name} ${corpus})
    set_tests_properties(${MEDIACORE_TEST_PREFIX}fuzz_${name}.replay PROPERTIES LABELS unit
      TIMEOUT ${MEDIACORE_INTEGRATION_TIMEOUT} ENVIRONMENT "${MEDIACORE_TEST_ENVIRONMENT}")
    add_dependencies(tests_unit fuzz_${name})
  endif()
  if(TARGET fuzz_${name})
    add_dependencies(fuzz_targets fuzz_${name})
  endif()
endforeach()
