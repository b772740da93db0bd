// The rows of `/summary`: the results files' lines, file by file, turned
// into one record per run and one row per tested drive (a run), or per
// cartridge of a library run, with the figures of its table line. Nothing of
// a line is kept beyond what its row adds up, so a file of any length costs
// one row's memory.
//
// Threads: none of its own; a SummaryData belongs to its caller.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "results/results_reader.h"

// One row of the table: a run of one drive, or one cartridge of a library run.
struct SummaryRow {
  uint32_t run;           // index into SummaryData::runs
  std::string cartridge;  // barcode; empty for a run without a library
  uint64_t write_bytes, read_bytes;  // the intervals' actual bytes
  double write_seconds, read_seconds;
  bool timed;             // any interval had command timing
  uint64_t stalls;
  double worst_ms;        // longest command of any interval
  bool rwr_known, rwr_failed;
  double rwr_max;
  bool ecc_known, ecc_failed;
  double ecc_max;
  bool tapealert_read;
  uint64_t tapealert_raised;  // bit n-1: flag n raised during the test
  bool outcome_known;         // a cartridge record was read
  std::string outcome;        // the cartridge record's result: passed, failed, not_passed, skipped, not_tested
  std::string reason;
  bool totals_known;                       // the cartridge record gave its totals:
  uint64_t bytes_written, bytes_verified;
  // Decided when the run's file ends.
  bool failed;
  std::string result;  // the table's result column
};

struct SummaryRun {
  std::string file;
  std::string host;      // the run record's label, else its host; "-" when neither
  std::string run_id;
  std::string drive;     // vendor, product and serial number
  std::string start_text;  // as written in the run record
  bool start_known;
  int64_t start, end;    // seconds since 1970 (UTC); end estimated when the run has no result record
  double interval_seconds;  // all its intervals together
  bool result_seen;
  int64_t exit_code;
  std::string status;
  std::string reasons;   // joined with "; "
  uint64_t bytes_written, bytes_verified;
  uint32_t first_row, row_count;
  bool failed;       // exit code not 0, status not passed, or a failed verdict or cartridge
  bool interrupted;  // CTRL-C, or no result record
};

// A file, or part of one, that could not be read.
struct SummaryProblem {
  std::string file;
  std::string text;
  bool unreadable;  // counts for `/strict` (a cut last line alone does not: its run shows as interrupted)
};

struct SummaryData {
  std::vector<SummaryRun> runs;
  std::vector<SummaryRow> rows;
  std::vector<SummaryProblem> problems;
  uint32_t files = 0;
  // The file being read.
  std::string file;
  uint32_t file_first_run = 0;
  uint32_t file_first_problem = 0;
  int64_t current_run = -1;
  uint32_t current_row = 0;  // the row the last cartridge line went to
  uint64_t line_number = 0;
  uint64_t bad_lines = 0;
  uint64_t first_bad_line = 0;
  uint64_t orphan_lines = 0;  // records before any run record
  bool cut_last_line = false;
  ResultsLine line;           // reused for every line: its texts keep their capacity
};

// Starts reading `file`.
void summary_begin_file(SummaryData* data, const std::string& file);
// One line of the file, as read (without its line end). `last_and_cut`:
// the file ends inside this line (no line end after it).
void summary_add_line(SummaryData* data, const char* text, size_t length, bool last_and_cut);
// The file could not be opened or read: `why` says so.
void summary_file_failed(SummaryData* data, const std::string& why);
// Ends the file: its runs get their results, its problems are noted.
void summary_end_file(SummaryData* data);

// MB of 1,048,576 bytes per second; negative when no time was measured.
double summary_rate(uint64_t bytes, double seconds);
