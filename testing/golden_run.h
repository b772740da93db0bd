// Test support: whole runs of the real program, mostly on the built-in
// virtual tape drive, each compared with the expected files of
// run/testdata/golden/. Every feature keeps its own table of GoldenCase rows
// (run/golden_test.cc holds the classic program's); they all run through
// run_golden_case.
//
// A row runs the executable in a directory of its own (under the build
// directory) holding the files of run/testdata/inputs/ and of its folder
// run/testdata/inputs/<name>/ if there is one, and compares every
// expected file run/testdata/golden/<name>.<what> with what the run left:
// .out the output file bftdtest.out, .cdb the CDB list bftdtest.cdb, .screen
// the screen, .err the error stream, any other <what> the run's file of that
// name. Without <name>.out (or the `report` of another case) the run must
// not write bftdtest.out. Dates, times and the SEC, KB/SEC and MB/s figures are
// masked to their shape. A run with `/json results.jsonl` can also have every
// line of its results file parsed and summed up (`results`).
//
// Adding a row: append it to a table, run the suite once, check the files
// the failing row kept (its directory is named in the failure) line by line,
// and copy them to run/testdata/golden/<name>.<what>.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

struct GoldenCase {
  const char* name;               // expected files run/testdata/golden/<name>.*
  const char* arguments;          // after the program name, as a shell reads them
  const char* drive_description;  // written to "drive.vtape" when not null
  bool with_dsc_file;             // the shipped bftdtest.dsc in the run directory
  int exit_code;
  const char* report = nullptr;   // expected <report>.out when another case's report is the same
  const char* results = nullptr;  // summarize_results_file() of "results.jsonl"
  int chart_stalls = -1;            // with `/plot chart.svg`: the stall marks the chart must hold
  // A JSON object: every member must equal the member of that name in the
  // `run` record of "results.jsonl" (the others are not looked at).
  const char* run_fields = nullptr;
};

inline void PrintTo(const GoldenCase& c, std::ostream* os) { *os << c.name; }

// Names each instantiated row after its case:
//   INSTANTIATE_TEST_SUITE_P(Library, GoldenRun, ::testing::ValuesIn(kRows), golden_case_name);
inline std::string golden_case_name(const ::testing::TestParamInfo<GoldenCase>& row) { return row.param.name; }

// The parameterised fixture every table instantiates (its one test,
// LeavesTheExpectedFiles, runs the row).
class GoldenRun : public ::testing::TestWithParam<GoldenCase> {};

// Runs the row and records every difference as a gtest failure.
void run_golden_case(const GoldenCase& c);

// `report` with its dates, times and SEC and KB/SEC figures masked to their
// shape, as every expected file holds them.
std::string mask_run_figures(const std::string& report);

// The bytes of a file ("" when it cannot be read).
std::string read_file_bytes(const std::string& path);
