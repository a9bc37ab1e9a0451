# Read by ctest in a build folder: makes a test of each suite of `program`, which `launcher` runs.
get_filename_component(target ${program} NAME)
if(NOT EXISTS ${program})
  # ctest tells of it as of one that it could not run.
  add_test(${target}_NOT_BUILT ${target}_NOT_BUILT)
  return()
endif()
execute_process(COMMAND ${launcher} ${program} --gtest_list_tests
  OUTPUT_VARIABLE listed RESULT_VARIABLE status TIMEOUT 60)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${program} does not list its tests: ${status}\n${listed}")
endif()
# A suite's name ends with a dot; behind it may be the type that it was made with.
string(REGEX MATCHALL "\n[A-Za-z][^ \n]*[.]" names "\n${listed}")
foreach(name IN LISTS names)
  string(REGEX REPLACE "^\n|[.]$" "" name "${name}")
  add_test("${name}" ${launcher} ${program} "--gtest_filter=${name}.*")
  set_tests_properties("${name}" PROPERTIES TIMEOUT 900 SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endforeach()
