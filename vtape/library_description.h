// The virtual library's description: the keys of the drive's description
// file that turn the virtual drive into a tape library (slots, drives, an
// import/export station, barcodes, the changer's address and its faults).
// One plain record, filled by the description reader, read once when the
// library is built. `slots = 0` (the default) is no library at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vtape/description_values.h"

constexpr unsigned kMaxLibrarySlots = 10000;
constexpr unsigned kMaxLibraryDrives = 14;   // SCSI ids 2 to 15
constexpr unsigned kMaxImportExport = 240;   // element addresses 10h to FFh
constexpr unsigned kFirstDriveId = 2;
constexpr unsigned kBarcodeCapacity = 33;    // the 32 characters of a volume identifier
constexpr unsigned kLibraryDirCapacity = 256;

// Faults that a cartridge carries wherever it goes.
constexpr uint8_t kCartridgeCleaning = 0x01;
constexpr uint8_t kCartridgeDamaged = 0x02;     // 5th Read(6) after each load: one wrong byte
constexpr uint8_t kCartridgeUnloadable = 0x04;  // never becomes ready (NOT READY 30/00)

struct LibraryDescription {
  uint32_t slots;  // 0: no library
  uint8_t changer_tid;
  uint8_t changer_lun;
  uint8_t drives;
  uint8_t import_export;
  uint8_t loaded_drives;  // the first N drives start with the first N full slots' cartridges
  bool dvcid;             // Read Element Status with DVCID returns the drives' identifiers
  bool inventory_valid;   // no: UNIT ATTENTION 28/00, elements not valid until initialised
  uint64_t move_fails_at;        // 0: never; else the Nth move of the run fails
  uint32_t changer_held_polls;   // the first N changer commands after each open: in use
  char library_dir[kLibraryDirCapacity];  // empty: cartridges live in memory only
  // `barcodes`: explicit entries slot by slot ("" an empty slot), then
  // optionally a counting barcode that fills every slot after them.
  std::vector<std::string> barcode_entries;
  std::string counting_barcode;  // "" when the list ends without "X+"
  bool barcodes_given;
  std::vector<uint32_t> cleaning_slots;  // 1-based slot numbers
  std::vector<uint32_t> damaged_slots;
  std::vector<uint32_t> unloadable_slots;
  char first_library_key[32];  // the first library key read, for "needs slots"
};

// What a slot holds when the library is new: a barcode ("" for an empty
// slot) and the cartridge's faults.
struct SlotContent {
  char barcode[kBarcodeCapacity];
  uint8_t faults;
};

void default_library_description(LibraryDescription* library);

// Applies one key if it is one of the library's. 0, -1 after the "bad
// value" line, or 1 when `at.key` is not a library key.
int apply_library_key(const LineContext& at, const char* value, LibraryDescription* library);

// The slots of a new library, slot 1 first: barcodes from the list and the
// counter, cleaning cartridges CLN001L1, CLN002L1, ... in the cleaning
// slots, the faults of the fault lists. 0, or -1 with the reason in
// `problem` (a barcode counter running out of digits, a duplicate barcode,
// more entries than slots, a fault slot that is empty or past the last).
int initial_slot_contents(const LibraryDescription& library, std::vector<SlotContent>* contents,
                          char* problem, size_t problem_size);

// Checks what the library keys say together and with the drive's keys
// (`serial`, `backing_file`). 0, or -1 after an "ERROR: ..." line naming
// the file.
int check_library_description(const char* path, const LibraryDescription& library,
                              bool drive_serial_set, bool backing_file_set);
