// The command line and the `/cfg` configuration file: the option table, the
// configuration file reader, the checks after the last option and the help
// screen. Runs once, on the main thread, before anything is opened; every
// message goes to the error stream and ends in "\n".
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Parses arguments[1 .. argument_count - 1] into `test_settings`; argument 0 is
// never looked at. Stops at the first failing option. At the end of the
// command line (not inside a configuration file) it also checks the maximum
// transfer length and the block size. Returns 0 when the run may go on, -1
// after an error message or after the help screen (which sets `exit_code` to
// 0); a failing "bftdtest.dsc" load passes its own result on.
int parse_options(uint16_t argument_count, char** arguments);

// Reads every token of a configuration file, from its start, in pieces of 258
// characters; only lines whose first token begins with '/' count. Mode 0
// counts only. Mode 1 also allocates a copy of each token (new[]) into
// arguments[1 ..], at most `capacity` - 1 of them; the caller frees them.
// Returns the token count + 1, or 0 when there are more tokens than an
// argument count can hold or a token copy cannot be allocated (mode 1 writes
// "ERROR: unable to allocate arg buffer\n").
uint16_t read_config_args(FILE* file, int mode, char** arguments, uint16_t capacity = 0);

// Writes the help screen, with the current settings, to the screen.
void print_help();

// An option number (command line or `/cfg` file) that the run does not use
// as written: cut to the width of its setting, above the largest 32-bit
// number, without a digit, or read only up to an illegal character. The
// run uses it as the classic program does; `/strict` and the results file
// name both values. Option values are parsed from copies, so the arguments
// stay as given.
struct OptionValueNote {
  std::string option;  // "/loop"
  std::string given;   // as written (a long one cut, with "...")
  uint32_t used;
  const char* why;     // "cut to 16 bits", "no digits", ...
};
const std::vector<OptionValueNote>& option_value_notes();

// What a record of the options (the results file) shows for `argument` of
// the command line: the argument itself, an iSCSI URL without its password,
// or "(secret)" for a CHAP secret. Argument texts are told apart by their
// address, so pass the very pointers that parse_options was given.
const char* argument_for_record(const char* argument);

// An iSCSI URL setting (`/iscsi`'s, `/changer`'s) as reports show it:
// without its password.
void shown_iscsi_setting(const char* setting, char* text, size_t size);

// The configuration files that `/cfg` read, as opened (names cut to 12
// characters), in the order of the command line.
const std::vector<std::string>& config_files_read();

// The results files named after `/summary`, in the order given.
const std::vector<std::string>& summary_file_names();

// Back to the state before any parse (not inside a configuration file).
void reset_option_parser();
