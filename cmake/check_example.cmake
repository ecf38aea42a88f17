# Runs an example on a recording that an independent program has made. PROGRAM, WORK.

file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND sox -n -r 48000 -c 2 -b 16 ${WORK}/tone.wav synth 2 sine 440 COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${PROGRAM} ${WORK}/tone.wav RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
message("${output}")
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ends with ${result}")
endif()
