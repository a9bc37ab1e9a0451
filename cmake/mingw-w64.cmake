# mingw-w64.cmake - builds for Windows x64 on Linux. Used by the preset "mingw"; what the libraries and
# tests need of other projects lies in one folder, which scripts/build-windows-deps fills.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The variant with POSIX threads: the other one has no std::thread and no std::mutex.
set(triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triple}-g++-posix)
set(CMAKE_RC_COMPILER ${triple}-windres)

# A cached variable, because try_compile reads this file again without the preset.
# A path without "..", or what is found below it would be spelled otherwise the second time, and all
# be compiled again.
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH pennywort_root)
set(PENNYWORT_WINDOWS_DEPS ${pennywort_root}/build/mingw-deps CACHE PATH
  "The folder that scripts/build-windows-deps fills")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PENNYWORT_WINDOWS_DEPS)
set(CMAKE_FIND_ROOT_PATH ${PENNYWORT_WINDOWS_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The folder with our files runs anywhere: of the compiler's own libraries nothing is left to be found.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/run-windows)
