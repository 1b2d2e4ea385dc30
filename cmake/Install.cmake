# The installed package (docs/embedding.md, "Installing"):
#   <libdir>/liblumora.so*, liblumora_host.so*, liblumora_kernels.so*   the libraries, with their SONAME links
#   <bindir>/lumora                                                     the command-line program
#   <bindir>/PTX/<Module>_NVIDIA.ptx                                    the library's CUDA modules, with nvcc
#   <includedir>/lumora/{Lumora,SK,TQ,FK,OXR,HQX,zelcore,zelmediatypes}/ the headers (one include root)
#   <libdir>/cmake/Lumora/                                              find_package(Lumora): Lumora::Lumora
#   <libdir>/pkgconfig/lumora.pc                                        pkg-config
# The library looks for its module folders in the executable directory of the running program, so the PTX
# folder goes beside the installed programs; a host elsewhere points LUMORA_EXECUTABLE_DIR at <bindir> or
# has the folder beside itself.
include(CMakePackageConfigHelpers)

# The headers get a folder of their own: the host-service folders (SK, TQ, OXR, ...) carry short generic
# names that have no place directly in a shared include folder.
set(LUMORA_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/lumora)
set(LUMORA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Lumora)

install(TARGETS lumora lumora_host lumora_kernels EXPORT LumoraTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${LUMORA_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/Lumora ${PROJECT_SOURCE_DIR}/Host/include/
        DESTINATION ${LUMORA_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# The program finds the libraries from the executable folder, wherever the prefix is.
file(RELATIVE_PATH libraryFromProgram ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(lumora_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${libraryFromProgram}")
install(TARGETS lumora_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Only the library's modules: the build's PTX folder holds the test and benchmark modules as well.
get_property(ptxModules TARGET lumora_ptx_modules PROPERTY LUMORA_PTX_FILES)
if(ptxModules)
  install(FILES ${ptxModules} DESTINATION ${CMAKE_INSTALL_BINDIR}/PTX)
endif()

install(EXPORT LumoraTargets NAMESPACE Lumora:: DESTINATION ${LUMORA_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/LumoraConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/LumoraConfig.cmake
                              INSTALL_DESTINATION ${LUMORA_INSTALL_CMAKEDIR}
                              PATH_VARS LUMORA_INSTALL_INCLUDEDIR CMAKE_INSTALL_BINDIR)
# Releases of one major version keep the library's interface, as its SONAME (liblumora.so.<major>) says.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LumoraConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LumoraConfig.cmake ${PROJECT_BINARY_DIR}/LumoraConfigVersion.cmake
        DESTINATION ${LUMORA_INSTALL_CMAKEDIR})

# The pkg-config file names its folders from its own place (${pcfiledir}), so the prefix may move, as it
# does with `cmake --install --prefix` or DESTDIR; folders given as absolute paths are kept as they are.
set(pkgconfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}"
   OR IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
  set(LUMORA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(LUMORA_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(LUMORA_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}/lumora")
  set(LUMORA_PC_BINDIR "${CMAKE_INSTALL_FULL_BINDIR}")
else()
  file(RELATIVE_PATH prefixFromPcFile /prefix/${pkgconfigDir} /prefix)
  string(REGEX REPLACE "/$" "" prefixFromPcFile "${prefixFromPcFile}")
  set(LUMORA_PC_PREFIX "\${pcfiledir}/${prefixFromPcFile}")
  set(LUMORA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(LUMORA_PC_INCLUDEDIR "\${prefix}/${LUMORA_INSTALL_INCLUDEDIR}")
  set(LUMORA_PC_BINDIR "\${prefix}/${CMAKE_INSTALL_BINDIR}")
endif()
# Boost's headers, when the compiler would not find them by itself.
set(LUMORA_PC_BOOST_CFLAGS "")
foreach(dir IN LISTS Boost_INCLUDE_DIRS)
  if(NOT dir IN_LIST CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES AND NOT dir STREQUAL "/usr/include")
    string(APPEND LUMORA_PC_BOOST_CFLAGS " -I${dir}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/lumora.pc.in ${PROJECT_BINARY_DIR}/lumora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lumora.pc DESTINATION ${pkgconfigDir})
