#include "vtape/library_description.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "console/log_output.h"
#include "vtape/description.h"

void default_library_description(LibraryDescription* d) {
  *d = LibraryDescription{};
  d->changer_tid = 1;
  d->changer_lun = 0;
  d->drives = 1;
  d->dvcid = true;
  d->inventory_valid = true;
}

namespace {

// SMC volume identifiers: upper-case letters, digits and the underscore.
bool valid_barcode(const char* text, size_t length) {
  if (length == 0 || length >= kBarcodeCapacity) return false;
  for (size_t i = 0; i < length; ++i) {
    const char c = text[i];
    if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
  }
  return true;
}

const char kBarcodeExpected[] =
    "barcodes of 1 to 32 characters A-Z, 0-9 and _, separated by commas; the last one may end in + "
    "to count up its first run of up to 9 digits";

// One `barcodes` line: its entries go after those of earlier lines.
int barcode_list(const LineContext& at, const char* value, LibraryDescription* d) {
  if (!d->counting_barcode.empty()) return bad_value(at, value, "no barcodes after a counting barcode (X+)");
  const char* entry = value;
  for (;;) {
    const char* comma = std::strchr(entry, ',');
    const char* end = comma != nullptr ? comma : entry + std::strlen(entry);
    while (entry < end && (*entry == ' ' || *entry == '\t')) ++entry;
    const char* last = end;
    while (last > entry && (last[-1] == ' ' || last[-1] == '\t')) --last;
    size_t length = static_cast<size_t>(last - entry);
    const bool counting = length > 0 && entry[length - 1] == '+';
    if (counting) {
      --length;
      // The counter: the first run of digits, at most 9 of them.
      const char* digits = std::find_if(entry, entry + length, [](char c) { return c >= '0' && c <= '9'; });
      const char* after = std::find_if(digits, entry + length, [](char c) { return c < '0' || c > '9'; });
      if (comma != nullptr || digits == entry + length || after - digits > 9) {
        return bad_value(at, value, kBarcodeExpected);
      }
    }
    if (length > 0 && !valid_barcode(entry, length)) return bad_value(at, value, kBarcodeExpected);
    (counting ? d->counting_barcode : d->barcode_entries.emplace_back()).assign(entry, length);
    if (comma == nullptr) break;
    entry = comma + 1;
  }
  d->barcodes_given = true;
  return 0;
}

// A list of 1-based slot numbers, separated by blanks or commas.
int slot_list(const LineContext& at, const char* value, std::vector<uint32_t>* slots) {
  char copy[512];  // a whole line
  std::snprintf(copy, sizeof copy, "%s", value);
  char expected[64];
  std::snprintf(expected, sizeof expected, "a list of slot numbers from 1 to %u", kMaxLibrarySlots);
  slots->clear();
  for (char* token = std::strtok(copy, " ,\t"); token != nullptr; token = std::strtok(nullptr, " ,\t")) {
    uint64_t n = 0;
    if (read_description_number(token, &n) != 0 || n < 1 || n > kMaxLibrarySlots) {
      return bad_value(at, value, expected);
    }
    slots->push_back(static_cast<uint32_t>(n));
  }
  if (slots->empty()) return bad_value(at, value, expected);
  std::sort(slots->begin(), slots->end());
  slots->erase(std::unique(slots->begin(), slots->end()), slots->end());
  return 0;
}

int number8(const LineContext& at, const char* value, uint64_t low, uint64_t high, uint8_t* out) {
  uint64_t n = 0;
  if (number_in(at, value, low, high, &n) != 0) return -1;
  *out = static_cast<uint8_t>(n);
  return 0;
}

int apply_known_key(const LineContext& at, const char* v, LibraryDescription* d) {
  const char* k = at.key;
  if (std::strcmp(k, "slots") == 0) return number32(at, v, 0, kMaxLibrarySlots, &d->slots);
  if (std::strcmp(k, "changer_tid") == 0) return number8(at, v, 0, 15, &d->changer_tid);
  if (std::strcmp(k, "changer_lun") == 0) return number8(at, v, 0, 7, &d->changer_lun);
  if (std::strcmp(k, "drives") == 0) return number8(at, v, 1, kMaxLibraryDrives, &d->drives);
  if (std::strcmp(k, "import_export") == 0) return number8(at, v, 0, kMaxImportExport, &d->import_export);
  if (std::strcmp(k, "loaded_drives") == 0) return number8(at, v, 0, kMaxLibraryDrives, &d->loaded_drives);
  if (std::strcmp(k, "dvcid") == 0) return choice(at, v, "yes", "no", &d->dvcid);
  if (std::strcmp(k, "inventory_valid") == 0) return choice(at, v, "yes", "no", &d->inventory_valid);
  if (std::strcmp(k, "move_fails_at") == 0) return number_in(at, v, 0, UINT64_MAX, &d->move_fails_at);
  if (std::strcmp(k, "changer_held_polls") == 0) return number32(at, v, 0, 1000000, &d->changer_held_polls);
  if (std::strcmp(k, "library_dir") == 0) return text_field(at, v, d->library_dir, sizeof d->library_dir);
  if (std::strcmp(k, "barcodes") == 0) return barcode_list(at, v, d);
  if (std::strcmp(k, "cleaning_slots") == 0) return slot_list(at, v, &d->cleaning_slots);
  if (std::strcmp(k, "damaged_slots") == 0) return slot_list(at, v, &d->damaged_slots);
  if (std::strcmp(k, "unloadable_slots") == 0) return slot_list(at, v, &d->unloadable_slots);
  return 1;
}

// The barcode `index` places after `first`: its first run of digits counts
// up, keeping its width. -1 when the digits run out.
int counted_barcode(const std::string& first, uint32_t index, char* out) {
  const size_t start = first.find_first_of("0123456789");
  size_t end = first.find_first_not_of("0123456789", start);
  if (end == std::string::npos) end = first.size();
  const size_t width = end - start;
  uint64_t number = std::strtoull(first.substr(start, width).c_str(), nullptr, 10) + index;
  uint64_t limit = 1;
  for (size_t i = 0; i < width && limit <= number; ++i) limit *= 10;
  if (number >= limit) return -1;
  std::snprintf(out, kBarcodeCapacity, "%s%0*llu%s", first.substr(0, start).c_str(), static_cast<int>(width),
                static_cast<unsigned long long>(number), first.substr(end).c_str());
  return 0;
}

int mark_faults(const std::vector<uint32_t>& list, const char* key, uint8_t fault,
                std::vector<SlotContent>* contents, char* problem, size_t size) {
  for (uint32_t slot : list) {
    if (slot > contents->size()) {
      std::snprintf(problem, size, "%s names slot %u of a library of %u slots", key, slot,
                    static_cast<unsigned>(contents->size()));
      return -1;
    }
    SlotContent& content = (*contents)[slot - 1];
    if (content.barcode[0] == '\0') {
      std::snprintf(problem, size, "%s names slot %u, which holds no cartridge", key, slot);
      return -1;
    }
    content.faults |= fault;
  }
  return 0;
}

}  // namespace

int apply_library_key(const LineContext& at, const char* value, LibraryDescription* library) {
  const int result = apply_known_key(at, value, library);
  if (result != 1 && library->first_library_key[0] == '\0' && std::strcmp(at.key, "slots") != 0) {
    std::snprintf(library->first_library_key, sizeof library->first_library_key, "%s", at.key);
  }
  return result;
}

int initial_slot_contents(const LibraryDescription& d, std::vector<SlotContent>* contents, char* problem,
                          size_t size) {
  contents->assign(d.slots, SlotContent{});
  const bool defaults = !d.barcodes_given;
  const std::string counting = defaults ? std::string("VT0001L9") : d.counting_barcode;
  if (d.barcode_entries.size() > d.slots) {
    std::snprintf(problem, size, "barcodes lists %u entries for a library of %u slots",
                  static_cast<unsigned>(d.barcode_entries.size()), d.slots);
    return -1;
  }
  uint32_t slot = 0;
  for (const std::string& entry : d.barcode_entries) {
    std::snprintf((*contents)[slot++].barcode, kBarcodeCapacity, "%s", entry.c_str());
  }
  for (uint32_t index = 0; !counting.empty() && slot < d.slots; ++index, ++slot) {
    if (counted_barcode(counting, index, (*contents)[slot].barcode) != 0) {
      std::snprintf(problem, size, "barcodes %s+ runs out of digits at slot %u", counting.c_str(), slot + 1);
      return -1;
    }
  }
  uint32_t cleaning = 0;
  for (uint32_t cleaning_slot : d.cleaning_slots) {
    if (cleaning_slot > d.slots) {
      std::snprintf(problem, size, "cleaning_slots names slot %u of a library of %u slots", cleaning_slot, d.slots);
      return -1;
    }
    if (++cleaning > 999) {
      std::snprintf(problem, size, "cleaning_slots lists more than 999 slots");
      return -1;
    }
    SlotContent& content = (*contents)[cleaning_slot - 1];
    std::snprintf(content.barcode, kBarcodeCapacity, "CLN%03uL1", cleaning);
    content.faults = kCartridgeCleaning;
  }
  if (mark_faults(d.damaged_slots, "damaged_slots", kCartridgeDamaged, contents, problem, size) != 0 ||
      mark_faults(d.unloadable_slots, "unloadable_slots", kCartridgeUnloadable, contents, problem, size) != 0) {
    return -1;
  }
  std::map<std::string, uint32_t> seen;
  for (uint32_t i = 0; i < d.slots; ++i) {
    const char* barcode = (*contents)[i].barcode;
    if (barcode[0] == '\0') continue;
    auto [where, fresh] = seen.emplace(barcode, i + 1);
    if (!fresh) {
      std::snprintf(problem, size, "barcode %s is in slot %u and in slot %u", barcode, where->second, i + 1);
      return -1;
    }
  }
  return 0;
}

namespace {

// The layout: drives at ids 2, 3, ... LUN 0 (their count keeps them at or
// below id 15), the changer elsewhere.
int check_layout(const LibraryDescription& d, char* problem, size_t size) {
  const unsigned last_id = kFirstDriveId + d.drives - 1u;
  if (d.changer_lun == 0 && d.changer_tid >= kFirstDriveId && d.changer_tid <= last_id) {
    std::snprintf(problem, size, "the changer at SCSI id %u LUN 0 is where drive %u answers (ids %u to %u)",
                  d.changer_tid, d.changer_tid - kFirstDriveId + 1u, kFirstDriveId, last_id);
    return -1;
  }
  if (d.loaded_drives > d.drives) {
    std::snprintf(problem, size, "loaded_drives %u is more than the %u drives", d.loaded_drives, d.drives);
    return -1;
  }
  return 0;
}

}  // namespace

int check_library_description(const char* path, const LibraryDescription& d, bool drive_serial_set,
                              bool backing_file_set) {
  char problem[160] = {};
  if (d.slots == 0) {
    if (d.first_library_key[0] == '\0') return 0;
    std::snprintf(problem, sizeof problem, "%s needs a library (slots above 0)", d.first_library_key);
  } else if (drive_serial_set) {
    std::snprintf(problem, sizeof problem,
                  "serial cannot be set for a library's drives (they answer VT00000001, VT00000002, ...; "
                  "serial = none leaves it out)");
  } else if (backing_file_set) {
    std::snprintf(problem, sizeof problem,
                  "backing_file cannot be used with a library (library_dir keeps its cartridges)");
  } else if (check_layout(d, problem, sizeof problem) == 0) {
    std::vector<SlotContent> contents;
    if (initial_slot_contents(d, &contents, problem, sizeof problem) == 0) {
      const auto full = std::count_if(contents.begin(), contents.end(),
                                      [](const SlotContent& c) { return c.barcode[0] != '\0'; });
      if (d.loaded_drives <= full) return 0;
      std::snprintf(problem, sizeof problem, "loaded_drives %u needs as many full slots, the library has %u",
                    d.loaded_drives, static_cast<unsigned>(full));
    }
  }
  error_printf("ERROR: virtual tape description \"%s\": %s\n", path, problem);
  return -1;
}
