# Installs the build folder into a fresh prefix with `cmake --install` and checks what lies there: exactly
# the expected files (the headers of include/ and Host/include/, the three libraries with their SONAME
# links, the program, the library's PTX modules, the CMake package and the pkg-config file), the libraries'
# SONAMEs and run paths, and that the installed program runs from there.
#
#   cmake -DSOURCE_DIR=<source folder> -DBUILD_DIR=<build folder> -DPREFIX=<prefix> -DCONFIG=<config>
#         -DLIBDIR=<libdir> -DBINDIR=<bindir> -DINCLUDEDIR=<includedir> -DVERSION=<x.y.z>
#         -DPTX_MODULES=<files> -DREADELF=<readelf or empty> -P InstallPackage.cmake
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/InstallChecks.cmake)

file(REMOVE_RECURSE ${PREFIX})
run_or_fail("cmake --install" COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX} --config ${CONFIG})

string(REGEX MATCH "^[0-9]+" major "${VERSION}")
string(TOLOWER "${CONFIG}" config)
set(expected ${BINDIR}/lumora ${LIBDIR}/pkgconfig/lumora.pc)
foreach(file LumoraConfig LumoraConfigVersion LumoraTargets LumoraTargets-${config})
  list(APPEND expected ${LIBDIR}/cmake/Lumora/${file}.cmake)
endforeach()
foreach(ptx IN LISTS PTX_MODULES)
  get_filename_component(name ${ptx} NAME)
  list(APPEND expected ${BINDIR}/PTX/${name})
endforeach()
file(GLOB_RECURSE headers RELATIVE ${SOURCE_DIR}/include ${SOURCE_DIR}/include/*.h)
file(GLOB_RECURSE hostHeaders RELATIVE ${SOURCE_DIR}/Host/include ${SOURCE_DIR}/Host/include/*.h)
foreach(header IN LISTS headers hostHeaders)
  list(APPEND expected ${INCLUDEDIR}/lumora/${header})
endforeach()
# lib<name>.so -> lib<name>.so.<major> -> lib<name>.so.<version>, whose SONAME is lib<name>.so.<major>. The
# libraries find each other beside themselves, and the program finds them from its own folder: no path of
# the build folder remains.
foreach(library lumora lumora_host lumora_kernels)
  set(base ${PREFIX}/${LIBDIR}/lib${library}.so)
  list(APPEND expected ${LIBDIR}/lib${library}.so ${LIBDIR}/lib${library}.so.${major} ${LIBDIR}/lib${library}.so.${VERSION})
  file(READ_SYMLINK ${base} first)
  file(READ_SYMLINK ${base}.${major} second)
  if(NOT first STREQUAL "lib${library}.so.${major}" OR NOT second STREQUAL "lib${library}.so.${VERSION}")
    message(FATAL_ERROR "lib${library}.so links to ${first}, and lib${library}.so.${major} to ${second}")
  endif()
  if(READELF)
    run_or_fail("readelf" COMMAND ${READELF} -d ${base}.${VERSION} OUTPUT dynamic)
    if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[lib${library}\\.so\\.${major}\\]"
       OR NOT dynamic MATCHES "\\((RUNPATH|RPATH)\\)[^\n]*\\[\\$ORIGIN\\]")
      message(FATAL_ERROR "lib${library}.so.${VERSION} should have the SONAME lib${library}.so.${major} and search "
                          "$ORIGIN only:\n${dynamic}")
    endif()
  endif()
endforeach()

file(GLOB_RECURSE installed LIST_DIRECTORIES false RELATIVE ${PREFIX} ${PREFIX}/*)
set(missing ${expected})
list(REMOVE_ITEM missing ${installed})
set(unexpected ${installed})
list(REMOVE_ITEM unexpected ${expected})
if(missing OR unexpected)
  list(JOIN missing "\n  " missingLines)
  list(JOIN unexpected "\n  " unexpectedLines)
  message(FATAL_ERROR "the prefix does not hold what it should\nmissing:\n  ${missingLines}\n"
                      "unexpected:\n  ${unexpectedLines}")
endif()

file(RELATIVE_PATH libraryFromProgram /prefix/${BINDIR} /prefix/${LIBDIR})
if(READELF)
  run_or_fail("readelf" COMMAND ${READELF} -d ${PREFIX}/${BINDIR}/lumora OUTPUT dynamic)
  if(NOT dynamic MATCHES "\\((RUNPATH|RPATH)\\)[^\n]*\\[\\$ORIGIN/${libraryFromProgram}\\]")
    message(FATAL_ERROR "the program should search $ORIGIN/${libraryFromProgram} only:\n${dynamic}")
  endif()
endif()
# The installed program loads the installed libraries and runs.
run_or_fail("the installed lumora" COMMAND ${PREFIX}/${BINDIR}/lumora --help)
