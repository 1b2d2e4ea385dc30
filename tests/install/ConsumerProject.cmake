# Builds tests/install/consumer against the installed package as a CMake project does (find_package with
# CMAKE_PREFIX_PATH), with the minimal host of docs/examples, and runs both: with the devices this machine
# has, with no OpenCL platform, and with the GPU switched off.
#
#   cmake -DSOURCE_DIR=<source folder> -DWORK_DIR=<scratch folder> -DPREFIX=<prefix> -DCONFIG=<config>
#         -DGENERATOR=<generator> -DCXX=<compiler> -DLIBDIR=<libdir> -DBINDIR=<bindir>
#         -DSANITIZE=<sanitizers or empty> -DREADELF=<readelf or empty> -P ConsumerProject.cmake
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/InstallChecks.cmake)

set(build ${WORK_DIR}/build)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/no-opencl-vendors)
# --as-needed in force shows that the package keeps the kernel library although nothing calls into it.
set(linkFlags "-Wl,--as-needed")
set(compileFlags "")
if(SANITIZE)
  set(compileFlags "-fsanitize=${SANITIZE} -fno-omit-frame-pointer")
  string(APPEND linkFlags " -fsanitize=${SANITIZE}")
endif()
run_or_fail("configuring the consumer project"
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${build} -G ${GENERATOR}
          -DCMAKE_BUILD_TYPE=${CONFIG} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${PREFIX}
          -DCMAKE_CXX_FLAGS=${compileFlags} -DCMAKE_EXE_LINKER_FLAGS=${linkFlags}
          -DMINIMAL_HOST_SOURCE=${SOURCE_DIR}/docs/examples/minimal_host.cpp)
# The package came from the prefix, not from anywhere else on the machine.
file(STRINGS ${build}/CMakeCache.txt lumoraDir REGEX "^Lumora_DIR:")
if(NOT lumoraDir MATCHES "=${PREFIX}/${LIBDIR}/cmake/Lumora$")
  message(FATAL_ERROR "find_package(Lumora) found ${lumoraDir}, not the package in ${PREFIX}")
endif()
run_or_fail("building the consumer project" COMMAND ${CMAKE_COMMAND} --build ${build} --config ${CONFIG} -j 2)

find_program(consumer lumora_consumer PATHS ${build} ${build}/${CONFIG} NO_DEFAULT_PATH REQUIRED)
find_program(minimalHost minimal_host PATHS ${build} ${build}/${CONFIG} NO_DEFAULT_PATH REQUIRED)
expect_lumora_needed(${consumer})
expect_lumora_needed(${minimalHost})

# The installed PTX folder is where the library finds its CUDA modules: the programs' executable directory
# is pointed there.
set(executableDir LUMORA_EXECUTABLE_DIR=${PREFIX}/${BINDIR})
run_program(${consumer} OUTPUT listed ENV ${executableDir})
if(NOT listed MATCHES "devices: ([0-9]+) registered, ([0-9]+) qualified")
  message(FATAL_ERROR "the consumer's output has no device count")
endif()
set(qualified ${CMAKE_MATCH_2})
run_program(${minimalHost} OUTPUT result ENV ${executableDir})
expect_minimal_host_result("${result}" ${qualified})

# No OpenCL platform at all (the OpenCL loader finds no vendor): both still exit with 0.
run_program(${consumer} OUTPUT listed ENV ${executableDir} OCL_ICD_VENDORS=${WORK_DIR}/no-opencl-vendors)
run_program(${minimalHost} OUTPUT result ENV ${executableDir} OCL_ICD_VENDORS=${WORK_DIR}/no-opencl-vendors)

# No device: the GPU is switched off, so nothing is bound or registered.
set(off "LM.DisableAcceleratedRenderer=1;LM.DisableAcceleratedDisplay=1")
run_program(${consumer} OUTPUT listed DEBUG "${off}")
if(NOT listed MATCHES "devices: 0 registered, 0 qualified")
  message(FATAL_ERROR "with the GPU switched off the consumer should list no device")
endif()
run_program(${minimalHost} OUTPUT result DEBUG "${off}")
expect_minimal_host_result("${result}" 0)
