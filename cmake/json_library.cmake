# The results file's JSON library: nlohmann/json, header only (Debian:
# nlohmann-json3-dev). A MinGW cross build searches only the MinGW sysroot,
# where Debian ships no copy; since the library is plain standard C++, the
# build machine's header is used there, from a directory that holds nothing
# else (adding the host's whole /usr/include would mix Linux headers into a
# Windows build). Without the package on the build machine, point
# BFTDTEST_JSON_INCLUDE at any directory that holds nlohmann/json.hpp (for
# example an unpacked json release's single_include/).
find_path(BFTDTEST_JSON_INCLUDE nlohmann/json.hpp)
if(NOT BFTDTEST_JSON_INCLUDE AND CMAKE_CROSSCOMPILING)
  find_path(BFTDTEST_HOST_JSON_INCLUDE nlohmann/json.hpp PATHS /usr/include /usr/local/include
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(BFTDTEST_HOST_JSON_INCLUDE)
    set(BFTDTEST_JSON_INCLUDE ${CMAKE_BINARY_DIR}/host-json-include)
    file(COPY ${BFTDTEST_HOST_JSON_INCLUDE}/nlohmann DESTINATION ${BFTDTEST_JSON_INCLUDE})
  endif()
endif()
if(NOT BFTDTEST_JSON_INCLUDE)
  message(FATAL_ERROR "nlohmann/json.hpp not found: install nlohmann-json3-dev or set BFTDTEST_JSON_INCLUDE")
endif()
# SYSTEM: the library's own code is not held to the program's warning flags.
target_include_directories(bftdtest_lib SYSTEM PUBLIC ${BFTDTEST_JSON_INCLUDE})
message(STATUS "results file: nlohmann/json from ${BFTDTEST_JSON_INCLUDE}")
