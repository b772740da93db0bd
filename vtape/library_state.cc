#include "vtape/library_state.h"

#include <cstdio>
#include <utility>

#include "vtape/library_store.h"

VirtualLibrary& virtual_library() {
  static VirtualLibrary library;
  return library;
}

bool library_present() { return virtual_library().description.slots > 0; }

namespace {

Element make_element(uint16_t address, ElementType type, bool valid) { return Element{address, type, valid, -1}; }

// A drive of the library powered on, empty, with its own serial number.
void power_on_library_drive(unsigned index, const VtapeDescription& description) {
  VtapeDescription own = description;
  own.medium_present = false;
  if (own.serial[0] != '\0') std::snprintf(own.serial, sizeof own.serial, "VT%08u", index + 1);
  power_on_drive(&virtual_drive_at(index), own);
}

// FNV-1a over the unit's bytes.
uint64_t unit_hash(const std::vector<uint8_t>& bytes) {
  uint64_t hash = 0xCBF29CE484222325ull;
  for (uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3ull;
  return hash;
}

// Replaces `bytes` by the library's copy of the same unit, or makes it that copy.
void share_unit(VirtualLibrary* library, UnitBytes* bytes) {
  const uint64_t hash = unit_hash(**bytes);
  auto [at, end] = library->units.equal_range(hash);
  while (at != end) {
    UnitBytes held = at->second.lock();
    if (held == nullptr) {
      at = library->units.erase(at);  // no cartridge holds it any more
    } else if (*held == **bytes) {
      *bytes = held;
      return;
    } else {
      ++at;
    }
  }
  library->units.emplace(hash, *bytes);
}

}  // namespace

void power_on_library(const LibraryDescription& description, const VtapeDescription& drive) {
  VirtualLibrary& library = virtual_library();
  library = VirtualLibrary{};
  library.description = description;
  if (description.slots == 0) return;
  std::vector<SlotContent> contents;
  char problem[160];
  if (initial_slot_contents(description, &contents, problem, sizeof problem) != 0) {
    contents.assign(description.slots, {});  // checked when the description was read
  }

  const bool valid = description.inventory_valid;
  library.elements.reserve(1u + description.import_export + description.drives + description.slots);
  library.elements.push_back(make_element(kTransportAddress, ElementType::transport, true));
  for (unsigned i = 0; i < description.import_export; ++i) {
    library.elements.push_back(make_element(static_cast<uint16_t>(kFirstImportExportAddress + i),
                                            ElementType::import_export, valid));
  }
  for (unsigned i = 0; i < description.drives; ++i) {
    library.elements.push_back(make_element(static_cast<uint16_t>(kFirstDriveAddress + i),
                                            ElementType::data_transfer, true));
    power_on_library_drive(i, drive);
  }
  for (uint32_t slot = 0; slot < description.slots; ++slot) {
    Element element = make_element(static_cast<uint16_t>(kFirstSlotAddress + slot), ElementType::storage, valid);
    if (contents[slot].barcode[0] != '\0') {
      LibraryCartridge& cartridge = library.cartridges.emplace_back();
      std::snprintf(cartridge.barcode, sizeof cartridge.barcode, "%s", contents[slot].barcode);
      cartridge.faults = contents[slot].faults;
      element.cartridge = static_cast<int32_t>(library.cartridges.size() - 1);
    }
    library.elements.push_back(element);
  }
  // The operator's loads: the first full slots' cartridges in the first drives.
  unsigned loaded = 0;
  for (Element& element : library.elements) {
    if (loaded == description.loaded_drives) break;
    if (element.type != ElementType::storage || element.cartridge < 0) continue;
    LibraryCartridge& cartridge = library.cartridges[static_cast<size_t>(element.cartridge)];
    cartridge.source_valid = true;
    cartridge.source = element.address;
    insert_into_drive(&library, loaded, element.cartridge);
    VirtualDrive& held = virtual_drive_at(loaded);
    held.unit_attention_asc = 0x29;  // loaded before power-on: only the power-on attention
    held.not_ready_polls_left = 0;
    element.cartridge = -1;
    ++loaded;
  }
  queue_attention(&library, 0x29, 0x00);  // POWER ON, RESET, OR BUS DEVICE RESET OCCURRED
  if (!valid) queue_attention(&library, 0x28, 0x00);  // NOT READY TO READY CHANGE, MEDIUM MAY HAVE CHANGED
  library.inventory_changed = true;
}

Element* find_element(VirtualLibrary* library, uint16_t address) {
  const LibraryDescription& d = library->description;
  size_t index = 0;
  if (address == kTransportAddress) {
    index = 0;
  } else if (address >= kFirstImportExportAddress && address < kFirstImportExportAddress + d.import_export) {
    index = 1u + (address - kFirstImportExportAddress);
  } else if (address >= kFirstDriveAddress && address < kFirstDriveAddress + d.drives) {
    index = 1u + d.import_export + (address - kFirstDriveAddress);
  } else if (address >= kFirstSlotAddress && address < kFirstSlotAddress + d.slots) {
    index = 1u + d.import_export + d.drives + (address - kFirstSlotAddress);
  } else {
    return nullptr;
  }
  return index < library->elements.size() ? &library->elements[index] : nullptr;
}

unsigned drive_index(const Element& element) { return element.address - kFirstDriveAddress; }

Element& drive_element(VirtualLibrary* library, unsigned index) {
  return library->elements[1u + library->description.import_export + index];
}

void insert_into_drive(VirtualLibrary* library, unsigned index, int32_t cartridge_index) {
  VirtualDrive& drive = virtual_drive_at(index);
  LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(cartridge_index)];
  drive_element(library, index).cartridge = cartridge_index;
  if (library->description.library_dir[0] != '\0') {
    erase_cartridge(&drive.cartridge);
    drive.tape_in_file = true;  // read before the drive first uses it
  } else {
    drive.cartridge = std::move(cartridge.data);
    erase_cartridge(&cartridge.data);
    drive.tape_in_file = false;
  }
  drive.medium_faults = cartridge.faults & (kCartridgeDamaged | kCartridgeUnloadable);
  drive.modified = false;
  load_cartridge(&drive);
}

int take_from_drive(VirtualLibrary* library, unsigned index, int32_t cartridge_index) {
  VirtualDrive& drive = virtual_drive_at(index);
  LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(cartridge_index)];
  if (library->description.library_dir[0] != '\0') {
    if (!drive.tape_in_file && drive.modified &&
        save_cartridge_file(library->description.library_dir, cartridge.barcode, drive.cartridge) != 0) {
      return -1;
    }
    erase_cartridge(&drive.cartridge);
  } else {
    cartridge.data = std::move(drive.cartridge);
    erase_cartridge(&drive.cartridge);
    for (TapeRun& run : cartridge.data.runs) {
      if (run.data != nullptr) share_unit(library, &run.data);
    }
  }
  drive_element(library, index).cartridge = -1;
  drive.medium = MediumState::absent;
  drive.medium_faults = 0;
  drive.tape_in_file = false;
  drive.modified = false;
  drive.not_ready_polls_left = 0;
  return 0;
}

void queue_attention(VirtualLibrary* library, uint8_t asc, uint8_t ascq) {
  if (library->attention_count == kMaxPendingAttentions) return;
  library->attention_asc[library->attention_count] = asc;
  library->attention_ascq[library->attention_count] = ascq;
  ++library->attention_count;
}

bool pop_attention(VirtualLibrary* library, uint8_t* asc, uint8_t* ascq) {
  if (library->attention_count == 0) return false;
  *asc = library->attention_asc[0];
  *ascq = library->attention_ascq[0];
  for (unsigned i = 1; i < library->attention_count; ++i) {
    library->attention_asc[i - 1] = library->attention_asc[i];
    library->attention_ascq[i - 1] = library->attention_ascq[i];
  }
  --library->attention_count;
  return true;
}
