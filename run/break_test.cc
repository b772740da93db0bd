// CTRL-C (SIGINT) sent to a running bftdtest at the points where operators
// press it: while the test data pattern is read, in the write loop, in the
// read/compare loop, during a drive status collection and during the ready
// wait after a reload. Each time the program ends at once with exit code 1,
// the output file and the CDB list file end with whole lines, and a second
// CTRL-C during the cleanup changes nothing. With `/json` the results file
// ends with its prepared "interrupted" result line, and every line parses.
//
// The runs use the virtual drive, slowed where a phase must last: its
// throttle (rate_mb_s), a long status delay, many NOT READY polls, or a
// pattern file that is a pipe nobody writes to. The test watches the
// program's screen on a pseudo-terminal to know where it is, and checks from
// the CDB list afterwards that the interrupt came where it meant to.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "testing/process_testing.h"
#include "testing/report_files_testing.h"
#include "testing/results_file_testing.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

// Generous bounds for a loaded two-core machine (sanitizers included): the
// program must end well within the first; the second is how long a phase
// may take to be reached.
constexpr int kEndAfterBreakMs = 5000;
constexpr int kReachPhaseMs = 60000;

void write_text_file(const char* name, const std::string& text) {
  std::FILE* file = std::fopen(name, "wb");
  ASSERT_NE(nullptr, file);
  std::fputs(text.c_str(), file);
  std::fclose(file);
}

std::vector<std::string> with_report_files(std::vector<std::string> arguments, bool results = false) {
  arguments.insert(arguments.end(), {"/cfile", "run.cdb"});
  if (results) arguments.insert(arguments.end(), {"/json", "run.jsonl"});
  return arguments;
}

// Sends CTRL-C twice, the second while the first one's cleanup runs, and
// checks how the program ended. Returns the CDBs it listed.
std::vector<std::vector<uint8_t>> break_and_check(TerminalChild& child,
                                                  const std::string& output_holds,
                                                  const std::string& results_end = "") {
  child.send_signal(SIGINT);
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  child.send_signal(SIGINT);
  ChildEnd end = child.wait_for_end(kEndAfterBreakMs);
  EXPECT_TRUE(end.ended) << "still running " << kEndAfterBreakMs << " ms after CTRL-C";
  EXPECT_EQ(0, end.signal);
  EXPECT_EQ(1, end.exit_code);
  EXPECT_EQ("", read_file_bytes("child_errors.txt"));

  std::string output = read_file_bytes("bftdtest.out");
  EXPECT_TRUE(ends_with_whole_line(output)) << output;
  EXPECT_NE(std::string::npos, output.find(output_holds)) << output;
  if (!results_end.empty()) {
    const std::string results = summarize_results_file(read_file_bytes("run.jsonl"));
    EXPECT_TRUE(results.ends_with(results_end + " result:interrupted:1:interrupted by CTRL-C")) << results;
  }

  std::vector<std::vector<uint8_t>> cdbs;
  std::string problem;
  EXPECT_TRUE(parse_cdb_list(read_file_bytes("run.cdb"), &cdbs, &problem)) << problem;
  EXPECT_FALSE(cdbs.empty());
  return cdbs;
}

TEST(Break, WhileTheTestDataPatternIsRead) {
  WorkDirectory directory;
  ASSERT_EQ(0, mkfifo("pattern.pipe", 0600));
  // Held open for reading and writing: the program's open succeeds and its
  // read waits for data that never comes.
  int pipe = open("pattern.pipe", O_RDWR | O_NONBLOCK);
  ASSERT_GE(pipe, 0);
  TerminalChild child(with_report_files({"/vtape", "/dfile", "pattern.pipe", "/megs", "1"}));
  ASSERT_TRUE(child.started());
  const char kPatternLine[] = "setting user-defined data pattern (input file = \"pattern.pipe\")\r\n";
  ASSERT_TRUE(child.wait_for_screen(kPatternLine, kReachPhaseMs)) << child.screen();

  auto cdbs = break_and_check(child, kPatternLine);
  ASSERT_FALSE(cdbs.empty());
  EXPECT_EQ(kInquiry, cdbs.back()[0]);  // the last command of setup
  EXPECT_EQ(0u, count_opcode(cdbs, kWrite6));
  close(pipe);
}

// A drive that moves 2 MB/s of pseudo-random data: each 8 MB test takes
// about four seconds.
const char kSlowDrive[] = "rate_mb_s = 2\ncompression = off\n";

TEST(Break, InTheWriteLoop) {
  WorkDirectory directory;
  write_text_file("drive.txt", kSlowDrive);
  TerminalChild child(with_report_files({"/vtape", "drive.txt", "/drand", "/megs", "8"}, true));
  ASSERT_TRUE(child.started());
  ASSERT_TRUE(child.wait_for_screen("write test interval 1 of 1", kReachPhaseMs)) << child.screen();
  size_t interval = child.screen().find("write test interval 1 of 1");
  ASSERT_TRUE(child.wait_for_screen("1 MB\r", kReachPhaseMs, interval)) << child.screen();

  auto cdbs = break_and_check(child, "writing 8.000 MB of test data\r\n", "run:VT00000001");
  ASSERT_FALSE(cdbs.empty());
  EXPECT_EQ(kWrite6, cdbs.back()[0]);
  EXPECT_LT(count_opcode(cdbs, kWrite6), 128u);  // 8 MB are 128 commands
  EXPECT_EQ(0u, count_opcode(cdbs, kRead6));
}

TEST(Break, InTheReadCompareLoop) {
  WorkDirectory directory;
  write_text_file("drive.txt", kSlowDrive);
  TerminalChild child(with_report_files({"/vtape", "drive.txt", "/drand", "/megs", "8", "/plot", "c.svg"}, true));
  ASSERT_TRUE(child.started());
  ASSERT_TRUE(child.wait_for_screen("read/compare test interval 1 of 1", kReachPhaseMs))
      << child.screen();
  size_t interval = child.screen().find("read/compare test interval 1 of 1");
  ASSERT_TRUE(child.wait_for_screen("1 MB\r", kReachPhaseMs, interval)) << child.screen();

  auto cdbs = break_and_check(child, "reading/comparing 8.000 MB of test data\r\n", "write:complete");
  ASSERT_FALSE(cdbs.empty());
  EXPECT_EQ(kRead6, cdbs.back()[0]);
  EXPECT_EQ(128u, count_opcode(cdbs, kWrite6));
  EXPECT_LT(count_opcode(cdbs, kRead6), 128u);
  // The chart holds the write interval and the read interval cut short.
  const std::string chart = read_file_bytes("c.svg");
  EXPECT_NE(std::string::npos, chart.find("streaming: 2 intervals")) << chart;
  EXPECT_NE(std::string::npos, chart.find("stopped by CTRL-C</text>")) << chart;
  EXPECT_TRUE(chart.ends_with("</svg>\n"));
}

// The virtual drive saves its cartridge when the program closes it, unless a
// command is in flight: the saved file shows that CTRL-C released the drive.
const char kSavingDrive[] = "backing_file = cartridge.vtape\n";

TEST(Break, DuringADriveStatusCollection) {
  WorkDirectory directory;
  std::filesystem::copy_file(std::string(BFTDTEST_SOURCE_DIR) + "/bftdtest.dsc", "bftdtest.dsc");
  write_text_file("drive.txt", kSavingDrive);
  // The collection pauses a minute before it reads the counters.
  TerminalChild child(
      with_report_files({"/vtape", "drive.txt", "/megs", "1", "/dsc", "VIRTUAL-TAPE", "60000"}));
  ASSERT_TRUE(child.started());
  const char kIntervalStart[] = "writing 1.000 MB of test data\r\n";
  ASSERT_TRUE(child.wait_for_screen(kIntervalStart, kReachPhaseMs)) << child.screen();

  auto cdbs = break_and_check(child, kIntervalStart);
  ASSERT_FALSE(cdbs.empty());
  // The interval's first collection had not sent anything yet.
  EXPECT_EQ(kWriteFilemarks, cdbs.back()[0]);
  EXPECT_EQ(0u, count_opcode(cdbs, kWrite6));
  EXPECT_EQ(std::string::npos, child.screen().find(" MB\r"));
  EXPECT_TRUE(std::filesystem::exists("cartridge.vtape")) << "the drive was not released";
}

TEST(Break, DuringTheReadyWaitAfterAReload) {
  WorkDirectory directory;
  // After the load the drive stays NOT READY for a hundred polls (one a
  // second); Prevent/Allow Medium Removal is not offered, so the unload is
  // not refused.
  write_text_file("drive.txt", std::string(kSavingDrive) +
                                   "not_ready_polls = 100\nprevent_allow = unsupported\n");
  TerminalChild child(with_report_files({"/vtape", "drive.txt", "/megs", "1", "/uld"}, true));
  ASSERT_TRUE(child.started());
  const char kReload[] = "\r\nunloading/reloading drive ...\r\n";
  ASSERT_TRUE(child.wait_for_screen(kReload, kReachPhaseMs)) << child.screen();
  // Unload and load take no time on this drive; give the wait time to poll.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));

  auto cdbs = break_and_check(child, kReload, "read_compare:complete iteration");
  ASSERT_GE(cdbs.size(), 2u);
  // The last commands: the load, then Test Unit Ready polls only.
  size_t load = cdbs.size();
  while (load > 0 && cdbs[load - 1][0] == kTestUnitReady) --load;
  ASSERT_GT(load, 0u);
  EXPECT_EQ(kLoadUnload, cdbs[load - 1][0]);
  EXPECT_EQ(1, cdbs[load - 1][4] & 1) << "the last command before the polls is a load";
  EXPECT_TRUE(std::filesystem::exists("cartridge.vtape")) << "the drive was not released";
}

// Before setup has opened the report files the program has not taken CTRL-C
// over yet: the system's default handling ends it, and it leaves nothing.
TEST(Break, BeforeTheReportFilesAreOpenTheSystemDefaultApplies) {
  WorkDirectory directory;
  // Opening a pipe for writing waits for a reader: setup stops at its first
  // file.
  ASSERT_EQ(0, mkfifo("run.out", 0600));
  TerminalChild child({"/vtape", "/ofile", "run.out", "/cfile", "run.cdb"});
  ASSERT_TRUE(child.started());
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  child.send_signal(SIGINT);
  ChildEnd end = child.wait_for_end(kEndAfterBreakMs);
  EXPECT_TRUE(end.ended);
  EXPECT_EQ(SIGINT, end.signal);
  EXPECT_FALSE(std::filesystem::exists("run.cdb"));
}

}  // namespace
