// The program's spine: options, setup, report header, test, cleanup and the
// exit code; plus the handler of CTRL-C and the other breaks (os.h).
#pragma once

#include <cstdint>

#include "os/os.h"

// Runs the whole program on the process arguments and returns the exit code
// (0 or 1). The thin main() returns it to the system.
int run_program(int argc, char** argv);

int setup_run();
void cleanup_run();
[[noreturn]] void on_break(BreakKind kind);

// Back to the state of a fresh process (tests run the program's pieces in
// one process).
void reset_program_state();
