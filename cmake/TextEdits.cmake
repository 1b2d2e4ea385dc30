# Text helpers shared by the build's generator scripts (included with include()).

# Replaces the first occurrence of <needle> in <text> with <replacement>; the result goes to <out>.
# Literal text, no regular expressions; <needle> must occur.
function(lumora_replace_first text needle replacement out)
  string(FIND "${text}" "${needle}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "lumora_replace_first: \"${needle}\" does not occur")
  endif()
  string(LENGTH "${needle}" length)
  math(EXPR after "${at} + ${length}")
  string(SUBSTRING "${text}" 0 ${at} head)
  string(SUBSTRING "${text}" ${after} -1 tail)
  set(${out} "${head}${replacement}${tail}" PARENT_SCOPE)
endfunction()

# Writes <content> to <path> only when it changes; an unchanged file is touched instead, so the build sees
# it up to date and nothing that depends on it is made again.
function(lumora_write_if_changed path content)
  if(EXISTS "${path}")
    file(READ "${path}" existing)
    if(existing STREQUAL content)
      file(TOUCH_NOCREATE "${path}")
      return()
    endif()
  endif()
  file(WRITE "${path}" "${content}")
endfunction()
