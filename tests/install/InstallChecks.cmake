# Helpers of the installed-package checks (InstallPackage.cmake, Consumers.cmake).

# Runs a command; stops the check with its output when it fails. The output goes to <outputVar> if given.
function(run_or_fail what)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "OUTPUT" "COMMAND")
  execute_process(COMMAND ${ARG_COMMAND} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " line "${ARG_COMMAND}")
    message(FATAL_ERROR "${what} failed (${status}):\n  ${line}\n${output}${errors}")
  endif()
  if(ARG_OUTPUT)
    set(${ARG_OUTPUT} "${output}" PARENT_SCOPE)
  endif()
endfunction()

# A program built against the package needs liblumora by its SONAME (lib<name>.so.<major>), and the kernel
# library although it calls nothing in it (it was linked with --as-needed in force, which would drop it).
function(expect_lumora_needed program)
  if(READELF)
    run_or_fail("readelf on ${program}" COMMAND ${READELF} -d ${program} OUTPUT dynamic)
    foreach(library lumora lumora_kernels)
      if(NOT dynamic MATCHES "\\(NEEDED\\)[^\n]*\\[lib${library}\\.so\\.[0-9]+\\]")
        message(FATAL_ERROR "${program} does not need lib${library}.so.<major>:\n${dynamic}")
      endif()
    endforeach()
  endif()
endfunction()

# Runs ${minimalHost}, which must exit with 0 and print a line matching EXPECT, with LUMORA_DEBUG set to
# DEBUG and the variables of ENV (NAME=value).
function(run_minimal_host)
  cmake_parse_arguments(PARSE_ARGV 0 ARG "" "DEBUG;EXPECT" "ENV")
  set(ENV{LUMORA_DEBUG} "${ARG_DEBUG}")
  set(how "${minimalHost} (${ARG_ENV} LUMORA_DEBUG=${ARG_DEBUG})")
  run_or_fail("${how}" COMMAND ${CMAKE_COMMAND} -E env ${ARG_ENV} ${minimalHost} OUTPUT result)
  message("${how}:\n${result}")
  if(NOT result MATCHES "${ARG_EXPECT}")
    message(FATAL_ERROR "the minimal host's output does not match: ${ARG_EXPECT}")
  endif()
endfunction()
