// A library's inventory: the status of every element of its medium changer
// (pickers, slots, import/export elements, drives), read with READ ELEMENT
// STATUS one element type per command (some changers answer a request for
// all types wrongly) and in pieces when an answer does not fit. One plain
// record that the caller owns; test thread only.
#pragma once

#include <cstdint>
#include <vector>

#include "changer/element_status.h"

struct Inventory {
  // Every element, grouped by type (1 to 4), each type in address order.
  std::vector<ElementStatus> elements;
  uint32_t first[5];  // index in `elements` of the first element of each type
  uint32_t count[5];  // elements of each type
};

// Reads the whole inventory into `inventory` (its storage is reused). The
// changer must be addressed (changer_begin). 0, or -1 after the error line
// and the status report.
int read_inventory(Inventory* inventory);

// Reads the status of the one element at `address` of `type` into
// `element`. 0, or -1 after the error line and the status report.
int read_element(uint8_t type, uint16_t address, ElementStatus* element);

// True when an element reports that the changer's inventory of it is not
// valid (EXCEPT with ASC/ASCQ 83h/00h): INITIALIZE ELEMENT STATUS is due.
bool inventory_not_valid(const Inventory& inventory);

// Element `ordinal` (from 0) of `type`, in address order, or nullptr.
const ElementStatus* element_of_type(const Inventory& inventory, uint8_t type, uint32_t ordinal);
// The element at `address`, or nullptr.
const ElementStatus* element_at(const Inventory& inventory, uint16_t address);
// The ordinal (from 1) of the slot at `address`, or 0 when it is no slot.
uint32_t slot_number(const Inventory& inventory, uint16_t address);

// The element status buffer's allocation length: tgt's changer refuses
// anything above its 4 KiB page, and larger answers come in pieces anyway.
constexpr uint32_t kElementStatusAllocation = 4096;
