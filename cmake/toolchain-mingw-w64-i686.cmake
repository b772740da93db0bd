# Cross-builds bftdtest.exe for 32-bit Windows on Linux with MinGW-w64
# (Debian package g++-mingw-w64-i686):
#   cmake -S . -B build-win-i686 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-w64-i686.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(BFTDTEST_MINGW_TRIPLET i686-w64-mingw32)

include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
