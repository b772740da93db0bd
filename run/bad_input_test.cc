// Bad input given to the real executable: files that cannot be opened or
// written, a missing "bftdtest.dsc". Each ends with its own clear message and
// exit code 1, without a crash and without a half-written or clobbered file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "testing/process_testing.h"
#include "testing/report_files_testing.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

constexpr char kPreviousReport[] = "report of an earlier run\r\n";

// A file that the program, run without privileges, may not write.
void make_read_only_file(WorkDirectory& directory, const std::string& name) {
  directory.write_file(name, kPreviousReport);
  std::filesystem::permissions(directory.path() / name, std::filesystem::perms::owner_read |
                                                            std::filesystem::perms::group_read |
                                                            std::filesystem::perms::others_read);
}

// The program runs as another user when the test runs as root; it must be
// able to create files in the work directory.
void open_directory_to_everyone(WorkDirectory& directory) {
  std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
}

TEST(BadInput, ReportFilesThatCannotBeOpenedEndTheRunBeforeAnythingIsSent) {
  const struct {
    std::vector<std::string> arguments;
    const char* errors;
    const char* created;  // the file that opened fine and is left empty, or ""
  } cases[] = {
      {{"/ofile", "missing/run.out"}, "ERROR: unable to open \"missing/run.out\" for output\n", ""},
      {{"/ofile", "."}, "ERROR: unable to open \".\" for output\n", ""},
      {{"/ofile", "read_only.out"}, "ERROR: unable to open \"read_only.out\" for output\n", ""},
      {{"/cfile", "missing/run.cdb"},
       "ERROR: unable to open \"missing/run.cdb\" for CDB output\n", "bftdtest.out"},
      {{"/cfile", "read_only.out"}, "ERROR: unable to open \"read_only.out\" for CDB output\n",
       "bftdtest.out"},
      {{"/ofile", "missing/run.out", "/cfile", "."},
       "ERROR: unable to open \"missing/run.out\" for output\n"
       "ERROR: unable to open \".\" for CDB output\n",
       ""},
      {{"/ofile", "read_only.out", "/cfile", "run.cdb"},
       "ERROR: unable to open \"read_only.out\" for output\n", "run.cdb"},
      {{"/json", "read_only.out"}, "ERROR: unable to open \"read_only.out\" for results\n", "bftdtest.out"},
  };
  for (const auto& c : cases) {
    std::string label = c.arguments[0] + " " + c.arguments[1];
    WorkDirectory directory;
    open_directory_to_everyone(directory);
    make_read_only_file(directory, "read_only.out");

    ChildEnd end = run_bftdtest_child(c.arguments, {.unprivileged = true});
    ASSERT_TRUE(end.ended) << label;
    EXPECT_EQ(1, end.exit_code) << label;
    EXPECT_EQ(c.errors, end.errors) << label;
    EXPECT_EQ("", end.screen) << label;
    EXPECT_EQ(kPreviousReport, read_file_bytes("read_only.out")) << label << ": clobbered";
    EXPECT_FALSE(std::filesystem::exists("missing")) << label;
    if (c.created[0] != '\0') {
      EXPECT_EQ("", read_file_bytes(c.created)) << label;
    } else {
      EXPECT_FALSE(std::filesystem::exists("bftdtest.out")) << label;
    }
  }
}

TEST(BadInput, DriveStatusLabelWithoutItsFileIsAnOptionError) {
  WorkDirectory directory;
  ChildEnd end = run_bftdtest_child({"/dsc", "VT"});
  ASSERT_TRUE(end.ended);
  EXPECT_EQ(1, end.exit_code);
  EXPECT_EQ("DSC FILE ERROR: unable to open DSC file \"bftdtest.dsc\"\r\n", end.screen);
  EXPECT_EQ("", end.errors);
  EXPECT_FALSE(std::filesystem::exists("bftdtest.out"));
}

TEST(BadInput, DriveStatusFileThatIsADirectoryIsRefused) {
  WorkDirectory directory;
  std::filesystem::create_directory("bftdtest.dsc");
  ChildEnd end = run_bftdtest_child({"/dsc", "VT"});
  ASSERT_TRUE(end.ended);
  EXPECT_EQ(1, end.exit_code);
  EXPECT_EQ(0u, end.screen.find("DSC FILE ERROR: ")) << end.screen;
  EXPECT_FALSE(std::filesystem::exists("bftdtest.out"));
}

}  // namespace
namespace {

// The address space limit cannot be combined with AddressSanitizer, which
// reserves its shadow memory up front.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

struct RunFiles {
  ChildEnd end;
  std::string output;
  std::vector<std::vector<uint8_t>> cdbs;
};

// Runs the program on the virtual drive with a CDB list and checks that both
// report files are whole.
RunFiles run_on_virtual_drive(std::vector<std::string> arguments, const ChildOptions& options = {}) {
  arguments.insert(arguments.begin(), {"/vtape", "/cfile", "run.cdb"});
  RunFiles files;
  files.end = run_bftdtest_child(arguments, options);
  files.output = read_file_bytes("bftdtest.out");
  EXPECT_TRUE(ends_with_whole_line(files.output)) << files.output;
  std::string problem;
  EXPECT_TRUE(parse_cdb_list(read_file_bytes("run.cdb"), &files.cdbs, &problem)) << problem;
  return files;
}

TEST(BadInput, PatternFileThatCannotBeReadEndsTheRunBeforeTheTest) {
  for (const char* name : {"missing.bin", "no_access.bin", "."}) {
    SCOPED_TRACE(name);
    WorkDirectory directory;
    open_directory_to_everyone(directory);
    directory.write_file("no_access.bin", "ABC");
    std::filesystem::permissions(directory.path() / "no_access.bin", std::filesystem::perms::none);

    RunFiles files = run_on_virtual_drive({"/dfile", name, "/megs", "1"}, {.unprivileged = true});
    ASSERT_TRUE(files.end.ended);
    EXPECT_EQ(1, files.end.exit_code);
    std::string message = std::string("ERROR: cannot open \"") + name + "\" for input\r\n";
    EXPECT_NE(std::string::npos, files.end.screen.find(message)) << files.end.screen;
    // The message reaches the screen only; the report ends with the step.
    std::string step = std::string("setting user-defined data pattern (input file = \"") + name +
                       "\")\r\n";
    ASSERT_GE(files.output.size(), step.size());
    EXPECT_EQ(step, files.output.substr(files.output.size() - step.size()));
    EXPECT_EQ(0u, count_opcode(files.cdbs, kWrite6));
  }
}

TEST(BadInput, EmptyPatternFileIsNoError) {
  WorkDirectory directory;
  directory.write_file("empty.bin", "");
  RunFiles files = run_on_virtual_drive({"/dfile", "empty.bin", "/megs", "1"});
  ASSERT_TRUE(files.end.ended);
  EXPECT_EQ(0, files.end.exit_code) << files.end.screen;
  EXPECT_EQ(std::string::npos, files.output.find("ERROR"));
  EXPECT_EQ(16u, count_opcode(files.cdbs, kRead6));
}

TEST(BadInput, SizesBeyondTheCommandsOrTheMemoryEndTheRunBeforeTheTest) {
  const struct {
    std::vector<std::string> arguments;
    const char* last_line;
    size_t address_space_limit;
  } cases[] = {
      {{"/megs", "0xFFFFFFFF"},
       "ERROR: the test plan does not fit the Write/Read command (more than 4294967295 "
       "commands)\r\n",
       0},
      {{"/maxtl", "0xFFFFFFFF", "/lbsize", "0"},
       "ERROR: the test plan does not fit the Write/Read command (more than 16777215 blocks or "
       "bytes per command)\r\n",
       0},
      // 4 GB buffers on a machine (process) with 1 GB.
      {{"/maxtl", "0xFFFFFC00", "/megs", "8192"},
       "ERROR: unable to allocate data buffer 1 (0xFFFFFC00 bytes)\r\n", size_t{1} << 30},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments[1]);
    if (c.address_space_limit != 0 && kAddressSanitizer) {
      std::printf("not run under AddressSanitizer: %s %s\n", c.arguments[0].c_str(),
                  c.arguments[1].c_str());
      continue;
    }
    WorkDirectory directory;
    RunFiles files =
        run_on_virtual_drive(c.arguments, {.address_space_limit = c.address_space_limit});
    ASSERT_TRUE(files.end.ended);
    EXPECT_EQ(1, files.end.exit_code);
    std::string last_line = c.last_line;
    ASSERT_GE(files.output.size(), last_line.size());
    EXPECT_EQ(last_line, files.output.substr(files.output.size() - last_line.size()));
    EXPECT_EQ(0u, count_opcode(files.cdbs, kWrite6));
  }
}

// A full disk under the output file: the run goes on (the screen has the
// whole report), says that the file did not take it, and ends with exit code 1.
TEST(BadInput, OutputFileThatCannotTakeTheReportIsReported) {
  WorkDirectory directory;
  ChildEnd end = run_bftdtest_child({"/vtape", "/ofile", "/dev/full", "/megs", "1"});
  ASSERT_TRUE(end.ended);
  EXPECT_NE(std::string::npos, end.errors.find("ERROR: unable to flush output stream\r\n"));
  // The test itself ran through, but its report is lost: that is no pass.
  EXPECT_NE(std::string::npos,
            end.errors.find("ERROR: the report files could not be written completely\n"));
  EXPECT_EQ(1, end.exit_code);
  EXPECT_NE(std::string::npos, end.screen.find("read/compare test interval 1 of 1"));
}

}  // namespace
