// The program's setup through the virtual drive, running the executable: a bad
// description file stops the run before any command. (The setup faults and the
// drive's identity are checked piece by piece in run/ and vtape/virtual_drive_test,
// and end to end by the golden runs.)
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

struct ProgramRun {
  int exit_code;
  std::string screen;
  std::string errors;
  std::string cdb_list;
};

// Runs bftdtest with `/vtape drive.txt` (description `description`) and
// `arguments` in a fresh directory.
ProgramRun run_with_vtape(const std::string& description, const std::string& arguments) {
  WorkDirectory directory;
  directory.write_file("drive.txt", description);
  std::string command = std::string("\"") + BFTDTEST_EXE + "\" /vtape drive.txt /cfile cdb.txt " +
                        arguments + " >screen.txt 2>errors.txt";
  int status = std::system(command.c_str());
#ifdef WEXITSTATUS
  status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  return {status, read_file_bytes("screen.txt"), read_file_bytes("errors.txt"),
          read_file_bytes("cdb.txt")};
}

TEST(VtapeProgram, BadDescriptionStopsBeforeAnyCommand) {
  ProgramRun run = run_with_vtape("capacity_mb = 100\nspeed = 3\n", "");
  EXPECT_EQ(1, run.exit_code);
  EXPECT_EQ("ERROR: virtual tape description \"drive.txt\" line 2: unknown key \"speed\"\n",
            run.errors);
  EXPECT_EQ("", run.screen);
  EXPECT_TRUE(run.cdb_list == "<missing>" || run.cdb_list.empty()) << run.cdb_list;
}

}  // namespace
