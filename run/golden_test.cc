// End-to-end runs of the real program on the built-in virtual tape drive:
// each case runs the executable in a directory of its own and compares the
// output file (and the CDB list file) line by line with the expected files in
// run/testdata/golden/. Only the dates, the times and the SEC and KB/SEC
// figures are masked to their shape. A run with `/json results.jsonl` also
// has every line of its results file parsed and summed up.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "run/streaming_chart.h"
#include "testing/output_capture.h"
#include "testing/report_masking.h"
#include "testing/results_file_testing.h"

namespace {

namespace fs = std::filesystem;

struct GoldenCase {
  const char* name;              // expected files <name>.out and, with /cfile, <name>.cdb
  const char* arguments;         // after the program name
  const char* drive_description; // written to "drive.vtape" when not null
  bool with_dsc_file;            // the shipped bftdtest.dsc in the run directory
  int exit_code;
  const char* report = nullptr;  // expected <report>.out when another case's report is the same
  const char* results = nullptr; // summarize_results_file() of "results.jsonl"
  int chart_stalls = -1;         // with `/plot chart.svg`: the stall marks the chart must hold
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const GoldenCase& c, std::ostream* os) { *os << c.name; }

std::string golden_path(const std::string& file) {
  return std::string(BFTDTEST_SOURCE_DIR) + "/run/testdata/golden/" + file;
}

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

// Compares line by line and names the first line that differs.
void expect_same_lines(const std::string& expected_file, const std::string& actual) {
  const std::string expected = read_file_bytes(golden_path(expected_file));
  ASSERT_NE("<missing>", expected) << expected_file;
  const std::vector<std::string> want = split_lines(expected);
  const std::vector<std::string> got = split_lines(actual);
  for (size_t i = 0; i < want.size() && i < got.size(); ++i) {
    ASSERT_EQ(want[i], got[i]) << expected_file << " line " << i + 1;
  }
  ASSERT_EQ(want.size(), got.size()) << expected_file << ": number of lines";
  EXPECT_EQ(expected, actual) << expected_file << ": line ends";
}

// Runs the program in `directory`; returns its exit code (-1 when it could
// not be run or read).
int run_program_in(const fs::path& directory, const std::string& arguments) {
  const std::string command = "cd '" + directory.string() + "' && '" + BFTDTEST_EXE + "' " + arguments +
                              " >screen.txt 2>errors.txt; echo $? >exit_code.txt";
  if (std::system(command.c_str()) != 0) return -1;
  std::ifstream in(directory / "exit_code.txt");
  int code = -1;
  in >> code;
  return code;
}

// The interval records of the results file count `stalls` in all, and the
// bytes of their seconds add up to the bytes of the interval.
void expect_timing_fields(const fs::path& directory, int stalls) {
  std::istringstream lines(read_file_bytes((directory / "results.jsonl").string()));
  int counted = 0;
  for (std::string line; std::getline(lines, line);) {
    const nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
    if (record.value("record", "") != "interval") continue;
    EXPECT_LE(record["latency"]["median_ms"].get<double>(), record["latency"]["p99_ms"].get<double>());
    counted += record["stalls"]["count"].get<int>();
    uint64_t bytes = 0;
    for (const auto& second : record["per_second"]) bytes += second.get<uint64_t>();
    EXPECT_EQ(record["actual_bytes"].get<uint64_t>(), bytes);
  }
  EXPECT_EQ(stalls, counted);
}

// The chart parses as XML, holds `stalls` stall marks, and a real SVG
// renderer turns it into a PNG of the stated size.
void expect_chart(const fs::path& directory, int stalls) {
  expect_timing_fields(directory, stalls);
  const std::string svg = read_file_bytes((directory / "chart.svg").string());
  size_t marks = 0;
  for (size_t at = svg.find("class='stall'"); at != std::string::npos; at = svg.find("class='stall'", at + 1)) ++marks;
  EXPECT_EQ(static_cast<size_t>(stalls), marks);
  const std::string command = "cd '" + directory.string() + "' && xmllint --noout chart.svg && " +
                              "rsvg-convert chart.svg -o chart.png";
  ASSERT_EQ(0, std::system(command.c_str()));
  const std::string png = read_file_bytes((directory / "chart.png").string());
  ASSERT_GE(png.size(), 24u);
  auto be32 = [&](size_t at) {
    return (static_cast<uint8_t>(png[at]) << 24) | (static_cast<uint8_t>(png[at + 1]) << 16) |
           (static_cast<uint8_t>(png[at + 2]) << 8) | static_cast<uint8_t>(png[at + 3]);
  };
  EXPECT_EQ(kChartWidth, be32(16));  // IHDR width and height
  EXPECT_EQ(kChartHeight, be32(20));
}

void run_golden_case(const GoldenCase& c) {
  SCOPED_TRACE(c.name);
  // The pid keeps two suites running at once on one machine out of each other's way.
  const fs::path directory = fs::path(::testing::TempDir()) /
                             ("golden_" + std::to_string(getpid()) + "_" + c.name);
  fs::remove_all(directory);
  fs::create_directories(directory);
  if (c.drive_description != nullptr) std::ofstream(directory / "drive.vtape") << c.drive_description;
  if (c.with_dsc_file) {
    ASSERT_TRUE(fs::exists(fs::path(BFTDTEST_SOURCE_DIR) / "bftdtest.dsc"));
    fs::copy_file(fs::path(BFTDTEST_SOURCE_DIR) / "bftdtest.dsc", directory / "bftdtest.dsc");
  }
  const int exit_code = run_program_in(directory, c.arguments);
  const std::string errors = read_file_bytes((directory / "errors.txt").string());
  ASSERT_EQ(c.exit_code, exit_code) << errors;
  expect_same_lines(std::string(c.report != nullptr ? c.report : c.name) + ".out",
                    mask_report(read_file_bytes((directory / "bftdtest.out").string())));
  if (c.results != nullptr) {
    EXPECT_EQ(c.results, summarize_results_file(read_file_bytes((directory / "results.jsonl").string())));
  }
  if (std::string(c.arguments).find("/cfile bftdtest.cdb") != std::string::npos) {
    expect_same_lines(std::string(c.name) + ".cdb", read_file_bytes((directory / "bftdtest.cdb").string()));
  }
  if (c.chart_stalls >= 0) expect_chart(directory, c.chart_stalls);
  if (!::testing::Test::HasFailure()) fs::remove_all(directory);  // kept for a look after a failure
}

TEST(GoldenMasking, MasksOnlyDatesTimesAndRates) {
  EXPECT_EQ("write test interval 1 of 1 (MM/DD/YY hh:mm:ss am)\r\n",
            mask_report("write test interval 1 of 1 (11/23/26 09:05:59 pm)\r\n"));
  EXPECT_EQ("  total time taken for write test ............ #.## SEC\r\n"
            "  write transfer rate ........................ # KB/SEC\r\n",
            mask_report("  total time taken for write test ............ 12.34 SEC\r\n"
                        "  write transfer rate ........................ 123456 KB/SEC\r\n"));
  EXPECT_EQ("writing 128.000 MB of test data\r\n", mask_report("writing 128.000 MB of test data\r\n"));
}

// Each case's drive description and options; the expected files were checked
// line by line against the program's messages.
const GoldenCase kGoldenCases[] = {
    {"defaults", "/vtape", nullptr, false, 0},
    {"sizing_block_size_1000", "/lbsize 1000 /vtape", nullptr, false, 0},
    {"sizing_intervals", "/lbsize 0 /maxtl 100000 /sdint 10 /vtape", nullptr, false, 0},
    {"plan_too_large", "/lbsize 0 /maxtl 0x1000000 /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    // 3 MB per test: 30 KB of 3072 rewritten in the first iteration (1.0 %,
    // passed), 31 KB in the second (1.0 %, failed); ECC 2 % in both.
    {"dsc_rwr_verdict", "/dsc VIRTUAL-TAPE /loop 2 /megs 3 /vtape drive.vtape",
     "rewrite_percent = 1\ncorrected_percent = 2\n", true, 0},
    // Early warning at 6 MB: EOM on the 96th Write, blank check on the 97th Read.
    {"eom_blank_check", "/megs 16 /sdint 4 /cfile bftdtest.cdb /vtape drive.vtape",
     "capacity_mb = 8\nearly_warning_mb = 2\ncompression = off\n", false, 0},
    {"write_failure", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "fail_write_at = 20\n", false, 1},
    {"read_failure", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "fail_read_at = 30\n", false, 1},
    {"filemark_on_read", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "filemark_at_read = 10\n", false, 1},
    {"miscompare", "/megs 2 /drand r /cfile bftdtest.cdb /vtape drive.vtape", "corrupt_read_at = 21:0x234\n",
     false, 1},
    // Prevent/Allow rejected once (then skipped), Load/Unload with a NOT READY
    // poll after each load.
    {"unload_reload", "/uld /loop 2 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "not_ready_polls = 1\nprevent_allow = unsupported\n", false, 0},
    // The default drive: Prevent, Unload, Load, the ready wait, Allow.
    {"unload_reload_prevented", "/uld /loop 2 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "not_ready_polls = 1\n", false, 0},
    // A drive that takes Mode Select only with the page format bit: refused
    // without it (24/00), sent again with it, one note line.
    {"mode_select_page_format", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "mode_select_pf = required\n", false, 0},
    // The second Mode Select fails too (unknown density, 26/00): its report.
    {"mode_select_refused", "/den 0x13 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "mode_select_pf = required\n", false, 1},
    // The results file beside the unchanged report; the CDB list gains
    // Inquiry VPD 00h and 80h.
    {"json_complete", "/json results.jsonl /vtape", nullptr, false, 0, "defaults",
     "run:VT00000001 write:complete read_compare:complete iteration result:passed:0"},
    {"json_eom", "/megs 16 /sdint 4 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "capacity_mb = 8\nearly_warning_mb = 2\ncompression = off\nserial = none\n", false, 0, "eom_blank_check",
     "run:- write:complete write:eom read_compare:complete read_compare:blank_check iteration "
     "result:passed:0"},
    {"json_write_failure", "/megs 2 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "fail_write_at = 20\n", false, 1, "write_failure", "run:VT00000001 write:error result:failed:1:write failure"},
    {"json_miscompare", "/megs 2 /drand r /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "corrupt_read_at = 21:0x234\n", false, 1, "miscompare",
     "run:VT00000001 write:complete read_compare:miscompare@21+0x234 result:failed:1:data miscompare"},
    // /strict: each reason that keeps a run that went through from passing.
    {"strict_passed", "/megs 2 /strict /json results.jsonl /vtape", nullptr, false, 0, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration result:passed:0"},
    {"strict_verdicts", "/dsc VIRTUAL-TAPE /loop 2 /megs 3 /strict /json results.jsonl /vtape drive.vtape",
     "rewrite_percent = 1\ncorrected_percent = 2\n", true, 2, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration:rwr=passed:ecc=failed write:complete "
     "read_compare:complete iteration:rwr=failed:ecc=failed "
     "result:failed:2:RWR verdict failed (1.0%);ECC verdict failed (2.0%)"},
    {"strict_nothing_verified", "/megs 0 /strict /vtape", nullptr, false, 2},
    {"strict_amount_cut", "/megs 3 /sdint 2 /strict /json results.jsonl /vtape", nullptr, false, 2, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration "
     "result:failed:2:amount cut by sizing to 2.000 MB of 3.000 MB asked"},
    {"strict_illegal_number", "/megs 2x /strict /vtape", nullptr, false, 2},
    {"strict_unload_unsupported", "/uld /megs 1 /strict /vtape drive.vtape", "load_unload = unsupported\n", false,
     2},
    {"strict_write_failure", "/megs 2 /strict /vtape drive.vtape", "fail_write_at = 20\n", false, 1},
    // /health: flags 04h and 14h at load, 06h raised by the 10th Write,
    // counters past 4 GiB, a rewrite rate with decimals.
    {"health_flags", "/health /megs 2 /cfile bftdtest.cdb /vtape drive.vtape",
     "tapealert = 4, 20\ntapealert_at_write = 10:6\ncounters_at_load_mb = 5000\nrewrite_percent = 2.5\n", false, 0},
    // Page 17h not listed, page 02h failing (reported once over two iterations).
    {"health_pages", "/health /loop 2 /megs 1 /vtape drive.vtape", "log_page_missing = 17h\nlog_page_failing = 2\n",
     false, 0},
    // The shipped real-drive section on the virtual drive's standard page 0Ch.
    {"dsc_ssc_sequential", "/dsc SSC-SEQUENTIAL /megs 2 /vtape", nullptr, true, 0},
    // The preflight warns before the first Write fails on the adapter's limit.
    {"health_preflight", "/health /megs 1 /vtape drive.vtape",
     "max_transfer = 0x8000\ntapealert = 4\nlog_page_failing = 17h\n", false, 1},
    // The same run's health records in the results file.
    {"health_json", "/health /megs 1 /json results.jsonl /vtape drive.vtape",
     "max_transfer = 0x8000\ntapealert = 4\nlog_page_failing = 17h\n", false, 1, "health_preflight",
     "run:VT00000001 health0:fits=0x8000:4:failed=23 write:error health1:4:failed=23 result:failed:1:write failure"},
    // 32 Writes and 32 Reads of about 16 ms each at 4 MB/s; every 10th takes
    // 400 ms more: 6 stalls, far above 4x the median. The report is the
    // classic one.
    {"streaming_chart", "/megs 2 /plot chart.svg /json results.jsonl /vtape drive.vtape",
     "rate_mb_s = 4\ncompression = off\nrate_jitter_percent = 20\nbackhitch_every = 10\nbackhitch_ms = 400\n",
     false, 0, nullptr, "run:VT00000001 write:complete read_compare:complete iteration result:passed:0", 6},
};

class GoldenRun : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenRun, OutputAndCdbListMatchTheExpectedFiles) { run_golden_case(GetParam()); }

INSTANTIATE_TEST_SUITE_P(VirtualDrive, GoldenRun, ::testing::ValuesIn(kGoldenCases),
                         [](const ::testing::TestParamInfo<GoldenCase>& run) { return std::string(run.param.name); });

}  // namespace
