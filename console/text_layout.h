// Layout helpers for the 80-column report: blanks, centred lines and the
// title block.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>

constexpr unsigned kLineWidth = 80;
extern const char* const kProgramTitle;  // "-- BF TAPE DRIVE TEST PROGRAM V1.57CV --"
extern const char* const kBannerLine;    // 18 '>', a blank, the text, a blank, 18 '<'

// Writes min(columns, 80) blanks to each stream.
void write_spaces(std::initializer_list<FILE*> streams, uint16_t columns);
// Centres `text` in 80 columns (CR and LF do not count) and ends it with "\r\n".
void print_centred(std::initializer_list<FILE*> streams, const char* text);
// A blank line, the banner centred, a blank line, `title` centred.
void print_title(std::initializer_list<FILE*> streams, const char* title);
