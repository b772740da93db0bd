// Shared set-up of the libFuzzer targets: a scratch directory of their own as
// the current directory (the program reads "bftdtest.dsc" and `/cfg` files
// from there and must never touch the directory the fuzzer was started in),
// the screen and error streams sent to a sink, and small helpers for turning
// fuzz bytes into the program's inputs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Once per process: makes a fresh temporary directory the current directory
// and sends the screen and error streams to /dev/null. Safe to call on every
// input; only the first call does anything.
void fuzz_prepare();

// Writes `size` bytes exactly to `name` in the current directory; aborts when
// the file cannot be written (the fuzz run would be meaningless).
void fuzz_write_file(const char* name, const uint8_t* data, size_t size);

// Splits `data` at every `separator` into texts (none of them holds the
// separator; an empty piece is an empty text), at most `limit` of them.
std::vector<std::string> fuzz_split(const uint8_t* data, size_t size, char separator,
                                    size_t limit);

// Defined here for every target: makes the paths on the fuzzer's command line
// absolute, then calls fuzz_prepare().
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

// Stops the fuzzer with a message when an invariant of the program is broken.
void fuzz_check(bool condition, const char* what);
