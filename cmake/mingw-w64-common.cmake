# Shared part of the MinGW-w64 toolchain files; they set CMAKE_SYSTEM_PROCESSOR
# and BFTDTEST_MINGW_TRIPLET before including it.

# The -posix compilers carry the whole C++ thread library (std::mutex and
# friends), as MSVC does; the threading runtime is linked in statically below.
find_program(BFTDTEST_MINGW_CXX NAMES ${BFTDTEST_MINGW_TRIPLET}-g++-posix ${BFTDTEST_MINGW_TRIPLET}-g++
             REQUIRED)
find_program(BFTDTEST_MINGW_CC NAMES ${BFTDTEST_MINGW_TRIPLET}-gcc-posix ${BFTDTEST_MINGW_TRIPLET}-gcc
             REQUIRED)
set(CMAKE_C_COMPILER ${BFTDTEST_MINGW_CC})
set(CMAKE_CXX_COMPILER ${BFTDTEST_MINGW_CXX})
set(CMAKE_RC_COMPILER ${BFTDTEST_MINGW_TRIPLET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${BFTDTEST_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config must answer for Windows libraries only, never with the build
# machine's (a Linux -llz4 would not link into a Windows program).
set(ENV{PKG_CONFIG_LIBDIR} /usr/${BFTDTEST_MINGW_TRIPLET}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# MinGW's own C99 printf family, so "%lu", "%llu", "%zu" and "%f" format as
# they do on Linux (the Microsoft runtime's printf differs in places).
set(CMAKE_C_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")
set(CMAKE_CXX_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")

# A self-contained .exe: libgcc, libstdc++ and winpthread linked in, so it
# needs nothing beyond the DLLs that come with Windows.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# The unit tests run on the build machine; the Windows builds make the program
# only. A -DBFTDTEST_TESTS=ON on the command line still wins.
set(BFTDTEST_TESTS OFF CACHE BOOL "Build the unit and end-to-end tests")
