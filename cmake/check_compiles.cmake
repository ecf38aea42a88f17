# Compiles every header (KIND headers) or source (KIND thread_safety) of ROOM alone, without output. ROOT, ROOM, COMPILER,
# KIND; for sources also BUILD, a folder to write to.

set(common ${COMPILER} -std=c++20 -fsyntax-only -I${ROOT} -Wall -Wextra -Wno-unused-parameter -Werror)
if(KIND STREQUAL "headers")
  file(GLOB_RECURSE files ${ROOT}/${ROOM}/*.h)
  if(EXISTS ${ROOT}/${ROOM}/mediaobj)
    list(APPEND files ${ROOT}/${ROOM}/mediaobj)
  endif()
  # As a source, so that the header's own #pragma once is no complaint and nothing stands before it.
  list(APPEND common -x c++ -include)
  set(tail /dev/null)
else()
  file(GLOB_RECURSE files ${ROOT}/${ROOM}/*.cpp)
  list(APPEND common -fno-exceptions -Wthread-safety -DMEDIACORE_HAVE_URING=1)
  set(tail "")
  # Which headers a source includes is not the point here: those that most of them read are read once.
  set(headers ${BUILD}/thread_safety_${ROOM})
  file(WRITE ${headers}.h "#include <algorithm>\n#include <map>\n#include <memory>\n#include <string>\n#include <vector>\n"
    "#include \"cmake/precompiled.h\"\n")
  list(REMOVE_ITEM common -fsyntax-only)
  execute_process(COMMAND ${common} -Xclang -emit-pch -x c++-header ${headers}.h -o ${headers}.pch
    COMMAND_ERROR_IS_FATAL ANY)
  list(APPEND common -fsyntax-only -include-pch ${headers}.pch)
endif()

set(failed "")
foreach(file IN LISTS files)
  execute_process(COMMAND ${common} ${file} ${tail} RESULT_VARIABLE result ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    file(RELATIVE_PATH name ${ROOT} ${file})
    message("${name}:\n${errors}")
    list(APPEND failed ${name})
  endif()
endforeach()
list(LENGTH files count)
if(failed)
  list(JOIN failed "\n  " text)
  message(FATAL_ERROR "${ROOM}: fails alone:\n  ${text}")
endif()
message(STATUS "${ROOM}: ${count} files")
