# What an integrator gets: headers, both libraries, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

set(header_root ${CMAKE_INSTALL_INCLUDEDIR}/mediacore)
install(DIRECTORY support services DESTINATION ${header_root} FILES_MATCHING PATTERN "*.h")
# The chief header has no suffix.
install(DIRECTORY shared/include DESTINATION ${header_root}/shared FILES_MATCHING PATTERN "*.h" PATTERN "mediaobj")

install(TARGETS mediacore_shared mediacore_static EXPORT mediacore
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mediacore)
install(EXPORT mediacore NAMESPACE mediacore:: FILE mediacoreTargets.cmake DESTINATION ${package_dir})
configure_package_config_file(cmake/mediacoreConfig.cmake.in ${CMAKE_BINARY_DIR}/package/mediacoreConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/mediacoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/mediacoreConfig.cmake ${CMAKE_BINARY_DIR}/package/mediacoreConfigVersion.cmake
  DESTINATION ${package_dir})

set(pc_private_libs "-pthread")
foreach(library IN LISTS MEDIACORE_SYSTEM_LIBRARIES)
  string(APPEND pc_private_libs " -l${library}")
endforeach()
# The prefix is worked out from where the file stands, so that an installed tree can be moved.
file(RELATIVE_PATH pc_up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/mediacore.pc.in ${CMAKE_BINARY_DIR}/package/mediacore.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/mediacore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
