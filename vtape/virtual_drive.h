// The built-in virtual tape drive: a sequential-access device model that
// answers the transport's pass-through requests like a real drive, selected
// with `/vtape [file]`.
#pragma once

#include "transport/platform/platform.h"

// Reads the drive's description file (null or empty: the defaults) and
// prepares a fresh drive. 0, or -1 after a message naming the file, the line
// and the key.
int vtape_configure(const char* description_file);

// The platform record through which the transport reaches the drive.
const Platform* vtape_platform();
