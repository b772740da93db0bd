// Layout helpers for the 80-column report: blanks, centred lines and the
// title block.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>

constexpr unsigned kLineWidth = 80;
extern const char* const kProgramTitle;  // "-- BF TAPE DRIVE TEST PROGRAM V1.57CV --"
extern const char* const kBannerLine;    // 18 '>', a blank, the text, a blank, 18 '<'

// Writes min(columns, 80) blanks to each stream.
void write_spaces(std::initializer_list<FILE*> streams, uint16_t columns);
// Centres `text` in 80 columns (CR and LF do not count) and ends it with "\r\n".
void print_centred(std::initializer_list<FILE*> streams, const char* text);
// A blank line, the banner centred, a blank line, `title` centred.
void print_title(std::initializer_list<FILE*> streams, const char* title);

// Tables of the listing and the summary: each column as wide as its widest
// cell, two blanks between columns, the last column not padded.
// Widens `widths` to the `count` cells of one row.
void widen_columns(const std::string* cells, size_t* widths, unsigned count);
// One row: a cell of a `right_aligned` column padded on the left, any other
// on the right. No line end.
std::string table_line(const std::string* cells, const size_t* widths, const bool* right_aligned, unsigned count);
