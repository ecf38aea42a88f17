# The command line tool, whose parts are a library for its tests, and the examples: one program a source.

file(GLOB tool_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/*.cpp ${CMAKE_SOURCE_DIR}/tools/*/*.cpp)
set(tool_frame ${CMAKE_SOURCE_DIR}/tools/main.cpp ${CMAKE_SOURCE_DIR}/tools/options.cpp)
list(REMOVE_ITEM tool_sources ${tool_frame})
# What nothing but the tool itself runs is left out where only the tests of the parts are built.
set(tool_commands bash_completion control_connection events formats frames generate held_movie help_examples info
  manual_page mpeg_pictures play progress read record rename sample_source status status_text switch track_samples
  validate watch)
if(NOT MEDIACORE_TOOLS)
  list(TRANSFORM tool_commands PREPEND ${CMAKE_SOURCE_DIR}/tools/)
  list(TRANSFORM tool_commands APPEND .cpp)
  list(REMOVE_ITEM tool_sources ${tool_commands})
  set(tool_wanted EXCLUDE_FROM_ALL)
endif()
find_package(nlohmann_json REQUIRED)
find_package(pugixml REQUIRED)
# One file that runs wherever it is copied to, so the archive and not the shared library.
add_library(mc_tool STATIC ${tool_wanted} ${tool_sources})
target_link_libraries(mc_tool PUBLIC mediacore_static mc_flags nlohmann_json::nlohmann_json
  PRIVATE $<IF:$<TARGET_EXISTS:pugixml::static>,pugixml::static,pugixml::pugixml>)
target_compile_definitions(mc_tool PUBLIC MEDIACORE_VERSION="${PROJECT_VERSION}")
if(MEDIACORE_PCH)
  target_precompile_headers(mc_tool PRIVATE <nlohmann/json.hpp> ${MEDIACORE_PCH_HEADERS})
endif()

# The tests of the parts need no more.
if(NOT MEDIACORE_TOOLS)
  return()
endif()

find_package(CLI11 REQUIRED)
add_executable(mediacore_tool ${tool_frame})
set_target_properties(mediacore_tool PROPERTIES OUTPUT_NAME mediacore)
target_link_libraries(mediacore_tool PRIVATE mc_tool CLI11::CLI11)
install(TARGETS mediacore_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# examples/print_tracks.cpp becomes bin/mediacore_print_tracks. They link the shared library, as a client's program does.
file(GLOB example_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.cpp)
foreach(source IN LISTS example_sources)
  cmake_path(GET source STEM name)
  add_executable(example_${name} ${source})
  set_target_properties(example_${name} PROPERTIES OUTPUT_NAME mediacore_${name})
  target_link_libraries(example_${name} PRIVATE mediacore_shared mc_flags)
endforeach()
