// Reads the lines of a results file (`/json`) back, for `/summary`: one line
// at a time into one plain record holding the fields a summary of runs
// needs, whatever the kind of the line. The reader knows the field names the
// producers write (see docs/results-file.md); a field that is missing, or has
// another type than expected, is left at its empty value, and a field the
// reader does not know is skipped. The line is parsed as a stream of events
// (no tree is built), so a long line costs no memory beyond its texts.
//
// Threads: none of its own; a ResultsLine belongs to its caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class ResultsRecordKind : uint8_t {
  other,  // a record of a kind the summary does not use
  run,
  interval,
  iteration,
  health,
  result,
  cartridge,
  library,
  device,
};

struct ResultsLine {
  ResultsRecordKind kind;
  std::string cartridge;  // the "cartridge" context field; empty when none

  // run
  std::string host;
  std::string run_id;
  std::string label;
  std::string start_time;
  std::string vendor, product, revision, serial;  // "drive"

  // interval
  bool write_test;  // "test": "write"; else "read_compare"
  uint64_t actual_bytes;
  double seconds;
  bool timed;  // "latency" and "stalls" present
  uint64_t stall_count;
  double max_latency_ms;
  std::string end_kind;  // "end": {"kind"}

  // iteration: "rwr" and "ecc", each known when not null
  bool rwr_known, rwr_failed;
  double rwr_max_percentage;
  bool ecc_known, ecc_failed;
  double ecc_max_percentage;

  // health
  bool tapealert_read;         // "tapealert" is a list (not null)
  uint64_t tapealert_new;      // bit n-1: flag n listed with "new": true

  // result
  bool exit_code_known;
  int64_t exit_code;
  std::string status;
  std::vector<std::string> reasons;
  bool totals_known;  // "bytes_written" present (result and cartridge records)
  uint64_t bytes_written, bytes_verified;
  std::string end_time;
  bool elapsed_known;
  double elapsed_seconds;

  // cartridge
  std::string barcode;
  uint64_t slot;
  std::string cartridge_result;  // "result" of a cartridge record
  std::string reason;
};

// Parses one line (without its line end) into `line`, which is cleared first
// (its texts keep their capacity, so a caller that reuses one record
// allocates little). 0, or -1 when the text is not one JSON object whose
// "record" field is a text.
int parse_results_line(const char* text, size_t length, ResultsLine* line);

// Seconds since 1970-01-01 00:00 UTC of a time as the results file writes
// it ("2026-11-23T14:05:09+01:00"; "Z" for UTC taken too). 0 with the value,
// or -1 when the text is no such time.
int parse_results_time(const std::string& text, int64_t* seconds);
