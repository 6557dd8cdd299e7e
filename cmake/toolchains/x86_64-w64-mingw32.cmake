# Cross build for 64-bit Windows with Debian's mingw-w64 (posix threads, for std::thread and friends).
#   cmake -S . -B build-windows --toolchain cmake/toolchains/x86_64-w64-mingw32.cmake
# Tests and test discovery run the Windows programs through scripts/wine_run.sh.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KIV_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KIV_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KIV_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KIV_MINGW_TRIPLE}-windres)

# Libraries and headers come from the MinGW sysroot only, never from the build machine; programs (python,
# the code generators) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${KIV_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine_run.sh")
