# cmake -DINPUT=<nvcc output.ptx> -DOUTPUT=<Module_NVIDIA.ptx> -DPTXAS=<ptxas> -P FinishPtxModule.cmake
#
# Turns nvcc's PTX into the module that ships, in two steps.
#
# 1. Texture references. CUDA C++ can no longer declare them, so a kernel samples one by name in inline PTX
#    (LM_SampleTexture). Every texture that a tex instruction names and that is not declared yet gets one
#    ".global .texref <name>;" line at module scope, after the .address_size directive (or the .target one).
#
# 2. The PTX ISA version. nvcc writes the newest version it knows (9.0 for CUDA 13), and a driver refuses a
#    module of a newer version than its own (CUDA_ERROR_UNSUPPORTED_PTX_VERSION), although the text rarely
#    needs it. The module declares instead the lowest version, from 6.4 (CUDA 10.1, the first to know
#    sm_75) up, at which ptxas accepts it for sm_75; never a higher one than nvcc wrote.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/TextEdits.cmake)

foreach(variable INPUT OUTPUT PTXAS)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "FinishPtxModule.cmake: ${variable} is not set")
  endif()
endforeach()

file(READ "${INPUT}" ptx)

# tex.2d.v4.f32.s32 {%f1, %f2, %f3, %f4}, [name, {%r1, %r2}];
# The scan reads a copy with "[" written as "<": a CMake list does not split at a ";" inside an open "[",
# so matches holding one would run together into a single item.
string(REPLACE "[" "<" scanned "${ptx}")
string(REGEX MATCHALL "[ \t\n]tex\\.[^<;]*<[ \t]*[A-Za-z_$][A-Za-z0-9_$]*" uses "${scanned}")
set(names)
foreach(use IN LISTS uses)
  string(REGEX REPLACE ".*<[ \t]*" "" name "${use}")
  string(FIND "${ptx}" ".global .texref ${name};" declared)
  if(declared EQUAL -1)
    list(APPEND names ${name})
  endif()
endforeach()
list(REMOVE_DUPLICATES names)
list(SORT names)

if(names)
  set(declarations "")
  foreach(name IN LISTS names)
    string(APPEND declarations ".global .texref ${name};\n")
  endforeach()
  string(REGEX MATCH "\n\\.address_size[^\n]*\n" anchor "${ptx}")
  if(NOT anchor)
    string(REGEX MATCH "\n\\.target[^\n]*\n" anchor "${ptx}")
  endif()
  if(NOT anchor)
    message(FATAL_ERROR "${INPUT}: no .address_size or .target directive to declare textures after")
  endif()
  lumora_replace_first("${ptx}" "${anchor}" "${anchor}\n${declarations}" ptx)
endif()

# The PTX ISA versions from CUDA 10.1 on, oldest first.
set(versions 6.4 6.5 7.0 7.1 7.2 7.3 7.4 7.5 7.6 7.7 7.8 8.0 8.1 8.2 8.3 8.4 8.5 8.6 8.7 8.8 9.0 9.1 9.2)
string(REGEX MATCH "\n\\.version ([0-9]+\\.[0-9]+)\n" directive "\n${ptx}")
if(NOT directive)
  message(FATAL_ERROR "${INPUT}: no .version directive")
endif()
set(written ${CMAKE_MATCH_1})
set(probe "${INPUT}.probe.ptx")
set(chosen "")
foreach(version IN LISTS versions)
  if(version VERSION_GREATER_EQUAL written)
    break()
  endif()
  string(REPLACE "\n.version ${written}\n" "\n.version ${version}\n" candidate "\n${ptx}")
  string(SUBSTRING "${candidate}" 1 -1 candidate)
  file(WRITE "${probe}" "${candidate}")
  execute_process(COMMAND "${PTXAS}" -arch=sm_75 "${probe}" -o "${probe}.cubin"
                  RESULT_VARIABLE refused OUTPUT_QUIET ERROR_QUIET)
  if(refused EQUAL 0)
    set(chosen ${version})
    set(ptx "${candidate}")
    break()
  endif()
endforeach()
file(REMOVE "${probe}" "${probe}.cubin")

lumora_write_if_changed("${OUTPUT}" "${ptx}")
