# Cross-builds bftdtest.exe for 64-bit Windows on Linux with MinGW-w64
# (Debian package g++-mingw-w64-x86-64):
#   cmake -S . -B build-win-x86_64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(BFTDTEST_MINGW_TRIPLET x86_64-w64-mingw32)

include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
