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
