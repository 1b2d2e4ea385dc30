# Configuring an up-to-date build folder again must leave it up to date: every file that configuring
# generates is written only when its text changes, so that nothing is compiled or linked again (a `make demo`
# after another one relinked the fake drivers every time, because their version scripts were rewritten).
# Compares what `make -n` (a dry run) would rebuild before and after configuring, so that a folder that was
# not up to date to begin with does not fail the check.
#
#   cmake -DSOURCE_DIR=<source folder> -DBUILD_DIR=<build folder> -DMAKE=<make program> -P ConfigureAgain.cmake
foreach(step before configure after)
  if(step STREQUAL "configure")
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${BUILD_DIR} OUTPUT_QUIET RESULT_VARIABLE status)
  else()
    execute_process(COMMAND ${MAKE} -n all WORKING_DIRECTORY ${BUILD_DIR} OUTPUT_VARIABLE plan ERROR_QUIET
                    RESULT_VARIABLE status)
    string(REGEX MATCHALL "\"(Building|Linking|Generating|Embedding|Compiling)[^\"]*\"" ${step} "${plan}")
  endif()
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${step} in ${BUILD_DIR} failed")
  endif()
endforeach()
if(before)
  list(REMOVE_ITEM after ${before})
endif()
if(after)
  list(JOIN after "\n  " steps)
  message(FATAL_ERROR "configuring again made this work:\n  ${steps}")
endif()
