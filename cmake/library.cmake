# The one library, static and shared, from the same objects.

include(GNUInstallDirs)

set(objects)
foreach(room IN LISTS MEDIACORE_ROOMS)
  list(APPEND objects $<TARGET_OBJECTS:${room}>)
endforeach()

function(mc_library_usage target)
  target_link_libraries(${target} PUBLIC Threads::Threads PRIVATE ${MEDIACORE_SYSTEM_LIBRARIES})
  target_compile_features(${target} INTERFACE cxx_std_20)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/shared/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/mediacore>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/mediacore/shared/include>)
endfunction()

# An archive gives only what is asked for, and nobody asks for a back-end by name: the anchors bring every one of them,
# and with it the initialiser that registers it.
set(MEDIACORE_KEEP_BACKENDS --undefined=_Z18forceMediaUtilLinkv)

add_library(mediacore_static STATIC ${objects})
add_library(mediacore::mediacore_static ALIAS mediacore_static)
set_target_properties(mediacore_static PROPERTIES OUTPUT_NAME mediacore)
mc_library_usage(mediacore_static)
target_link_options(mediacore_static INTERFACE LINKER:${MEDIACORE_KEEP_BACKENDS})

add_library(mediacore_shared SHARED ${objects})
add_library(mediacore::mediacore ALIAS mediacore_shared)
set_target_properties(mediacore_shared PROPERTIES OUTPUT_NAME mediacore EXPORT_NAME mediacore
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
mc_library_usage(mediacore_shared)
# The flags carry what a sanitized, covered or hardened link needs; none of them is a client's affair.
target_link_libraries(mediacore_shared PRIVATE $<BUILD_INTERFACE:mc_flags>)
if(NOT MEDIACORE_SANITIZE)
  target_link_options(mediacore_shared PRIVATE LINKER:--no-undefined)
endif()
