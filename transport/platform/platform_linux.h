// Test seams of the Linux platform (SCSI generic driver, SG_IO).
//
// The platform reads sysfs below a root directory ("/" in a real run; tests
// point it at a fake tree in a temporary directory) and reaches device nodes
// through a record of system calls (the real ones in a run; tests record what
// would reach the kernel and answer with check conditions, residues, host
// errors or errno values). Device nodes are looked for below the same root,
// so a test tree's "dev/sg1" stands for /dev/sg1.
//
// Single-threaded like the rest of the transport.
#pragma once

#include <cstddef>

struct LinuxSystem {
  // Like open(2), close(2) and ioctl(2): -1 with errno set on failure.
  int (*open)(const char* path, int flags);
  int (*close)(int fd);
  int (*ioctl)(int fd, unsigned long request, void* argument);
  // Writes the name of the group that owns the node `path` into `name` and
  // returns true; false when the node or its group cannot be looked up.
  bool (*node_group)(const char* path, char* name, size_t size);
};

// The calls that a real run makes.
const LinuxSystem& real_linux_system();

// Chooses the system calls (nullptr: the real ones) and the root directory
// below which /sys and /dev are looked for (nullptr or "": "/").
void set_linux_system(const LinuxSystem* system);
void set_linux_root(const char* root);

// Closes every handle the platform holds, forgets the operator note of the
// last failed open, and goes back to the real system calls and root "/".
void reset_linux_platform();
