# Builds the consumer's main.cpp and the minimal host of docs/examples with the compiler alone, taking the
# flags from `pkg-config --cflags --libs lumora` with PKG_CONFIG_PATH pointing into the prefix, and runs
# both.
#
#   cmake -DSOURCE_DIR=<source folder> -DWORK_DIR=<scratch folder> -DPREFIX=<prefix> -DLIBDIR=<libdir>
#         -DBINDIR=<bindir> -DVERSION=<x.y.z> -DCXX=<compiler> -DPKG_CONFIG=<pkg-config or empty>
#         -DSANITIZE=<sanitizers or empty> -DREADELF=<readelf or empty> -P PkgConfig.cmake
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/InstallChecks.cmake)

if(NOT PKG_CONFIG)
  message("SKIPPED: pkg-config was not found (scripts/install-deps.sh installs it)")
  return()
endif()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
run_or_fail("pkg-config --modversion" COMMAND ${PKG_CONFIG} --modversion lumora OUTPUT version)
string(STRIP "${version}" version)
if(NOT version STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config gives version ${version}, not ${VERSION}")
endif()
run_or_fail("pkg-config --cflags --libs" COMMAND ${PKG_CONFIG} --cflags --libs lumora OUTPUT flags)
run_or_fail("pkg-config --variable=libdir" COMMAND ${PKG_CONFIG} --variable=libdir lumora OUTPUT libdir)
string(STRIP "${libdir}" libdir)
get_filename_component(libdir ${libdir} REALPATH)
get_filename_component(expectedLibdir ${PREFIX}/${LIBDIR} REALPATH)
if(NOT libdir STREQUAL expectedLibdir)
  message(FATAL_ERROR "pkg-config gives libdir ${libdir}, not ${expectedLibdir}")
endif()
message("pkg-config --cflags --libs lumora: ${flags}")
separate_arguments(flags UNIX_COMMAND "${flags}")
set(sanitizeFlags "")
if(SANITIZE)
  set(sanitizeFlags -fsanitize=${SANITIZE} -fno-omit-frame-pointer)
endif()

set(programs consumer|${SOURCE_DIR}/tests/install/consumer/main.cpp
             minimal_host|${SOURCE_DIR}/docs/examples/minimal_host.cpp)
foreach(entry IN LISTS programs)
  string(REPLACE "|" ";" entry "${entry}")
  list(GET entry 0 name)
  list(GET entry 1 source)
  # --as-needed in force, as in the CMake project; the run path stands in for an installed program's own.
  run_or_fail("compiling ${name} with the pkg-config flags"
    COMMAND ${CXX} ${sanitizeFlags} -Wl,--as-needed ${source} -o ${WORK_DIR}/${name} ${flags}
            -Wl,-rpath,${libdir})
  expect_lumora_needed(${WORK_DIR}/${name})
endforeach()

set(executableDir LUMORA_EXECUTABLE_DIR=${PREFIX}/${BINDIR})
run_program(${WORK_DIR}/consumer OUTPUT listed ENV ${executableDir})
if(NOT listed MATCHES "devices: ([0-9]+) registered, ([0-9]+) qualified")
  message(FATAL_ERROR "the consumer's output has no device count")
endif()
set(qualified ${CMAKE_MATCH_2})
run_program(${WORK_DIR}/minimal_host OUTPUT result ENV ${executableDir})
expect_minimal_host_result("${result}" ${qualified})
