# Fails for each source of the tree that no build command compiles. ROOT, COMMANDS (compile_commands.json).

file(READ ${COMMANDS} commands)
file(GLOB_RECURSE sources RELATIVE ${ROOT} ${ROOT}/services/*.cpp ${ROOT}/mediautil/*.cpp ${ROOT}/neighbours/*.cpp
  ${ROOT}/backends/*.cpp ${ROOT}/tools/*.cpp ${ROOT}/examples/*.cpp ${ROOT}/tests/*.cpp)
# What the checks compile themselves.
list(FILTER sources EXCLUDE REGEX "^tests/checks/(consumer|thread_safety)/")
# Shared by the fuzz targets: in the build as soon as there is one.
file(GLOB fuzz_targets ${ROOT}/tests/fuzz/*.cpp)
if(NOT fuzz_targets)
  list(FILTER sources EXCLUDE REGEX "^tests/fuzz/replay/")
endif()
set(missing "")
foreach(source IN LISTS sources)
  string(FIND "${commands}" "\"file\": \"${ROOT}/${source}\"" at)
  if(at EQUAL -1)
    list(APPEND missing ${source})
  endif()
endforeach()
list(LENGTH sources count)
if(missing)
  list(JOIN missing "\n  " text)
  message(FATAL_ERROR "in no build command:\n  ${text}")
endif()
message(STATUS "${count} sources, each in the build")
