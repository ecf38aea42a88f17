# Test programs. Every folder under tests/unit is one, so are the sources right in tests/integration and tests/stress and
# every folder below those two. mc_test() names one by hand where it links something of its own; the rest is found.

find_package(GTest REQUIRED)
include(GoogleTest)

set(MEDIACORE_UNIT_TIMEOUT 60)
set(MEDIACORE_INTEGRATION_TIMEOUT 180)
set(MEDIACORE_STRESS_TIMEOUT 300)
# What takes long begins early, so that no single one is left for the end.
set(MEDIACORE_UNIT_COST 1)
set(MEDIACORE_INTEGRATION_COST 30)
set(MEDIACORE_STRESS_COST 25)
set(MEDIACORE_TEST_ENVIRONMENT "")
if(MEDIACORE_SANITIZE)
  set(MEDIACORE_UNIT_TIMEOUT 240)
  set(MEDIACORE_INTEGRATION_TIMEOUT 600)
  set(MEDIACORE_STRESS_TIMEOUT 900)
  # One variable a build: discovered cases take no list. The others' checks end a program at compile time's choice.
  if(MEDIACORE_SANITIZE MATCHES "thread")
    set(MEDIACORE_TEST_ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
  else()
    set(MEDIACORE_TEST_ENVIRONMENT
      "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:allocator_may_return_null=1")
  endif()
endif()

# The services by themselves, for the tests that need no movie.
add_library(mc_services_for_tests STATIC $<TARGET_OBJECTS:mc_services_system> $<TARGET_OBJECTS:mc_services_buffer>
  $<TARGET_OBJECTS:mc_services_file> $<TARGET_OBJECTS:mc_services_metadata>)
target_link_libraries(mc_services_for_tests PUBLIC mc_flags PRIVATE ${MEDIACORE_SYSTEM_LIBRARIES})

# One kind of position-independent code for the programs and the kit, which is a library: they share their headers.
add_library(mc_test_flags INTERFACE)
target_link_libraries(mc_test_flags INTERFACE mc_flags GTest::gmock)
target_compile_options(mc_test_flags INTERFACE -fPIC)
# What is tested is optimised under the sanitizers, so that it runs in time; its tests aren't, so that they compile in
# time.
if(MEDIACORE_SANITIZE)
  target_compile_options(mc_test_flags INTERFACE -O0)
endif()
# A test's own failure names its line; more about its variables would cost a sixth of its compile.
target_compile_options(mc_test_flags INTERFACE $<$<NOT:$<BOOL:${MEDIACORE_COVERAGE}>>:-g1>)
find_program(MEDIACORE_LLD NAMES ld.lld)
if(MEDIACORE_LLD)
  target_link_options(mc_test_flags INTERFACE -fuse-ld=lld)
endif()

if(MEDIACORE_PCH)
  add_library(mc_test_pch OBJECT EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
  target_link_libraries(mc_test_pch PRIVATE mc_test_flags)
  target_precompile_headers(mc_test_pch PRIVATE <gmock/gmock.h> <gtest/gtest.h> ${MEDIACORE_PCH_HEADERS})
endif()

function(mc_share_test_headers target)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  if(MEDIACORE_PCH)
    target_precompile_headers(${target} REUSE_FROM mc_test_pch)
  endif()
endfunction()

# In the code of the tests themselves, a look at each pointer is a quarter of the compile. A null pointer ends a program
# all the same. The library has every check, and so have the tests of the services.
function(mc_look_at_fewer_pointers sources)
  if(MEDIACORE_SANITIZE MATCHES "undefined")
    set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS "-fno-sanitize=null,alignment")
  endif()
endfunction()

# The kit brings the whole library, private headers included, and what the tests share.
file(GLOB_RECURSE kit_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/kit/*.cpp)
if(NOT kit_sources)
  set(kit_sources ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
endif()
add_library(mc_test_kit STATIC ${kit_sources})
target_link_libraries(mc_test_kit PUBLIC mediacore_static mc_test_flags)
mc_look_at_fewer_pointers("${kit_sources}")
mc_share_test_headers(mc_test_kit)

# The main function of all of them.
add_library(mc_test_main STATIC ${CMAKE_SOURCE_DIR}/tests/runner/test_main.cpp)
target_link_libraries(mc_test_main PUBLIC mc_test_flags)
mc_share_test_headers(mc_test_main)

foreach(label unit integration stress)
  add_custom_target(tests_${label})
endforeach()

function(mc_tests_in_parts name sources)
  list(LENGTH sources count)
  math(EXPR last "(${count} - 1) / 3")
  math(EXPR parts "${last} + 1")
  foreach(part RANGE ${last})
    math(EXPR number "${part} + 1")
    set(test ${MEDIACORE_TEST_PREFIX}${name}.${number}_of_${parts})
    add_test(NAME ${test} COMMAND ${name} --alone=${part}/${parts}:${MEDIACORE_UNIT_TIMEOUT})
    set_tests_properties(${test} PROPERTIES LABELS unit TIMEOUT 1200 COST 20 ENVIRONMENT "${MEDIACORE_TEST_ENVIRONMENT}")
  endforeach()
endfunction()

# In none of their cases does anything run beside, so the thread sanitizer has nothing to see.
set(MEDIACORE_TESTS_OF_ONE_THREAD test_naming test_neighbours test_services_metadata test_tools)

# One program of the sources given; nothing when there is none, or when the program stands already.
function(mc_test_program name label sources)
  if(TARGET ${name} OR NOT sources OR NOT label IN_LIST MEDIACORE_TEST_LABELS)
    return()
  endif()
  if(MEDIACORE_SANITIZE STREQUAL "thread" AND name IN_LIST MEDIACORE_TESTS_OF_ONE_THREAD)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARGN} mc_test_main)
  mc_share_test_headers(${name})
  if("mc_test_kit" IN_LIST ARGN)
    mc_look_at_fewer_pointers("${sources}")
  endif()
  if(TARGET mediacore_tool AND label STREQUAL "integration")
    target_compile_definitions(${name} PRIVATE MEDIACORE_TOOL="$<TARGET_FILE:mediacore_tool>")
    add_dependencies(${name} mediacore_tool)
  endif()
  add_dependencies(tests_${label} ${name})
  string(TOUPPER ${label} upper)
  # Starting a program costs most of a short case there: a test runs many cases, each still in a process of its own.
  if(MEDIACORE_SANITIZE AND label STREQUAL "unit")
    mc_tests_in_parts(${name} "${sources}")
    return()
  endif()
  # Each case is a process of its own, found when the tests are run: a program that was not built or can't list its
  # cases is a failed test and not a missing one.
  gtest_discover_tests(${name} TEST_PREFIX ${MEDIACORE_TEST_PREFIX}${name}. DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    NO_PRETTY_VALUES NO_PRETTY_TYPES
    PROPERTIES LABELS ${label} COST ${MEDIACORE_${upper}_COST} TIMEOUT ${MEDIACORE_${upper}_TIMEOUT} ENVIRONMENT "${MEDIACORE_TEST_ENVIRONMENT}")
endfunction()

# mc_test(name folder label libraries...): one program of every source below the folder.
function(mc_test name folder label)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
  mc_test_program(${name} ${label} "${sources}" ${ARGN})
endfunction()

mc_test(test_support tests/unit/support unit mc_services_for_tests)
mc_test(test_services_system tests/unit/services_system unit mc_services_for_tests)
mc_test(test_services_buffer tests/unit/services_buffer unit mc_services_for_tests)
mc_test(test_services_file tests/unit/services_file unit mc_services_for_tests)
mc_test(test_services_metadata tests/unit/services_metadata unit mc_services_for_tests)
mc_test(test_tools tests/unit/tools unit mc_tool mc_test_kit)

# Whatever is not named above links the kit.
function(mc_find_tests root label)
  file(GLOB folders CONFIGURE_DEPENDS LIST_DIRECTORIES true ${CMAKE_SOURCE_DIR}/tests/${root}/*)
  foreach(folder IN LISTS folders)
    if(IS_DIRECTORY ${folder})
      cmake_path(GET folder FILENAME leaf)
      if(label STREQUAL "unit")
        mc_test(test_${leaf} tests/${root}/${leaf} ${label} mc_test_kit)
      else()
        mc_test(test_${label}_${leaf} tests/${root}/${leaf} ${label} mc_test_kit)
      endif()
    endif()
  endforeach()
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${root}/*.cpp)
  mc_test_program(test_${label} ${label} "${sources}" mc_test_kit)
endfunction()

mc_find_tests(unit unit)
mc_find_tests(integration integration)
mc_find_tests(stress stress)
