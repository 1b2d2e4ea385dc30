# The program that a document shows is the file that the tests build: the fenced ```cpp block after the
# line "<!-- program: <file> -->" holds exactly the file's text.
#
#   cmake -DDOCUMENT=<markdown file> -DPROGRAM=<source file, relative to the source folder>
#         -DSOURCE_DIR=<source folder> -P DocumentedProgram.cmake
file(READ ${DOCUMENT} document)
file(READ ${SOURCE_DIR}/${PROGRAM} program)
string(FIND "${document}" "<!-- program: ${PROGRAM} -->\n```cpp\n${program}```\n" found)
if(found EQUAL -1)
  message(FATAL_ERROR "${DOCUMENT} lacks the line \"<!-- program: ${PROGRAM} -->\" followed by a ```cpp block "
                      "that holds exactly the file's text; copy the file into it")
endif()
