// The program's setup and report header through the virtual drive, running
// the executable: the drive answers at the address of the options, and each
// setup fault of its description file gives the program's own message.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run/work_directory_testing.h"
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

TEST(VtapeProgram, SetupFindsTheDriveAndPrintsItsIdentity) {
  ProgramRun run = run_with_vtape("vendor = ACME\nproduct = TAPE 9\nrevision = 0042\n",
                                  "/hanum 2 /bus 1 /tid 0Ah /lun 3");
  EXPECT_NE(std::string::npos,
            run.screen.find("DRIVE PRODUCT ID ............ TAPE 9          \r\n"))
      << run.screen;
  EXPECT_NE(std::string::npos, run.screen.find("DRIVE VENDOR ID ............. ACME    \r\n"));
  EXPECT_NE(std::string::npos, run.screen.find("DRIVE FIRMWARE REVISION ..... 0042\r\n"));
  // Two Test Unit Ready and the Inquiry of setup, LUN 3 in byte 1.
  EXPECT_EQ(0u,
            run.cdb_list.find(" 00 60 00 00 00 00\r\n 00 60 00 00 00 00\r\n 12 60 00 00 ff 00\r\n"))
      << run.cdb_list;
}

TEST(VtapeProgram, SetupFaultsEndWithTheProgramsMessage) {
  const struct {
    const char* description;
    const char* screen;
  } cases[] = {
      {"device_type = 0\n",
       "ERROR: device at SCSI id 2 LUN 0 is not a sequential access device (type 00)\n"},
      {"lun_supported = no\n", "ERROR: LUN 0 is not supported by the device at SCSI id 2\n"},
      {"held = yes\n", "ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"},
      {"claimed_without_tape_device = yes\n",
       "ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"},
  };
  for (const auto& c : cases) {
    ProgramRun run = run_with_vtape(c.description, "");
    EXPECT_EQ(1, run.exit_code) << c.description;
    EXPECT_EQ(c.screen, run.screen) << c.description;
    EXPECT_EQ("", run.errors) << c.description;
  }
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
