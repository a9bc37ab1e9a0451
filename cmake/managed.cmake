# pennywort_managed(<output> <source> [<reference>]): compiles a C# file into an assembly, now, with
# Mono's compiler. Without a compiler nothing is made.
find_program(PENNYWORT_MCS mcs)

function(pennywort_managed output source)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  if(NOT PENNYWORT_MCS)
    return()
  endif()
  if(EXISTS ${output} AND ${output} IS_NEWER_THAN ${source})
    return()
  endif()
  set(reference)
  if(ARGC GREATER 2)
    set(reference -r:${ARGV2})
  endif()
  execute_process(COMMAND ${PENNYWORT_MCS} -target:library -optimize+ -warnaserror+ -out:${output} ${reference} ${source}
    RESULT_VARIABLE result OUTPUT_VARIABLE words ERROR_VARIABLE words)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${source} does not compile: ${words}")
  endif()
endfunction()

# pennywort_embed_assembly(<header> <assembly> <name>): a header with the bytes of an assembly, or with
# none where there is no such file.
function(pennywort_embed_assembly header assembly name)
  set(bytes "")
  if(EXISTS ${assembly})
    file(READ ${assembly} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  endif()
  # The last byte is not the assembly's: an array has one at least.
  file(CONFIGURE OUTPUT ${header} @ONLY CONTENT "// Made by the build.
#pragma once

inline constexpr unsigned char k_${name}[] = {${bytes}0};
")
endfunction()
