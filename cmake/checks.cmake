# Small checks of the tree itself, all behind one label: ctest -L check.

function(mc_check name)
  add_test(NAME ${MEDIACORE_TEST_PREFIX}check.${name} ${ARGN})
  set_tests_properties(${MEDIACORE_TEST_PREFIX}check.${name} PROPERTIES LABELS check TIMEOUT 600 COST 40)
endfunction()

# --- the rules of the sources, and the proof that they see ---
set(rules ${CMAKE_SOURCE_DIR}/tests/checks/source_rules)
add_library(mc_source_rules STATIC ${rules}/source_tree.cpp ${rules}/include_rules.cpp ${rules}/word_rules.cpp
  ${rules}/stand_in_rule.cpp)
target_link_libraries(mc_source_rules PUBLIC mc_flags)
add_executable(check_sources ${rules}/main.cpp)
target_link_libraries(check_sources PRIVATE mc_source_rules)
foreach(rule layers files waits exceptions stand_in)
  mc_check(${rule} COMMAND check_sources ${rule} ${CMAKE_SOURCE_DIR})
endforeach()
add_executable(test_source_rules ${rules}/source_rules_test.cpp)
target_link_libraries(test_source_rules PRIVATE mc_source_rules GTest::gmock GTest::gtest_main)
gtest_discover_tests(test_source_rules TEST_PREFIX ${MEDIACORE_TEST_PREFIX}check_source_rules. DISCOVERY_MODE PRE_TEST
  PROPERTIES LABELS check TIMEOUT 60)

# --- every source and every test is in the build ---
mc_check(sources_are_built COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR}
  -DCOMMANDS=${CMAKE_BINARY_DIR}/compile_commands.json -P ${CMAKE_SOURCE_DIR}/cmake/check_built.cmake)

# --- every header compiles alone, those that a client reads with each compiler that is here ---
find_program(MEDIACORE_GXX NAMES g++-12 g++)
find_program(MEDIACORE_CLANGXX NAMES clang++-14 clang++)
foreach(compiler IN ITEMS ${MEDIACORE_GXX} ${MEDIACORE_CLANGXX})
  cmake_path(GET compiler FILENAME compiler_name)
  set(rooms support services shared/include)
  if("${compiler}" STREQUAL "${MEDIACORE_GXX}")
    list(APPEND rooms mediautil neighbours backends tests)
  endif()
  foreach(room IN LISTS rooms)
    string(REPLACE "/" "_" room_name ${room})
    mc_check(headers.${room_name}.${compiler_name} COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR} -DROOM=${room}
      -DCOMPILER=${compiler} -DKIND=headers -P ${CMAKE_SOURCE_DIR}/cmake/check_compiles.cmake)
  endforeach()
endforeach()

# --- the lock annotations hold, and a planted race is seen ---
if(MEDIACORE_CLANGXX)
  foreach(room services mediautil neighbours backends)
    mc_check(thread_safety.${room} COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR} -DROOM=${room}
      -DCOMPILER=${MEDIACORE_CLANGXX} -DKIND=thread_safety -DBUILD=${CMAKE_BINARY_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/check_compiles.cmake)
  endforeach()
  set(thread_safety ${MEDIACORE_CLANGXX} -std=c++20 -fsyntax-only -Wthread-safety -Werror -I${CMAKE_SOURCE_DIR})
  mc_check(thread_safety.a_sound_class_passes
    COMMAND ${thread_safety} ${CMAKE_SOURCE_DIR}/tests/checks/thread_safety/sound_counter.cpp)
  mc_check(thread_safety.a_planted_race_is_seen
    COMMAND ${thread_safety} ${CMAKE_SOURCE_DIR}/tests/checks/thread_safety/planted_race.cpp)
  set_tests_properties(${MEDIACORE_TEST_PREFIX}check.thread_safety.a_planted_race_is_seen PROPERTIES
    PASS_REGULAR_EXPRESSION "requires holding mutex 'm_mutex'")
else()
  message(WARNING "No clang++ here: the lock annotations are not checked")
endif()

# --- the first program of the README is the example that is built and run ---
mc_check(readme_program COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/check_readme.cmake)
mc_check(back_end_page COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR}
  -P ${CMAKE_SOURCE_DIR}/cmake/check_back_end_page.cmake)

# --- each example runs ---
if(MEDIACORE_TOOLS)
  foreach(source IN LISTS example_sources)
    cmake_path(GET source STEM name)
    mc_check(example.${name} COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:example_${name}>
      -DWORK=${CMAKE_BINARY_DIR}/examples/${name} -P ${CMAKE_SOURCE_DIR}/cmake/check_example.cmake)
  endforeach()
endif()

# --- a client's project, from an installed tree ---
if(MEDIACORE_TOOLS)
  set(consumer -DROOT=${CMAKE_SOURCE_DIR} -DBUILD=${CMAKE_BINARY_DIR} -DCXX=${CMAKE_CXX_COMPILER}
    -DPREFIX=${CMAKE_BINARY_DIR}/consumers/prefix -DLIBDIR=${CMAKE_INSTALL_LIBDIR})
  foreach(step install cmake_shared cmake_static pkgconfig_shared pkgconfig_static moved back_end)
    mc_check(client.${step} COMMAND ${CMAKE_COMMAND} ${consumer} -DSTEP=${step}
      -P ${CMAKE_SOURCE_DIR}/cmake/check_consumer.cmake)
    if(step STREQUAL "install")
      set_tests_properties(${MEDIACORE_TEST_PREFIX}check.client.install PROPERTIES FIXTURES_SETUP installed_tree)
    else()
      set_tests_properties(${MEDIACORE_TEST_PREFIX}check.client.${step} PROPERTIES FIXTURES_REQUIRED installed_tree)
    endif()
  endforeach()
endif()
