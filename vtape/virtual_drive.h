// The built-in virtual tape drive: a sequential-access device model that
// answers the transport's pass-through requests like a real drive, selected
// with `/vtape [file]`; with `slots` in the description, a tape library of
// such drives behind a medium changer (docs/virtual-library.md).
#pragma once

#include "transport/platform/platform.h"

// Reads the drive's description file (null or empty: the defaults) and
// prepares a fresh drive, or a fresh library with its drives (reading its
// library_dir). 0, or -1 after a message naming the file, the line and the
// key, or the directory's problem.
int vtape_configure(const char* description_file);

// The platform record through which the transport reaches the drive.
const Platform* vtape_platform();

// The description's backing file, or an empty text when the cartridge lives
// in memory only.
const char* vtape_backing_file();

// Saves the cartridge into the backing file (or the library's tapes into
// its directory) when it changed (see save_backing_file). Main thread, after
// the test; closes after it save nothing more. 0, or -1 after its message.
int vtape_save();

// For the break handler, which holds the output lock for good: has a
// command in flight cut its waits short, takes the drive for good (a
// command started later never runs), and saves the cartridge. When it
// cannot, it writes a line prepared at vtape_configure to the error stream,
// without the lock.
void vtape_save_on_break();
