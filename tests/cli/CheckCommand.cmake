# Runs a program as a user would and checks all it gives back: its exit status, and its standard output
# and standard error against regular expressions. ctest's own PASS_REGULAR_EXPRESSION ignores the exit
# status, and a program that prints the right text and then fails must not pass.
#
#   cmake -DPROGRAM=<file> -DARGS=<list> -DEXIT=<status> [-DSTDOUT=<regex>] [-DSTDERR=<regex>]
#         [-DDEBUG=<LUMORA_DEBUG text>] -P CheckCommand.cmake
#
# LUMORA_DEBUG is set here rather than by ctest, whose environment lists cannot hold its semicolons.
if(NOT DEBUG STREQUAL "")
  set(ENV{LUMORA_DEBUG} "${DEBUG}")
endif()
execute_process(COMMAND ${PROGRAM} ${ARGS} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
message("exit status: ${status}\n--- standard output:\n${output}--- standard error:\n${errors}---")
if(NOT status STREQUAL EXIT OR NOT output MATCHES "${STDOUT}" OR NOT errors MATCHES "${STDERR}")
  message(FATAL_ERROR "expected exit status ${EXIT}, standard output matching ${STDOUT} and standard error "
                      "matching ${STDERR}")
endif()
