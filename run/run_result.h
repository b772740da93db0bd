// The end of a run as a batch job sees it: the reasons a run must not count
// as a pass, the "RESULT:" line of `/strict`, and the run and result records
// of the results file (`/json`). Main thread only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Why a run that went through (exit code 0) must not count as a pass: a
// failed RWR or ECC verdict, nothing verified, an amount cut by sizing below
// `asked_megabytes`, an option number not used as written (each named with
// its value as given and as used), an unsupported `/uld`. Empty when the run
// passes.
std::vector<std::string> pass_blockers(double asked_megabytes);
// The part of those that belongs to the tape's test (verdicts, nothing
// verified), which a library sweep judges cartridge by cartridge; and the
// part that belongs to the options and the drive.
std::vector<std::string> test_pass_blockers();
std::vector<std::string> option_pass_blockers(double asked_megabytes);

// The Inquiry text of `length` bytes at `offset` of `data` (vendor 8 at 8,
// product 16 at 16, revision 4 at 32), cut at a zero byte and after its last
// non-blank.
std::string inquiry_text(const uint8_t* data, unsigned offset, unsigned length);

// The drive's unit serial number: Inquiry VPD page 00h, then page 80h when
// the drive lists it; leading and trailing blanks cut. False when the drive
// tells none.
bool unit_serial_number(std::string* serial);

// A blank line and "RESULT: PASSED" or "RESULT: FAILED (reason; reason)" on
// `stream` (the report, then at the very end the screen).
void print_result_line(FILE* stream, const std::vector<std::string>& reasons);

// For the CTRL-C handler, which holds the output lock for good: with
// `/strict`, "RESULT: FAILED (interrupted)" after a blank line on the screen
// and in the report, written as bytes prepared in advance (no formatting, no
// heap, no lock).
void write_interrupted_result_line();

// With `/json`: the run record (version, host, run_id, the options as given,
// the settings, the address, how the drive was reached and what it says it
// is, the start time). When `drive_answered` (setup found a tape
// drive) it also asks the drive for its unit serial number: Inquiry VPD page
// 00h, then page 80h when the drive lists it; a drive without it is no error.
void write_run_record(int argument_count, char** arguments, bool drive_answered);

// With `/json`: the result record ("passed" when exit code 0 and no reasons).
void write_result_record(int code, const std::vector<std::string>& reasons);
