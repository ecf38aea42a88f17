# Each room of the core is an object library, so that a test of one room links no more than it needs.

if(MEDIACORE_PCH)
  add_library(mc_core_pch OBJECT EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
  target_link_libraries(mc_core_pch PUBLIC mc_core_flags)
  target_precompile_headers(mc_core_pch PRIVATE ${MEDIACORE_PCH_HEADERS})
endif()

function(mc_room name folder)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    set(sources ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(${name} OBJECT ${sources})
  target_link_libraries(${name} PUBLIC mc_core_flags)
  if(MEDIACORE_PCH)
    target_precompile_headers(${name} REUSE_FROM mc_core_pch)
  endif()
endfunction()

mc_room(mc_services_system services/system)
mc_room(mc_services_buffer services/buffer)
mc_room(mc_services_file services/file)
mc_room(mc_services_metadata services/metadata)
mc_room(mc_mediautil mediautil)
mc_room(mc_neighbours neighbours)
mc_room(mc_backends backends)

target_compile_definitions(mc_services_system PRIVATE MEDIACORE_VERSION="${PROJECT_VERSION}")
set(MEDIACORE_SYSTEM_LIBRARIES "")
if(MEDIACORE_HAVE_URING)
  target_compile_definitions(mc_services_file PRIVATE MEDIACORE_HAVE_URING=1)
  target_include_directories(mc_services_file PRIVATE ${LIBURING_INCLUDE_DIR})
  # By name and not by path: the exported package says the same on every machine.
  set(MEDIACORE_SYSTEM_LIBRARIES uring)
endif()

set(MEDIACORE_ROOMS mc_services_system mc_services_buffer mc_services_file mc_services_metadata
  mc_mediautil mc_neighbours mc_backends)
