# Finds nvcc and ptxas for the kernel modules. The library itself never needs them (the CUDA driver is
# bound at run time); without them the CUDA modules are not built and the checks that need them skip.
find_program(LUMORA_NVCC nvcc PATHS /usr/local/cuda/bin /opt/cuda/bin NO_CACHE)
find_program(LUMORA_PTXAS ptxas PATHS /usr/local/cuda/bin /opt/cuda/bin NO_CACHE)
if(LUMORA_NVCC AND LUMORA_PTXAS)
  set(LUMORA_HAVE_NVCC ON)
  message(STATUS "Lumora: CUDA modules are built with ${LUMORA_NVCC}")
else()
  set(LUMORA_HAVE_NVCC OFF)
  message(STATUS "Lumora: nvcc not found on PATH or in /usr/local/cuda/bin; CUDA modules are not built "
                 "and the checks that need them are skipped")
endif()
