// The progress line of `/eta`: whole runs off a terminal on a drive whose
// time is the loop clock's (so the minutely lines come without waiting a
// minute, with fixed rates), compared with run/testdata/golden/<row>.screen;
// and the real program on a pseudo-terminal, where the line is rewritten in
// place.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "engine/transfer_loops.h"
#include "run/run_sequence.h"
#include "testing/golden_run.h"
#include "testing/screen_capture.h"
#include "transport/platform/platform.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMb = 1048576;

// A drive that writes 1 MB in 5 s and reads 1 MB in 2.5 s: the loop clock
// reads the test's totals, so time passes with the data alone.
uint32_t drive_time_ms() {
  return static_cast<uint32_t>(test_totals.bytes_written * 5000 / kMb + test_totals.bytes_verified * 2500 / kMb);
}

struct ProgramRun {
  int exit_code = -1;
  std::string screen;
  std::string report;
};

// Runs the program in this process, in `directory`, on the drive clock.
ProgramRun run_on_drive_clock(const fs::path& directory, const std::string& arguments) {
  std::vector<std::string> words{"bftdtest"};
  std::istringstream split(arguments);
  for (std::string word; split >> word;) words.push_back(word);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const fs::path previous = fs::current_path();
  fs::current_path(directory);
  reset_program_state();
  set_loop_clock(drive_time_ms);
  ProgramRun run;
  run.screen = screen_of([&] { run.exit_code = run_program(static_cast<int>(words.size()), argv.data()); });
  set_loop_clock(nullptr);
  reset_program_state();
  set_active_platform(nullptr);
  run.report = read_file_bytes("bftdtest.out");
  fs::current_path(previous);
  return run;
}

// The screen without the lines that `progress` matches.
std::string without_lines(const std::string& screen, const std::regex& progress, int* removed) {
  std::istringstream lines(screen);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_match(line, progress)) {
      ++*removed;
    } else {
      kept += line + "\n";
    }
  }
  return kept;
}

struct EtaRow {
  const char* name;  // expected screen run/testdata/golden/<name>.screen
  const char* arguments;  // without /eta
  const char* drive_description;  // "drive.vtape" when not null
};

const EtaRow kRows[] = {
    // 64 MB in four intervals, twice: 320 s a write pass, 160 s a read pass.
    {"eta_minutely", "/megs 64 /sdint 16 /loop 2 /vtape", nullptr},
    // EOM at 38 MB: the read/compare pass and the second iteration plan 38 MB.
    {"eta_minutely_eom", "/megs 64 /sdint 16 /loop 2 /vtape drive.vtape",
     "capacity_mb = 40\nearly_warning_mb = 2\ncompression = off\n"},
};

// Off a terminal, /eta turns the minutely "N MB" lines into lines of time left
// and changes nothing else: not the rest of the screen, not the report.
TEST(EtaProgress, OffATerminalTheMinutelyLineCarriesTheTimeLeft) {
  const fs::path golden = fs::path(BFTDTEST_SOURCE_DIR) / "run/testdata/golden";
  for (const EtaRow& row : kRows) {
    SCOPED_TRACE(row.name);
    const fs::path directory = fs::path(BFTDTEST_BINARY_DIR) / "eta_runs" / row.name;
    fs::remove_all(directory);
    fs::create_directories(directory);
    if (row.drive_description != nullptr) std::ofstream(directory / "drive.vtape") << row.drive_description;
    const ProgramRun classic = run_on_drive_clock(directory, row.arguments);
    const ProgramRun eta = run_on_drive_clock(directory, std::string("/eta ") + row.arguments);
    EXPECT_EQ(0, classic.exit_code);
    EXPECT_EQ(0, eta.exit_code);
    const std::string screen = mask_run_figures(eta.screen);
    std::ofstream(directory / "screen.txt", std::ios::binary) << screen;
    EXPECT_EQ(read_file_bytes((golden / (std::string(row.name) + ".screen")).string()), screen);
    EXPECT_EQ(mask_run_figures(classic.report), mask_run_figures(eta.report));
    EXPECT_EQ(std::string::npos, eta.report.find(" left")) << "a progress line in the report";
    int classic_lines = 0;
    int eta_lines = 0;
    EXPECT_EQ(without_lines(mask_run_figures(classic.screen), std::regex(R"(\d+ MB\r)"), &classic_lines),
              without_lines(screen, std::regex(R"(\d+ of \d+ MB .* left\r)"), &eta_lines));
    EXPECT_GT(classic_lines, 2);
    EXPECT_EQ(classic_lines, eta_lines);
    if (!::testing::Test::HasFailure()) fs::remove_all(directory);
  }
}

// Everything the program wrote to a pseudo-terminal in raw mode (bytes as
// written, no CR added to LF), and its exit status.
std::string run_on_pseudo_terminal(const fs::path& directory, const std::vector<const char*>& arguments,
                                   int* status) {
  struct termios raw {};
  cfmakeraw(&raw);
  struct winsize size {};
  size.ws_row = 24;
  size.ws_col = 80;
  int master = -1;
  const pid_t child = forkpty(&master, nullptr, &raw, &size);
  if (child == 0) {
    alarm(120);  // a run that hangs ends here
    if (chdir(directory.c_str()) != 0) _exit(126);
    std::vector<char*> argv{const_cast<char*>(BFTDTEST_EXE)};
    for (const char* argument : arguments) argv.push_back(const_cast<char*>(argument));
    argv.push_back(nullptr);
    execv(BFTDTEST_EXE, argv.data());
    _exit(127);
  }
  std::string output;
  if (child < 0) return output;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(master, buffer, sizeof buffer);
    if (got > 0) {
      output.append(buffer, static_cast<size_t>(got));
    } else if (got < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // EIO once the program has closed the terminal
    }
  }
  close(master);
  waitpid(child, status, 0);
  return output;
}

// On a terminal the line stands in one row: each one starts where the last
// began (after a CR), is padded to cover it, and is wiped before the report
// goes on. The figures that do not hang on the machine's speed are checked
// exactly; the rate and times are either measured or "--".
TEST(EtaProgress, OnAPseudoTerminalTheLineIsRewrittenInPlace) {
  const fs::path directory = fs::path(BFTDTEST_BINARY_DIR) / "eta_runs" / "terminal";
  fs::remove_all(directory);
  fs::create_directories(directory);
  int status = -1;
  const std::string output =
      run_on_pseudo_terminal(directory, {"/eta", "/megs", "8", "/sdint", "4", "/loop", "2", "/vtape"}, &status);
  ASSERT_TRUE(WIFEXITED(status)) << output;
  EXPECT_EQ(0, WEXITSTATUS(status)) << output;

  static const std::regex line(
      R"((\d+) of 4 MB \((\d+)%\)  (?:--|\d+(?:\.\d)?) MB/s  (--|\d+:\d\d:\d\d) left \| )"
      R"(test (\d+)%  (--|\d+:\d\d:\d\d) left)");
  std::vector<std::string> rows;  // the text between two CRs (or an LF and a CR)
  size_t start = 0;
  for (size_t at = output.find('\r'); at != std::string::npos; at = output.find('\r', start)) {
    rows.push_back(output.substr(start, at - start));
    start = at + 1;
  }
  int lines = 0;
  int wipes = 0;
  size_t standing = 0;  // length of the text of the line on the terminal
  uint32_t last_test_percent = 0;
  std::string last;
  for (std::string row : rows) {
    if (!row.empty() && row[0] == '\n') row.erase(0, 1);  // the first row after a report line
    std::smatch m;
    const std::string text = row.substr(0, row.find_last_not_of(' ') + 1);
    if (std::regex_match(text, m, line)) {
      ++lines;
      EXPECT_LE(row.size(), 79u) << row;
      EXPECT_GE(row.size(), standing) << "does not cover the line before: " << row;
      standing = text.size();  // what shows: padding blanks over blanks
      const int megabytes = (lines - 1) % 4 + 1;  // 4 MB intervals
      EXPECT_EQ(std::to_string(megabytes), m[1]) << row;
      EXPECT_EQ(std::to_string(megabytes * 25), m[2]) << row;
      if (megabytes == 4) {
        EXPECT_EQ("0:00:00", m[3]) << row;
      }
      const auto test_percent = static_cast<uint32_t>(std::stoul(m[4]));
      EXPECT_EQ(static_cast<uint32_t>(lines * 100 / 32), test_percent) << row;  // 32 MB in all
      EXPECT_GE(test_percent, last_test_percent) << row;
      last_test_percent = test_percent;
      last = text;
    } else if (standing != 0) {
      EXPECT_EQ(std::string(standing, ' '), row) << "a line not wiped before the report goes on";
      ++wipes;
      standing = 0;
    }
  }
  EXPECT_EQ(32, lines) << output;  // every MB of two iterations of two passes of 8 MB
  EXPECT_EQ(8, wipes);             // one for each interval
  EXPECT_NE(std::string::npos, last.find("4 of 4 MB (100%)")) << last;
  EXPECT_NE(std::string::npos, last.find("0:00:00 left | test 100%  0:00:00 left")) << last;
  EXPECT_EQ(std::string::npos, output.find(" left\n")) << "a progress line ended by a line feed";
  const std::string report = read_file_bytes((directory / "bftdtest.out").string());
  EXPECT_NE(std::string::npos, report.find("read/compare transfer rate")) << report;
  EXPECT_EQ(std::string::npos, report.find(" left")) << "a progress line in the report";
  if (!::testing::Test::HasFailure()) fs::remove_all(directory);
}

}  // namespace
