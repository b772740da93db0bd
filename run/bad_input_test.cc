// Bad input given to the real executable: files that cannot be opened or
// written, a missing "bftdtest.dsc". Each ends with its own clear message and
// exit code 1, without a crash and without a half-written or clobbered file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "run/process_testing.h"
#include "run/work_directory_testing.h"
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
