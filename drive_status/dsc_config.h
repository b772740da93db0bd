// The drive status configuration file "bftdtest.dsc": labelled sections of
// keyword lines that say where each drive counter is found.
#pragma once

#include <cstdint>
#include <cstdio>

struct DscEntry {
  char command[4];   // "LSD", "RPD" or "RSD"
  uint8_t page;
  uint8_t offset;
  uint8_t length;    // 1 to 4
  uint32_t multiplier;
  uint8_t selected;
};

enum DscKeyword : int {
  kDscTdwr = 0, kDscTdrd, kDscWcmp, kDscRcmp, kDscDrwr, kDscDecc, kDscRpos, kDscRwrc, kDscTkrc,
  kDscKeywordCount
};

extern DscEntry dsc_entries[kDscKeywordCount];
void reset_dsc_entries();

// Reads the section of `label` from "bftdtest.dsc" in the current directory.
// 0, or -1 after its "DSC FILE ERROR" message.
int load_drive_status_config(const char* label);
int match_dsc_keyword(const char* token);
