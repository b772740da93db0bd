#include "summary/summary_rows.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double kBytesPerMegabyte = 1048576.0;

SummaryRow new_row(uint32_t run, const std::string& cartridge) {
  SummaryRow row{};
  row.run = run;
  row.cartridge = cartridge;
  return row;
}

SummaryRun& current_run(SummaryData* d) { return d->runs[static_cast<size_t>(d->current_run)]; }

// The row of the current run that a line about `cartridge` belongs to; made
// when it is the first line about it. A run's rows are the last ones of the
// table while its file is read.
SummaryRow& row_for(SummaryData* d, const std::string& cartridge) {
  SummaryRun& run = current_run(d);
  const uint32_t end = run.first_row + run.row_count;
  if (d->current_row >= run.first_row && d->current_row < end && d->rows[d->current_row].cartridge == cartridge) {
    return d->rows[d->current_row];
  }
  for (uint32_t i = run.first_row; i < end; ++i) {
    if (d->rows[i].cartridge == cartridge) {
      d->current_row = i;
      return d->rows[i];
    }
  }
  d->rows.push_back(new_row(static_cast<uint32_t>(d->current_run), cartridge));
  ++run.row_count;
  d->current_row = static_cast<uint32_t>(d->rows.size() - 1);
  return d->rows.back();
}

std::string joined(const std::string& a, const std::string& b) {
  if (a.empty()) return b;
  if (b.empty()) return a;
  return a + " " + b;
}

void start_run(SummaryData* d, const ResultsLine& line) {
  SummaryRun run{};
  run.file = d->file;
  run.host = !line.label.empty() ? line.label : !line.host.empty() ? line.host : "-";
  run.run_id = line.run_id;
  run.drive = joined(joined(line.vendor, line.product), line.serial);
  if (run.drive.empty()) run.drive.assign(1, '-');  // not = "-": a false -Wrestrict of GCC 12 at -O3
  run.start_text = line.start_time;
  run.start_known = parse_results_time(line.start_time, &run.start) == 0;
  run.end = run.start;
  run.first_row = static_cast<uint32_t>(d->rows.size());
  d->runs.push_back(std::move(run));
  d->current_run = static_cast<int64_t>(d->runs.size() - 1);
  row_for(d, "");  // the run's own row
}

bool has_figures(const SummaryRow& row) {
  return row.write_seconds > 0 || row.read_seconds > 0 || row.write_bytes > 0 || row.read_bytes > 0 ||
         row.rwr_known || row.ecc_known || row.tapealert_read;
}

std::string run_result_text(const SummaryRun& run) {
  if (run.interrupted) {
    return "interrupted: " + (run.result_seen ? run.reasons : std::string("no result record (cut short)"));
  }
  if (!run.failed) return "passed";
  std::string text = "failed (exit " + std::to_string(run.exit_code) + ")";
  return run.reasons.empty() ? text : text + ": " + run.reasons;
}

// The words of a sweep's cartridge results as its own summary table shows
// them: "not_passed" (ran, but must not count as a pass) is "failed" there.
std::string outcome_word(const std::string& outcome) {
  if (outcome == "not_passed") return "failed";
  if (outcome == "not_tested") return "not tested";
  return outcome;
}

void decide_cartridge(const SummaryRun& run, SummaryRow* row) {
  if (row->outcome_known) {
    row->failed = row->outcome == "failed" || row->outcome == "not_passed" || row->outcome == "not_tested" ||
                  row->rwr_failed || row->ecc_failed;
    const std::string word = outcome_word(row->outcome);
    row->result = row->reason.empty() ? word : word + ": " + row->reason;
    if (row->result.empty()) row->result.assign(1, '-');
  } else {
    row->failed = true;
    row->result = run.interrupted ? "interrupted" : "no cartridge record";
  }
}

// The run's file ended or its result record was read: its rows get their
// results. A run without a result record was cut short.
void finish_run(SummaryData* d) {
  if (d->current_run < 0) return;
  SummaryRun& run = current_run(d);
  d->current_run = -1;
  // A library run's own row holds nothing when every record named its cartridge.
  if (run.row_count > 1 && !has_figures(d->rows[run.first_row])) {
    d->rows.erase(d->rows.begin() + run.first_row);
    --run.row_count;
  }
  if (!run.result_seen && run.start_known) run.end = run.start + static_cast<int64_t>(run.interval_seconds + 0.5);
  run.interrupted = !run.result_seen || run.status == "interrupted";
  run.failed = !run.result_seen || run.exit_code != 0 || run.status != "passed";
  const uint32_t end = run.first_row + run.row_count;
  for (uint32_t i = run.first_row; i < end; ++i) {
    SummaryRow& row = d->rows[i];
    if (!row.cartridge.empty()) {
      decide_cartridge(run, &row);
      run.failed = run.failed || row.failed;
    } else if (row.rwr_failed || row.ecc_failed) {
      run.failed = true;
    }
  }
  for (uint32_t i = run.first_row; i < end; ++i) {
    SummaryRow& row = d->rows[i];
    if (!row.cartridge.empty()) continue;
    row.failed = run.failed;
    row.result = run_result_text(run);
  }
}

void add_result(SummaryData* d, const ResultsLine& line) {
  SummaryRun& run = current_run(d);
  run.result_seen = true;
  run.exit_code = line.exit_code_known ? line.exit_code : 1;
  run.status = line.status;
  run.reasons.clear();
  for (const std::string& reason : line.reasons) run.reasons += (run.reasons.empty() ? "" : "; ") + reason;
  run.bytes_written = line.bytes_written;
  run.bytes_verified = line.bytes_verified;
  int64_t end = 0;
  if (parse_results_time(line.end_time, &end) == 0) {
    run.end = end;
  } else if (run.start_known) {
    run.end = run.start + static_cast<int64_t>((line.elapsed_known ? line.elapsed_seconds : run.interval_seconds) + 0.5);
  }
  finish_run(d);
}

void add_record(SummaryData* d, const ResultsLine& line) {
  switch (line.kind) {
    case ResultsRecordKind::interval: {
      SummaryRow& row = row_for(d, line.cartridge);
      (line.write_test ? row.write_bytes : row.read_bytes) += line.actual_bytes;
      (line.write_test ? row.write_seconds : row.read_seconds) += line.seconds;
      current_run(d).interval_seconds += line.seconds;
      if (line.timed) {
        row.timed = true;
        row.stalls += line.stall_count;
        row.worst_ms = std::max(row.worst_ms, line.max_latency_ms);
      }
      break;
    }
    case ResultsRecordKind::iteration: {
      SummaryRow& row = row_for(d, line.cartridge);
      if (line.rwr_known) {
        row.rwr_max = row.rwr_known ? std::max(row.rwr_max, line.rwr_max_percentage) : line.rwr_max_percentage;
        row.rwr_known = true;
        row.rwr_failed = row.rwr_failed || line.rwr_failed;
      }
      if (line.ecc_known) {
        row.ecc_max = row.ecc_known ? std::max(row.ecc_max, line.ecc_max_percentage) : line.ecc_max_percentage;
        row.ecc_known = true;
        row.ecc_failed = row.ecc_failed || line.ecc_failed;
      }
      break;
    }
    case ResultsRecordKind::health: {
      SummaryRow& row = row_for(d, line.cartridge);
      row.tapealert_read = row.tapealert_read || line.tapealert_read;
      row.tapealert_raised |= line.tapealert_new;
      break;
    }
    case ResultsRecordKind::cartridge: {
      SummaryRow& row = row_for(d, !line.barcode.empty() ? line.barcode : line.cartridge);
      row.outcome_known = true;
      row.outcome = line.cartridge_result;
      row.reason = line.reason;
      row.totals_known = line.totals_known;
      row.bytes_written = line.bytes_written;
      row.bytes_verified = line.bytes_verified;
      break;
    }
    case ResultsRecordKind::result:
      add_result(d, line);
      break;
    default:
      break;  // the library's identity, listed devices and kinds of later versions
  }
}

}  // namespace

void summary_begin_file(SummaryData* d, const std::string& file) {
  ++d->files;
  d->current_run = -1;
  d->current_row = 0;
  d->line_number = 0;
  d->bad_lines = 0;
  d->first_bad_line = 0;
  d->orphan_lines = 0;
  d->cut_last_line = false;
  d->file_first_run = static_cast<uint32_t>(d->runs.size());
  d->file_first_problem = static_cast<uint32_t>(d->problems.size());
  d->file = file;
}

void summary_add_line(SummaryData* d, const char* text, size_t length, bool last_and_cut) {
  ++d->line_number;
  if (length > 0 && text[length - 1] == '\r') --length;  // a file that went through a CRLF conversion
  if (length == 0) return;
  ResultsLine& line = d->line;
  if (parse_results_line(text, length, &line) != 0) {
    if (last_and_cut) {
      d->cut_last_line = true;
    } else if (d->bad_lines++ == 0) {
      d->first_bad_line = d->line_number;
    }
    return;
  }
  if (line.kind == ResultsRecordKind::run) {
    finish_run(d);  // a file with two runs in it: the first one was cut short
    start_run(d, line);
    return;
  }
  if (d->current_run < 0) {
    // Listed devices are a file of their own kind, not records out of place.
    if (line.kind != ResultsRecordKind::device && line.kind != ResultsRecordKind::other) ++d->orphan_lines;
    return;
  }
  add_record(d, line);
}

void summary_file_failed(SummaryData* d, const std::string& why) {
  d->problems.push_back(SummaryProblem{d->file, why, true});
}

void summary_end_file(SummaryData* d) {
  finish_run(d);
  const bool any_run = d->runs.size() > d->file_first_run;
  if (d->bad_lines > 0) {
    char text[160];
    std::snprintf(text, sizeof text, "line %llu is not a results record%s",
                  static_cast<unsigned long long>(d->first_bad_line), d->bad_lines > 1 ? "" : "; skipped");
    std::string message = text;
    if (d->bad_lines > 1) {
      const unsigned long long more = d->bad_lines - 1;
      std::snprintf(text, sizeof text, ", nor %s %llu more line%s; skipped", more == 1 ? "is" : "are", more,
                    more == 1 ? "" : "s");
      message += text;
    }
    d->problems.push_back(SummaryProblem{d->file, message, true});
  }
  if (d->orphan_lines > 0 && any_run) {
    d->problems.push_back(SummaryProblem{
        d->file, std::to_string(d->orphan_lines) + " record(s) before the first run record; skipped", true});
  }
  if (d->cut_last_line) {
    d->problems.push_back(SummaryProblem{d->file, "the last line is cut short (the run stopped while writing it)",
                                         !any_run});
  }
  if (!any_run && d->problems.size() == d->file_first_problem) {
    d->problems.push_back(SummaryProblem{d->file, "holds no run record: not a results file of a test", true});
  }
}

double summary_rate(uint64_t bytes, double seconds) {
  return seconds > 0 ? static_cast<double>(bytes) / kBytesPerMegabyte / seconds : -1.0;
}
