#include "vtape/library_store.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "console/log_output.h"
#include "os/os.h"
#include "vtape/backing_file.h"
#include "vtape/library_state.h"

namespace {

constexpr char kInventoryMagic[] = "BFTDTEST VIRTUAL LIBRARY 1";

std::string file_in(const char* dir, const std::string& name) { return std::string(dir) + "/" + name; }

std::string cartridge_path(const char* dir, const char* barcode) {
  return file_in(dir, std::string(barcode) + ".vtape");
}

// Renames the finished "<path>.new" over `path`. 0, or -1 after the error line.
int replace_with_new(const std::string& path) {
  const std::string fresh = path + ".new";
  if (os_replace_file(fresh.c_str(), path.c_str()) == 0) return 0;
  error_printf("ERROR: unable to replace \"%s\" with \"%s\"\n", path.c_str(), fresh.c_str());
  std::remove(fresh.c_str());
  return -1;
}

struct InventoryLine {
  unsigned address;
  char barcode[kBarcodeCapacity];
  unsigned faults;
  char source[8];
};

int inventory_error(const std::string& path, unsigned line, const char* problem) {
  error_printf("ERROR: virtual library inventory \"%s\" line %u: %s\n", path.c_str(), line, problem);
  return -1;
}

// Reads the inventory into `library`'s elements and cartridges. 0, 1 when
// there is none yet, -1 after the error line (the library is unchanged).
int read_inventory(VirtualLibrary* library) {
  const LibraryDescription& d = library->description;
  const std::string path = file_in(d.library_dir, "inventory");
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    if (errno == ENOENT) return 1;
    error_printf("ERROR: unable to open virtual library inventory \"%s\": %s\n", path.c_str(), std::strerror(errno));
    return -1;
  }
  std::vector<Element> elements = library->elements;
  for (Element& element : elements) element.cartridge = -1;
  std::vector<LibraryCartridge> cartridges;
  std::map<std::string, unsigned> barcodes;
  char text[160];
  unsigned number = 0;
  int result = 0;
  unsigned import_export = 0, drives = 0, slots = 0;
  while (result == 0 && std::fgets(text, sizeof text, file) != nullptr) {
    ++number;
    if (number == 1) {
      if (std::strncmp(text, kInventoryMagic, sizeof kInventoryMagic - 1) != 0) {
        result = inventory_error(path, number, "not a virtual library inventory");
      }
      continue;
    }
    if (number == 2) {
      if (std::sscanf(text, "elements %u %u %u", &import_export, &drives, &slots) != 3 ||
          import_export != d.import_export || drives != d.drives || slots != d.slots) {
        char problem[160];
        std::snprintf(problem, sizeof problem,
                      "the library there is not the described one (import_export %u, drives %u, slots %u)",
                      d.import_export, d.drives, d.slots);
        result = inventory_error(path, number, problem);
      }
      continue;
    }
    InventoryLine line{};
    if (std::sscanf(text, "%x %32s %x %7s", &line.address, line.barcode, &line.faults, line.source) != 4 ||
        line.faults > 7) {
      result = inventory_error(path, number, "expected: element barcode faults source");
      continue;
    }
    const Element* described =
        line.address <= 0xFFFF ? find_element(library, static_cast<uint16_t>(line.address)) : nullptr;
    Element* element =
        described != nullptr ? &elements[static_cast<size_t>(described - library->elements.data())] : nullptr;
    unsigned source = 0;
    const bool has_source = std::strcmp(line.source, "----") != 0;
    if (element == nullptr || element->type == ElementType::transport || element->cartridge >= 0 ||
        (has_source && std::sscanf(line.source, "%x", &source) != 1) ||
        !barcodes.emplace(line.barcode, number).second) {
      result = inventory_error(path, number, "an element that does not exist or is taken twice, or a barcode twice");
      continue;
    }
    LibraryCartridge& cartridge = cartridges.emplace_back();
    std::snprintf(cartridge.barcode, sizeof cartridge.barcode, "%s", line.barcode);
    cartridge.faults = static_cast<uint8_t>(line.faults);
    cartridge.source_valid = has_source;
    cartridge.source = static_cast<uint16_t>(source);
    element->cartridge = static_cast<int32_t>(cartridges.size() - 1);
  }
  std::fclose(file);
  if (result == 0 && number < 2) result = inventory_error(path, number, "the file ends early");
  if (result != 0) return -1;
  // The tapes of cartridges outside the drives live in their files.
  library->elements = std::move(elements);
  library->cartridges = std::move(cartridges);
  library->inventory_changed = false;
  return 0;
}

// Reads the inventory and brings each drive in step with it: a drive that
// now holds another cartridge saves the tape it changed and takes the new
// one as if it had just been inserted.
int read_inventory_and_drives(VirtualLibrary* library) {
  std::vector<std::string> held(library->description.drives);
  for (unsigned i = 0; i < held.size(); ++i) {
    const Element& element = drive_element(library, i);
    if (element.cartridge >= 0) held[i] = library->cartridges[static_cast<size_t>(element.cartridge)].barcode;
  }
  const int read = read_inventory(library);
  if (read != 0) return read;
  for (unsigned i = 0; i < held.size(); ++i) {
    const Element& element = drive_element(library, i);
    const std::string now =
        element.cartridge >= 0 ? library->cartridges[static_cast<size_t>(element.cartridge)].barcode : "";
    if (now == held[i]) continue;
    VirtualDrive& drive = virtual_drive_at(i);
    if (!held[i].empty() && !drive.tape_in_file && drive.modified) {
      save_cartridge_file(library->description.library_dir, held[i].c_str(), drive.cartridge);
    }
    erase_cartridge(&drive.cartridge);
    drive.medium = MediumState::absent;
    drive.medium_faults = 0;
    drive.tape_in_file = false;
    drive.modified = false;
    if (element.cartridge >= 0) insert_into_drive(library, i, element.cartridge);
  }
  return 0;
}

}  // namespace

int load_cartridge_file(const char* dir, const char* barcode, Cartridge* tape) {
  return load_backing_file(cartridge_path(dir, barcode).c_str(), tape);
}

int save_cartridge_file(const char* dir, const char* barcode, const Cartridge& tape, bool quiet) {
  return save_backing_file(cartridge_path(dir, barcode).c_str(), tape, quiet);
}

int write_inventory(VirtualLibrary* library) {
  const LibraryDescription& d = library->description;
  const std::string path = file_in(d.library_dir, "inventory");
  FILE* file = std::fopen((path + ".new").c_str(), "wb");
  if (file == nullptr) {
    error_printf("ERROR: unable to write virtual library inventory \"%s.new\": %s\n", path.c_str(),
                 std::strerror(errno));
    return -1;
  }
  bool ok = std::fprintf(file, "%s\nelements %u %u %u\n", kInventoryMagic, d.import_export, d.drives, d.slots) > 0;
  for (const Element& element : library->elements) {
    if (element.cartridge < 0) continue;
    const LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(element.cartridge)];
    char source[8] = "----";
    if (cartridge.source_valid) std::snprintf(source, sizeof source, "%04X", cartridge.source);
    ok = ok &&
         std::fprintf(file, "%04X %s %02X %s\n", element.address, cartridge.barcode, cartridge.faults, source) > 0;
  }
  ok = std::fclose(file) == 0 && ok;
  if (!ok) {
    error_printf("ERROR: unable to write virtual library inventory \"%s.new\"\n", path.c_str());
    return -1;
  }
  if (replace_with_new(path) != 0) return -1;
  library->inventory_changed = false;
  return 0;
}

int open_library_directory(VirtualLibrary* library) {
  const char* dir = library->description.library_dir;
  if (os_make_directory(dir) != 0) {
    error_printf("ERROR: unable to create virtual library directory \"%s\"\n", dir);
    return -1;
  }
  intptr_t lock = 0;
  const int locked = os_try_lock_file(file_in(dir, "changer.lock").c_str(), &lock);
  if (locked < 0) {
    error_printf("ERROR: unable to open the lock file of virtual library directory \"%s\"\n", dir);
    return -1;
  }
  int result = read_inventory_and_drives(library);
  // A new directory gets the described library; only the lock's holder writes it.
  if (result == 1) result = locked == 0 ? write_inventory(library) : 0;
  if (locked == 0) os_unlock_file(lock);
  // Whatever the drives hold, they were loaded before power-on.
  for (unsigned i = 0; i < library->description.drives; ++i) {
    VirtualDrive& drive = virtual_drive_at(i);
    drive.unit_attention_asc = 0x29;
    drive.unit_attention_ascq = 0x00;
    drive.not_ready_polls_left = 0;
  }
  return result;
}

int take_changer_lock(VirtualLibrary* library, intptr_t* lock) {
  const char* dir = library->description.library_dir;
  const int locked = os_try_lock_file(file_in(dir, "changer.lock").c_str(), lock);
  if (locked < 0) error_printf("ERROR: unable to open the lock file of virtual library directory \"%s\"\n", dir);
  if (locked != 0) return locked;
  int result = read_inventory_and_drives(library);
  if (result == 1) result = write_inventory(library);  // the directory was emptied meanwhile
  if (result == 0) return 0;
  os_unlock_file(*lock);
  return -1;
}

void release_changer_lock(VirtualLibrary* library, intptr_t lock) {
  if (library->inventory_changed) write_inventory(library);
  os_unlock_file(lock);
}

void bring_in_tape(VirtualLibrary* library, unsigned index) {
  VirtualDrive& drive = virtual_drive_at(index);
  if (!drive.tape_in_file || (drive.medium_faults & kCartridgeUnloadable) != 0) return;
  const Element& element = drive_element(library, index);
  if (element.cartridge < 0) return;
  const LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(element.cartridge)];
  if (load_cartridge_file(library->description.library_dir, cartridge.barcode, &drive.cartridge) != 0) {
    drive.medium_faults |= kCartridgeUnloadable;  // its file stays as it is
    return;
  }
  drive.tape_in_file = false;
}

int save_drive_tapes(VirtualLibrary* library, bool quiet) {
  int result = 0;
  for (unsigned i = 0; i < library->description.drives; ++i) {
    VirtualDrive& drive = virtual_drive_at(i);
    const Element& element = drive_element(library, i);
    if (element.cartridge < 0 || drive.tape_in_file || !drive.modified) continue;
    const LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(element.cartridge)];
    if (save_cartridge_file(library->description.library_dir, cartridge.barcode, drive.cartridge, quiet) == 0) {
      drive.modified = false;
    } else {
      result = -1;
    }
  }
  return result;
}
