# One interface target with the warnings that every file of ours is held to.
# Where files are compiled as one, a name of one would be called a shadow of another's, and a type that
# stands in one file only would be taken for a header's.
set(are_joined $<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>)
add_library(pennywort_warnings INTERFACE)
target_compile_options(pennywort_warnings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic $<$<NOT:${are_joined}>:-Wshadow> -Wconversion -Wno-sign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef>
  $<$<AND:$<CXX_COMPILER_ID:GNU>,${are_joined}>:-Wno-subobject-linkage>
  $<$<CXX_COMPILER_ID:MSVC>:/W4 /permissive->)
if(PENNYWORT_WERROR)
  target_compile_options(pennywort_warnings INTERFACE
    $<$<CXX_COMPILER_ID:GNU,Clang>:-Werror> $<$<CXX_COMPILER_ID:MSVC>:/WX>)
endif()
