# cmake -DINPUT=<nvcc output.ptx> -DOUTPUT=<Module_NVIDIA.ptx> -P AddTextureReferences.cmake
#
# CUDA C++ can no longer declare texture references, so a kernel samples one by name in inline PTX
# (LM_SampleTexture). This step declares, at module scope, every texture that a tex instruction of the PTX
# names and that is not declared yet: one ".global .texref <name>;" line each, after the .address_size
# directive (or the .target one).
cmake_minimum_required(VERSION 3.25)

foreach(variable INPUT OUTPUT)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "AddTextureReferences.cmake: ${variable} is not set")
  endif()
endforeach()

file(READ "${INPUT}" ptx)

# tex.2d.v4.f32.s32 {%f1, %f2, %f3, %f4}, [name, {%r1, %r2}];
string(REGEX MATCHALL "[ \t\n]tex\\.[^[;]*\\[[ \t]*[A-Za-z_$][A-Za-z0-9_$]*" uses "${ptx}")
set(names)
foreach(use IN LISTS uses)
  string(REGEX REPLACE ".*\\[[ \t]*" "" name "${use}")
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
  string(FIND "${ptx}" "${anchor}" at)
  string(LENGTH "${anchor}" anchorLength)
  math(EXPR after "${at} + ${anchorLength}")
  string(SUBSTRING "${ptx}" 0 ${after} head)
  string(SUBSTRING "${ptx}" ${after} -1 tail)
  set(ptx "${head}\n${declarations}${tail}")
endif()

# An unchanged module is touched instead, so the build sees it up to date; nothing is compiled from it.
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" existing)
  if(existing STREQUAL ptx)
    file(TOUCH_NOCREATE "${OUTPUT}")
    return()
  endif()
endif()
file(WRITE "${OUTPUT}" "${ptx}")
