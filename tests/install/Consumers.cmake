# Builds the minimal host of docs/examples against the installed package, WITH cmake (the project in
# tests/install/consumer: find_package with CMAKE_PREFIX_PATH) or WITH pkg-config (the compiler alone, with
# the flags of `pkg-config --cflags --libs lumora`), and runs it: it fills and reads back an image on this
# machine's device, and for the CMake project it also runs with no OpenCL platform and with the GPU off.
#
#   cmake -DWITH=<cmake|pkg-config> -DSOURCE_DIR=<source folder> -DWORK_DIR=<scratch folder> -DPREFIX=<prefix>
#         -DCONFIG=<config> -DGENERATOR=<generator> -DCXX=<compiler> -DLIBDIR=<libdir> -DBINDIR=<bindir>
#         -DVERSION=<x.y.z> -DPKG_CONFIG=<pkg-config or empty> -DSANITIZE=<sanitizers or empty>
#         -DREADELF=<readelf or empty> -P Consumers.cmake
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/InstallChecks.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/no-opencl-vendors)
set(sanitizeFlags "")
if(SANITIZE)
  set(sanitizeFlags -fsanitize=${SANITIZE} -fno-omit-frame-pointer)
endif()
# Both link with --as-needed in force, which shows that the package keeps the kernel library although
# nothing calls into it.
if(WITH STREQUAL "cmake")
  set(build ${WORK_DIR}/build)
  list(JOIN sanitizeFlags " " flags)
  run_or_fail("configuring the consumer project"
    COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${build} -G ${GENERATOR}
            -DCMAKE_BUILD_TYPE=${CONFIG} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${PREFIX}
            "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed ${flags}"
            -DMINIMAL_HOST_SOURCE=${SOURCE_DIR}/docs/examples/minimal_host.cpp)
  # The package came from the prefix, not from anywhere else on the machine.
  file(STRINGS ${build}/CMakeCache.txt lumoraDir REGEX "^Lumora_DIR:")
  if(NOT lumoraDir MATCHES "=${PREFIX}/${LIBDIR}/cmake/Lumora$")
    message(FATAL_ERROR "find_package(Lumora) found ${lumoraDir}, not the package in ${PREFIX}")
  endif()
  run_or_fail("building the consumer project" COMMAND ${CMAKE_COMMAND} --build ${build} --config ${CONFIG} -j 2)
  find_program(minimalHost minimal_host PATHS ${build} ${build}/${CONFIG} NO_DEFAULT_PATH REQUIRED)
elseif(NOT PKG_CONFIG)
  message("SKIPPED: pkg-config was not found (scripts/install-deps.sh installs it)")
  return()
else()
  set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
  run_or_fail("pkg-config --modversion" COMMAND ${PKG_CONFIG} --modversion lumora OUTPUT version)
  run_or_fail("pkg-config --variable=libdir" COMMAND ${PKG_CONFIG} --variable=libdir lumora OUTPUT libdir)
  string(STRIP "${version}" version)
  string(STRIP "${libdir}" libdir)
  file(REAL_PATH ${libdir} libdir)
  file(REAL_PATH ${PREFIX}/${LIBDIR} expectedLibdir)
  if(NOT version STREQUAL VERSION OR NOT libdir STREQUAL expectedLibdir)
    message(FATAL_ERROR "pkg-config gives version ${version} and libdir ${libdir}, not ${VERSION} and ${expectedLibdir}")
  endif()
  run_or_fail("pkg-config --cflags --libs" COMMAND ${PKG_CONFIG} --cflags --libs lumora OUTPUT flags)
  message("pkg-config --cflags --libs lumora: ${flags}")
  separate_arguments(flags UNIX_COMMAND "${flags}")
  set(minimalHost ${WORK_DIR}/minimal_host)
  # The run path stands in for an installed program's own.
  run_or_fail("compiling the minimal host with the pkg-config flags"
    COMMAND ${CXX} ${sanitizeFlags} -Wl,--as-needed ${SOURCE_DIR}/docs/examples/minimal_host.cpp -o ${minimalHost}
            ${flags} -Wl,-rpath,${libdir})
endif()
expect_lumora_needed(${minimalHost})

# The installed PTX folder is where the library finds its CUDA modules: the program's executable directory
# is pointed there.
set(executableDir LUMORA_EXECUTABLE_DIR=${PREFIX}/${BINDIR})
run_minimal_host(ENV ${executableDir} EXPECT "filled 64x32 pixels with \\(0.25, 0.5, 0.75, 1\\) and read them back")
if(WITH STREQUAL "cmake")
  # No OpenCL platform at all (the OpenCL loader finds no vendor); no device, since with the GPU switched off
  # nothing is bound or registered.
  run_minimal_host(ENV ${executableDir} OCL_ICD_VENDORS=${WORK_DIR}/no-opencl-vendors)
  run_minimal_host(DEBUG "LM.DisableAcceleratedRenderer=1;LM.DisableAcceleratedDisplay=1"
                   EXPECT "no device to use \\(0 registered\\)")
endif()
