# What every test program gets. Included before the folders that hold tests.
enable_testing()

# Each test runs in a home of its own. This variable becomes a property of each program that is added
# from here on, and ctest puts it before the command, whatever the system that builds. A test whose
# command is no target of ours names the launcher itself.
set(pennywort_at_home ${CMAKE_CURRENT_LIST_DIR}/../tests/support/at_home)
cmake_path(NORMAL_PATH pennywort_at_home)
set(CMAKE_CROSSCOMPILING_EMULATOR ${pennywort_at_home} ${CMAKE_CROSSCOMPILING_EMULATOR})

# What nearly every test file includes is parsed once for all of them, which saves about half of the time
# that they take to compile. ccache has to be told that this is no reason to stand back: the header's
# date and the definitions that it does not use say nothing of the result.
if(PENNYWORT_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${PENNYWORT_CCACHE})
endif()

# pennywort_quickly_compiled(<target>): no test is worth the optimiser's effort, which takes twice as
# long; and g++ 12 sees array bounds broken by the standard library where that was parsed before.
function(pennywort_quickly_compiled target)
  target_compile_options(${target} PRIVATE
    $<$<AND:$<CXX_COMPILER_ID:GNU,Clang>,$<NOT:$<CONFIG:Debug>>>:-O0>)
endfunction()

# pennywort_test_programs(<directory>): gives each program below this directory whose name ends with
# _test the headers that were parsed before. Clang reads them again with each file or eight of them.
function(pennywort_test_programs directory)
  get_property(folders DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders)
    pennywort_test_programs(${folder})
  endforeach()
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  # Where one works on a single file, few others are compiled again with it.
  set(together 8)
  if(PENNYWORT_JOIN_FILES)
    set(together 32)
  endif()
  foreach(target IN LISTS targets)
    if(NOT target MATCHES "_test$")
      continue()
    endif()
    pennywort_quickly_compiled(${target})
    pennywort_joins_files(${target} ${together})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_precompile_headers(${target} REUSE_FROM test_headers)
    endif()
  endforeach()
endfunction()

# pennywort_discovers_tests(<target>): each of its tests is one of ctest's, in a process of its own. Under
# a sanitizer and under Wine each suite is: such a process takes a hundred times longer to start than most
# tests run. Not for a program of which a test needs a process that no other has used.
function(pennywort_discovers_tests target)
  if(NOT PENNYWORT_SANITIZE AND NOT WIN32)
    gtest_discover_tests(${target})
    return()
  endif()
  set(preset other)
  if(WIN32)
    set(preset mingw)
  endif()
  get_target_property(launcher ${target} CROSSCOMPILING_EMULATOR)
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
  string(CONCAT script
    "set(launcher \"${launcher}\")\n"
    "set(program \"$<TARGET_FILE:${target}>\")\n"
    "set(preset ${preset})\n"
    "set(may_skip \"${PROJECT_SOURCE_DIR}/tests/may_skip.txt\")\n"
    "include(\"${PROJECT_SOURCE_DIR}/cmake/suites.cmake\")\n")
  file(GENERATE OUTPUT ${file} CONTENT "${script}")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
endfunction()
