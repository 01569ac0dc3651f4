# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 toolchain, POSIX threads variant
# (package g++-mingw-w64-x86-64-posix). The runtime is linked statically, so the program and the
# libraries run with no MinGW DLL beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(NW_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${NW_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${NW_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${NW_MINGW_TRIPLE}-windres)

# Libraries, headers and packages come from the target's sysroot only; build tools from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${NW_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(NW_MINGW_STATIC_RUNTIME "-static -static-libgcc -static-libstdc++")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${NW_MINGW_STATIC_RUNTIME}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${NW_MINGW_STATIC_RUNTIME}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${NW_MINGW_STATIC_RUNTIME}")

# Built programs (tests included) run under Wine when its 64-bit loader is installed.
find_program(NW_WINE64 NAMES wine64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
if(NW_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${NW_WINE64})
endif()
