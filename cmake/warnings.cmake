# One interface target with the warnings that every file of ours is held to.
# Where files are compiled as one, a name of one would be called a shadow of another's.
add_library(pennywort_warnings INTERFACE)
target_compile_options(pennywort_warnings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow> -Wconversion -Wno-sign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef>
  $<$<CXX_COMPILER_ID:MSVC>:/W4 /permissive->)
if(PENNYWORT_WERROR)
  target_compile_options(pennywort_warnings INTERFACE
    $<$<CXX_COMPILER_ID:GNU,Clang>:-Werror> $<$<CXX_COMPILER_ID:MSVC>:/WX>)
endif()
