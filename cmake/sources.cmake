# pennywort_sources(<target> <files...> [TWINS <stems...>]): adds this folder's files to a target;
# of each twin stem it adds stem_win.cpp or stem_linux.cpp, whichever the target system needs.
function(pennywort_sources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "TWINS")
  set(system linux)
  if(WIN32)
    set(system win)
  endif()
  list(TRANSFORM arg_TWINS APPEND "_${system}.cpp")
  set(files ${arg_UNPARSED_ARGUMENTS} ${arg_TWINS})
  list(TRANSFORM files PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  target_sources(${target} PRIVATE ${files})
endfunction()

# pennywort_compiled_here(<target>): the language level, visibility, warnings and sanitizers of
# everything that this project compiles itself.
function(pennywort_compiled_here target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:pennywort_warnings>)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(PENNYWORT_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${PENNYWORT_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${PENNYWORT_SANITIZE})
  endif()
endfunction()

# pennywort_counted_by_fuzzers(<target>): a fuzzer sees what its inputs reach of this. Counting took a
# quarter of clang's time for two files, so only what holds the parsers is compiled with it.
function(pennywort_counted_by_fuzzers target)
  if(PENNYWORT_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# pennywort_works_without_descriptors(<target>): to look at an object's type clang's sanitizer opens a
# pipe. Without a descriptor left it would call each live object one of another type.
function(pennywort_works_without_descriptors target)
  if(PENNYWORT_SANITIZE MATCHES undefined AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -fno-sanitize=vptr)
  endif()
endfunction()

# pennywort_joins_files(<target> <number>): parses what the files include, and compiles what they take of
# it, once for this number of them: names that no header has are to differ among them. Tests always do, the
# product's files where PENNYWORT_JOIN_FILES is on; elsewhere each of those has to include what it uses.
# What stands on the system's own headers stays apart: one of these takes the names of another's.
option(PENNYWORT_JOIN_FILES "Compile several files of the product as one, too" OFF)
function(pennywort_joins_files target number)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${number})
  # The files are included by their whole paths, which would be another text for ccache in each clone.
  target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
  get_target_property(files ${target} SOURCES)
  list(FILTER files INCLUDE REGEX "_(linux|win)[.]cpp$|/firewall/")
  if(files)
    set_property(SOURCE ${files} TARGET_DIRECTORY ${target} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()
