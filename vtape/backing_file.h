// Keeps the virtual cartridge in a file between runs (`backing_file`), in
// the cartridge's own compact form: each run's unit once with its repeat
// count, so a tape of repeated records takes the space of a few records.
#pragma once

#include "vtape/cartridge.h"

// Reads the cartridge saved at `path` (the position at the beginning of
// tape). A missing file gives a blank tape. 0, or -1 after an "ERROR: ..."
// line on the error stream when the file cannot be read or is damaged.
int load_backing_file(const char* path, Cartridge* cartridge);

// Writes the cartridge to `path`. 0, or -1 after its error line.
int save_backing_file(const char* path, const Cartridge& cartridge);
