// The library sweep of `/changer`: after setup and the report header, the
// library's inventory, then every chosen cartridge in turn moved into the
// tested drive by the medium changer, tested as the classic run tests one
// cartridge, and moved back to its slot; the summary table, and a last look
// that every cartridge is home. Main thread only, apart from
// write_sweep_break_line.
#pragma once

#include <string>
#include <vector>

// Runs the sweep. Returns the exit code (0 or 1) and fills `reasons` as
// run_program judges a classic run: with 1, why the sweep failed (a
// cartridge failed as a classic run fails, or the sweep stopped); with 0,
// why it must not count as a pass (`/strict`).
int run_library_sweep(double asked_megabytes, std::vector<std::string>* reasons);

// For the CTRL-C handler, with the output sealed: writes the line prepared
// for this moment of the sweep, which says where the cartridge under test is
// left, to the screen and the output file. No formatting, no allocation;
// nothing outside a sweep.
void write_sweep_break_line();

// Forgets the last sweep (tests run several in one process).
void reset_library_sweep();
