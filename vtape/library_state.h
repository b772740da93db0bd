// The virtual library as one plain record: its elements in element address
// order, the cartridges, and the changer's own state (pending unit
// attentions, prevention, the move counter). One library exists per
// process (`virtual_library()`); its drives are the virtual drives
// `virtual_drive_at(0..drives-1)`. The platform record serialises every
// command and the close of a handle, so nothing here locks.
//
// Element addresses (SMC-3 lets a library choose them; these are chosen so
// that slot numbers, drive numbers and addresses never coincide):
//   medium transport      0001h
//   import/export         0010h, 0011h, ...
//   data transfer         0100h (the drive at SCSI id 2), 0101h (id 3), ...
//   storage               1000h (slot 1), 1001h (slot 2), ...
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "vtape/cartridge.h"
#include "vtape/drive_state.h"
#include "vtape/library_description.h"

constexpr uint16_t kTransportAddress = 0x0001;
constexpr uint16_t kFirstImportExportAddress = 0x0010;
constexpr uint16_t kFirstDriveAddress = 0x0100;
constexpr uint16_t kFirstSlotAddress = 0x1000;

// SMC element type codes.
enum class ElementType : uint8_t { transport = 1, storage = 2, import_export = 3, data_transfer = 4 };

struct LibraryCartridge {
  char barcode[kBarcodeCapacity];
  uint8_t faults;         // kCartridgeCleaning, ...Damaged, ...Unloadable
  bool source_valid;      // it has been moved from a storage or import/export element
  uint16_t source;        // ... and this was the last one
  Cartridge data;         // its tape while it is in no drive (no library_dir)
};

struct Element {
  uint16_t address;
  ElementType type;
  bool valid;          // false until Initialize Element Status (inventory_valid = no)
  int32_t cartridge;   // index into `cartridges`; -1 when empty
};

constexpr unsigned kMaxPendingAttentions = 2;

struct VirtualLibrary {
  LibraryDescription description;
  std::vector<Element> elements;  // address order: transport, import/export, drives, slots
  std::vector<LibraryCartridge> cartridges;
  uint8_t attention_asc[kMaxPendingAttentions];  // pending unit attentions, oldest first
  uint8_t attention_ascq[kMaxPendingAttentions];
  uint8_t attention_count;
  bool removal_prevented;  // Prevent Medium Removal sent to the changer
  uint64_t moves;          // moves the picker attempted (for move_fails_at)
  bool inventory_changed;  // since the inventory was read from or written to library_dir
  // One copy of each distinct unit of the cartridges outside the drives
  // (without library_dir), by a hash of its bytes: a sweep that writes the
  // same data on every cartridge keeps it once.
  std::unordered_multimap<uint64_t, std::weak_ptr<const std::vector<uint8_t>>> units;
};

// The process's one library (empty, slots 0, when there is none).
VirtualLibrary& virtual_library();
bool library_present();

// Builds the library of `library` (slots > 0) in its power-on state and
// powers on its drives with `drive`'s description, each with its own serial
// number: the slots as initial_slot_contents fills them, the first
// loaded_drives full slots' cartridges in the first drives, unit attention
// 29/00 (and 28/00 with inventory_valid = no) pending at the changer.
// Without a library it forgets any earlier one. The description must have
// passed check_library_description.
void power_on_library(const LibraryDescription& library, const VtapeDescription& drive);

// The element at `address`, or nullptr.
Element* find_element(VirtualLibrary* library, uint16_t address);
// The drive behind a data transfer element.
unsigned drive_index(const Element& element);
// The element of drive `index`.
Element& drive_element(VirtualLibrary* library, unsigned index);

// Puts cartridge `index` into drive `drive` as an operator's or the picker's
// insertion does: the drive threads it (unit attention 28/00, then
// not_ready_polls NOT READY answers) and the cartridge's faults apply. With
// library_dir its tape is read from its file (a file that cannot be read
// leaves a cartridge that never becomes ready, after the error line).
void insert_into_drive(VirtualLibrary* library, unsigned drive, int32_t index);
// Takes cartridge `index` out of drive `drive`, with its tape. With
// library_dir the tape is first saved to its file. 0, or -1 after the error
// line when it could not be saved (the cartridge then stays in the drive).
int take_from_drive(VirtualLibrary* library, unsigned drive, int32_t index);

// The library's unit attentions, oldest first.
void queue_attention(VirtualLibrary* library, uint8_t asc, uint8_t ascq);
bool pop_attention(VirtualLibrary* library, uint8_t* asc, uint8_t* ascq);
