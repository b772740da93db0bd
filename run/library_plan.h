// Before a library sweep moves anything: the medium changer is identified
// (Inquiry: a medium changer, peripheral type 08h), its inventory read (and
// initialized once when the changer says it is not valid), the tested
// drive's data transfer element found and the cartridges to test chosen.
// Every error here ends the sweep before a cartridge moves. Main thread only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "changer/inventory.h"

struct LibraryPlan {
  Inventory inventory;
  char vendor[9];    // the changer's Inquiry texts, blanks cut
  char product[17];
  char revision[5];
  char serial[33];   // VPD page 80h, asked only for the results file; empty when none
  bool initialized;  // INITIALIZE ELEMENT STATUS was sent
  uint16_t transport;      // the picker's element address; 0 for the changer's default
  uint32_t drive_number;   // from 0, in element address order
  uint16_t drive_element;
  std::string drive_serial;  // empty when the drive tells none (or was not asked)
  std::vector<uint32_t> slots;  // chosen full slots, from 1, in address order
};

// Fills `plan`, prints the library section of the report and, with `/json`,
// writes the `library` record (also when no drive or slot could be chosen).
// 0, or -1 after the error line (the changer is released either way).
int prepare_library(LibraryPlan* plan);
