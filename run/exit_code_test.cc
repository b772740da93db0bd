// Runs the bftdtest executable as a process: its exit code, and its screen and
// error output byte for byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

struct ProcessRun {
  int exit_code;
  std::string screen;
  std::string errors;
};

// `arguments` is passed to the shell as written (quote what it must not expand).
ProcessRun run_bftdtest(const std::string& arguments) {
  WorkDirectory directory;  // whatever the program writes stays out of the build tree
  std::string command = std::string("\"") + BFTDTEST_EXE + "\" " + arguments +
                        " >screen.txt 2>errors.txt";
  int status = std::system(command.c_str());
#ifdef WEXITSTATUS
  status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  return {status, read_file_bytes("screen.txt"), read_file_bytes("errors.txt")};
}

TEST(ExitCode, HelpScreenIsExactAndExitsWithZero) {
  std::string expected =
      read_file_bytes(std::string(BFTDTEST_SOURCE_DIR) + "/run/testdata/help_screen.txt");
  ASSERT_NE("<missing>", expected);
  // The spellings of other tools do the same.
  for (const char* arguments : {"'/?'", "--help", "-h", "'-?'", "/h"}) {
    ProcessRun run = run_bftdtest(arguments);
    EXPECT_EQ(0, run.exit_code) << arguments;
    EXPECT_EQ(expected, run.screen) << arguments;
    EXPECT_EQ("", run.errors) << arguments;
  }
}

TEST(ExitCode, OptionErrorsExitWithOne) {
  const struct {
    const char* arguments;
    const char* errors;
  } cases[] = {
      {"/bogus", "ERROR: invalid option on command line -- \"/bogus\"\n"},
      {"/uld /loop", "ERROR: option \"/loop\" needs a value\n"},
      {"/cfg missing.cfg", "ERROR: unable to open configuration file \"missing.cfg\" for input\n"},
  };
  for (const auto& c : cases) {
    ProcessRun run = run_bftdtest(c.arguments);
    EXPECT_EQ(1, run.exit_code) << c.arguments;
    EXPECT_EQ(c.errors, run.errors) << c.arguments;
    EXPECT_EQ("", run.screen) << c.arguments;
  }
}

}  // namespace
