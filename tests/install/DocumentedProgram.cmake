# The program that a document shows is the file that the tests build: the fenced ```cpp block after the
# line "<!-- program: <file> -->" holds exactly the file's text.
#
#   cmake -DDOCUMENT=<markdown file> -DPROGRAM=<source file, relative to the source folder>
#         -DSOURCE_DIR=<source folder> -P DocumentedProgram.cmake
cmake_minimum_required(VERSION 3.25)
file(READ ${DOCUMENT} document)
file(READ ${SOURCE_DIR}/${PROGRAM} program)
set(marker "<!-- program: ${PROGRAM} -->\n```cpp\n")
string(FIND "${document}" "${marker}" start)
if(start EQUAL -1)
  message(FATAL_ERROR "${DOCUMENT} has no line \"<!-- program: ${PROGRAM} -->\" followed by a ```cpp block")
endif()
string(LENGTH "${marker}" markerLength)
math(EXPR start "${start} + ${markerLength}")
string(SUBSTRING "${document}" ${start} -1 rest)
string(FIND "${rest}" "\n```\n" end)
if(end EQUAL -1)
  message(FATAL_ERROR "the block of ${PROGRAM} in ${DOCUMENT} is not closed")
endif()
math(EXPR end "${end} + 1")
string(SUBSTRING "${rest}" 0 ${end} shown)
if(NOT shown STREQUAL program)
  message(FATAL_ERROR "the block in ${DOCUMENT} differs from ${PROGRAM}; copy the file into it")
endif()
