# What every test program gets. Included before the folders that hold tests.
enable_testing()

# Each test runs in a home of its own. This variable becomes a property of each program that is added
# from here on, and ctest puts it before the command, whatever the system that builds. A test whose
# command is no target of ours names the launcher itself.
set(pennywort_at_home ${CMAKE_CURRENT_LIST_DIR}/../tests/support/at_home)
cmake_path(NORMAL_PATH pennywort_at_home)
set(CMAKE_CROSSCOMPILING_EMULATOR ${pennywort_at_home} ${CMAKE_CROSSCOMPILING_EMULATOR})
