// The drive status configuration file "bftdtest.dsc": labelled sections of
// keyword lines that say where each drive counter is found (a Log Sense page,
// the Read Position data or the Request Sense data). Read once, during option
// parsing, on the main thread; `dsc_entries` is only read afterwards.
//
// Format: significant lines have a first token that does not begin with ';'.
// A label's section starts at the first significant line containing the label
// and runs over the following lines of the form
//   KEYWORD COMMAND page offset length multiplier
// until a line whose first token is no keyword, or the end of the file.
#pragma once

#include <cstdint>
#include <cstdio>

// The file's fixed name, in the current directory.
constexpr const char* kDscFileName = "bftdtest.dsc";

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

// How many bytes of each source the collection reads: the Log Sense parameter
// data after the 4-byte page header, the Read Position data, the sense data.
// An entry's offset + length must stay within them.
constexpr unsigned kDscLogDataLength = 36;
constexpr unsigned kDscReadPositionLength = 20;
constexpr unsigned kDscSenseLength = 255;

constexpr unsigned kDscLineLength = 82;  // longer lines are read in pieces

// One line of the file with the tokenizer's position in it.
struct DscLine {
  char text[kDscLineLength + 1];
  char* rest;  // the tokens after the first
};

// Reads the section of `label` from "bftdtest.dsc" in the current directory
// into `dsc_entries` and sets `drive_status_enabled`. 0, or -1 after its
// "DSC FILE ERROR" message (screen and log file).
int load_drive_status_config(const char* label);

// Reads up to the next significant line (one that also contains `search`,
// when given). Returns 0 and sets `*first_token`, with the line's other
// tokens left in `line->rest`; -1 at the end of the file.
int find_dsc_line(FILE* file, DscLine* line, const char* search, char** first_token);

// Reads the entry lines that follow the label line. 0 at the end of the
// section or the file, -1 after the message of a bad entry.
int read_dsc_section(FILE* file, DscLine* line);

// The keyword's index 0 to 8 (exact case) after setting its `selected` flag,
// or -1 for any other token.
int match_dsc_keyword(const char* token);

// Reads command, page, offset, length and multiplier from `line->rest` into
// entry `index`; tokens after the multiplier are ignored. 0, or -1 after its
// message (unknown command, too few arguments, value out of range).
int parse_dsc_entry(int index, DscLine* line);
