// The transport's start and shutdown: the top of transport/, the only file
// that ties the command buffers, the device table and the executor together.
#pragma once

#include "os/os.h"

// Allocates the command buffers, scans the devices and installs `on_break`
// for CTRL-C and the other breaks of os.h. 0 or -1.
int start_transport(void (*on_break)(BreakKind));
// Closes every open handle, restores default CTRL-C handling, frees the
// command buffers, closes the log file and shows the cursor.
void shutdown_transport();
