# The command line tool, and the examples: one program a source.

file(GLOB tool_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/*.cpp ${CMAKE_SOURCE_DIR}/tools/*/*.cpp)
if(tool_sources)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  add_executable(mediacore_tool ${tool_sources})
  set_target_properties(mediacore_tool PROPERTIES OUTPUT_NAME mediacore)
  # One file that runs wherever it is copied to, so the archive and not the shared library.
  target_link_libraries(mediacore_tool PRIVATE mediacore_static mc_flags CLI11::CLI11 nlohmann_json::nlohmann_json)
  target_compile_definitions(mediacore_tool PRIVATE MEDIACORE_VERSION="${PROJECT_VERSION}")
  install(TARGETS mediacore_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# examples/print_tracks.cpp becomes bin/mediacore_print_tracks. They link the shared library, as a client's program does.
file(GLOB example_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.cpp)
foreach(source IN LISTS example_sources)
  cmake_path(GET source STEM name)
  add_executable(example_${name} ${source})
  set_target_properties(example_${name} PROPERTIES OUTPUT_NAME mediacore_${name})
  target_link_libraries(example_${name} PRIVATE mediacore_shared mc_flags)
endforeach()
