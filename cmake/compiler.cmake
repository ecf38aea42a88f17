# Flags that every target shares, and those that only the core rooms take.

find_package(Threads REQUIRED)

if(MEDIACORE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(MEDIACORE_CCACHE_PROGRAM ccache)
  if(MEDIACORE_CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${MEDIACORE_CCACHE_PROGRAM})
  endif()
endif()

# Reading headers is most of the compile of a file of usual length. Not with ccache, which then hits nothing.
set(MEDIACORE_PCH OFF)
if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(MEDIACORE_PCH ON)
endif()
set(MEDIACORE_PCH_HEADERS <algorithm> <array> <atomic> <cstdint> <cstring> <list> <map> <memory> <string> <string_view>
  <vector> ${CMAKE_SOURCE_DIR}/cmake/precompiled.h)

add_library(mc_flags INTERFACE)
target_compile_options(mc_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wno-unused-parameter
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${MEDIACORE_WERROR}>:-Werror>)
# g++ 12 sees overlapping copies in every "text" + std::string once it optimises.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(mc_flags INTERFACE -Wno-restrict)
endif()
target_include_directories(mc_flags INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(mc_flags INTERFACE Threads::Threads)

if(MEDIACORE_SANITIZE)
  target_compile_options(mc_flags INTERFACE -fsanitize=${MEDIACORE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(mc_flags INTERFACE -fsanitize=${MEDIACORE_SANITIZE})
  # A destroyed object whose memory is intact is looked at on purpose, by its magic number; and the look at an object's
  # dynamic type wants descriptors, which some tests take away.
  if(MEDIACORE_SANITIZE MATCHES "undefined")
    target_compile_options(mc_flags INTERFACE -fno-sanitize=vptr)
  endif()
  # The instrumented code misleads g++ about what is initialised and how far an array goes.
  target_compile_options(mc_flags INTERFACE
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-array-bounds>")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # The standard library wraps unsigned numbers on purpose, in its hashes above all.
    target_compile_options(mc_flags INTERFACE -fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/cmake/sanitize_ignore.txt)
  endif()
endif()
if(MEDIACORE_COVERAGE)
  target_compile_options(mc_flags INTERFACE --coverage)
  target_link_options(mc_flags INTERFACE --coverage)
endif()
if(MEDIACORE_HARDEN)
  target_compile_options(mc_flags INTERFACE -fstack-protector-strong -fstack-clash-protection -fcf-protection
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(mc_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

# The core rooms throw nothing, and show only what is marked as public.
add_library(mc_core_flags INTERFACE)
target_link_libraries(mc_core_flags INTERFACE mc_flags)
target_compile_options(mc_core_flags INTERFACE -fno-exceptions -fvisibility=hidden -fvisibility-inlines-hidden)

find_path(LIBURING_INCLUDE_DIR liburing.h)
find_library(LIBURING_LIBRARY uring)
if(LIBURING_INCLUDE_DIR AND LIBURING_LIBRARY)
  set(MEDIACORE_HAVE_URING ON)
else()
  set(MEDIACORE_HAVE_URING OFF)
endif()
