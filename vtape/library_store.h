// The virtual library's directory (`library_dir`), which keeps the library
// across runs and lets several processes share it:
//   <barcode>.vtape  each cartridge's tape, in the backing file's format
//   inventory        which cartridge is in which element, with its faults
//                    and source element (a text file, one line a cartridge)
//   changer.lock     the changer's lock: a process holds it from its first
//                    changer command after opening the adapter until it
//                    closes the adapter handle; others get "in use"
// Files are written as "<name>.new" and renamed over the old one, so another
// process reads the old file or the new one, never a part of one.
//
// Single-threaded like the rest of the library: the platform record
// serialises the calls.
#pragma once

#include <cstdint>

#include "vtape/cartridge.h"

struct VirtualLibrary;

// A cartridge's tape from `dir` (a missing file is a blank tape). 0, or -1
// after the error line.
int load_cartridge_file(const char* dir, const char* barcode, Cartridge* tape);
// Writes a cartridge's tape to `dir`, whole or not at all (see
// save_backing_file). 0, or -1 after the error line unless `quiet`.
int save_cartridge_file(const char* dir, const char* barcode, const Cartridge& tape, bool quiet = false);

// At start: creates the directory when it is missing, reads the inventory
// there (a library new to the directory writes its own, under the changer's
// lock when it is free) and puts the drives in step with it. 0, or -1 after
// an "ERROR: ..." line.
int open_library_directory(VirtualLibrary* library);

// Takes the changer's lock and reads the inventory that another process may
// have changed. 0 with `lock` set, 1 when another process holds it, -1
// after an error line (the lock is not held then).
int take_changer_lock(VirtualLibrary* library, intptr_t* lock);
// Writes the inventory when it changed, then releases the lock.
void release_changer_lock(VirtualLibrary* library, intptr_t lock);
// Writes the inventory now. 0, or -1 after the error line.
int write_inventory(VirtualLibrary* library);

// Reads the tape of the cartridge in drive `index` when it still waits in
// its file; a file that cannot be read makes the cartridge one the drive
// cannot use (NOT READY 30/00), after the error line.
void bring_in_tape(VirtualLibrary* library, unsigned index);
// Saves the tapes that the drives changed since they were read. 0, or -1
// when one could not be saved (after its error line unless `quiet`).
int save_drive_tapes(VirtualLibrary* library, bool quiet);
