# Configuring an up-to-date build folder again must leave it up to date: every file that configuring
# generates is written only when its text changes, so that nothing is compiled or linked again (a `make demo`
# after another one relinked the fake drivers every time, because their version scripts were rewritten).
#
#   cmake -DSOURCE_DIR=<source folder> -DBUILD_DIR=<build folder> -DMAKE=<make program> -P ConfigureAgain.cmake
#
# Compares what `make -n` (a dry run, which runs nothing) would rebuild before and after configuring, so a
# folder that was not up to date to begin with does not fail the check.
function(work_to_do result)
  execute_process(COMMAND ${MAKE} -n all WORKING_DIRECTORY ${BUILD_DIR}
                  OUTPUT_VARIABLE plan ERROR_QUIET RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${MAKE} -n all failed in ${BUILD_DIR}")
  endif()
  string(REGEX MATCHALL "\"(Building|Linking|Generating|Embedding|Compiling)[^\"]*\"" steps "${plan}")
  set(${result} "${steps}" PARENT_SCOPE)
endfunction()

work_to_do(before)
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${BUILD_DIR}
                OUTPUT_QUIET RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "configuring ${BUILD_DIR} again failed")
endif()
work_to_do(after)
if(before)
  list(REMOVE_ITEM after ${before})
endif()
if(after)
  list(JOIN after "\n  " steps)
  message(FATAL_ERROR "configuring again made this work:\n  ${steps}")
endif()
