// Keeps the virtual cartridge in a file between runs (`backing_file`), in
// the cartridge's own compact form: each run's unit once with its repeat
// count, so a tape of repeated records takes the space of a few records.
//
// Threads: either function on one thread at a time; the save may run on the
// break thread (see virtual_drive.cc for how the cartridge is kept still).
#pragma once

#include "vtape/cartridge.h"

// Reads the cartridge saved at `path` (the position at the beginning of
// tape). A missing file gives a blank tape. 0, or -1 after an "ERROR: ..."
// line on the error stream when the file cannot be read or is damaged; a
// file whose headers claim more data than it holds is refused before any of
// that data is allocated.
int load_backing_file(const char* path, Cartridge* cartridge);

// Writes the cartridge to `path` whole or not at all: into "<path>.new",
// through to the disk, then renamed over `path`, so that a save cut short
// (a full disk, a crash) leaves the cartridge saved before. 0, or -1 with
// "<path>.new" removed, after an "ERROR: ..." line on the error stream
// unless `quiet` (the break handler, which holds the output lock, writes
// its own).
int save_backing_file(const char* path, const Cartridge& cartridge, bool quiet);
