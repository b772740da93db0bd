// Every fault of the virtual drive's description file, at the first command,
// in the middle and at the last command of the write test and of the
// read/compare test, with and without drive status collection, through the
// real executable. Whatever fails, the operator finds the failure line and
// the status report in a complete output file, and a CDB list file that
// holds every command sent, the failing one last.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "testing/process_testing.h"
#include "testing/report_files_testing.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

// 2 MB in two intervals of 16 commands of 64 KB: writes and reads are each
// numbered 1 to 32 over the run, 17 opens the second interval.
const std::vector<std::string> kSmallTest = {"/megs", "2", "/sdint", "1"};
constexpr unsigned kCommandsPerTest = 32;

struct FaultCase {
  std::string name;
  std::string description;         // the virtual drive's description file
  std::vector<std::string> sizes;  // the test's size options
  int exit_code;
  std::string failure;             // text the output file must hold
  std::string status_report;       // the status report's start after it ("": none)
  unsigned writes;                 // Write(6) commands in the CDB list
  unsigned reads;                  // Read(6) commands in the CDB list
  int last_opcode;                 // of the last listed command
  std::string ending = "";         // a further text the output file must hold
};

const char kBlankCheck[] =
    "hit \"blank check\" reading/comparing data at SCSI id 2 LUN 0 (aborting all\r\nread "
    "testing)\r\n";

const char kWriteFailure[] =
    "ERROR: failure writing data at SCSI id 2 LUN 0 (aborting all write testing)\r\n";
const char kReadFailure[] =
    "ERROR: failure reading/comparing data at SCSI id 2 LUN 0 (aborting all read\r\ntesting)\r\n";
const char kMediumError[] =
    "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 02 (check condition)\r\n"
    "SRB sense key .... 03 (medium error)";
const char kFilemark[] =
    "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 02 (check condition)\r\n"
    "SRB sense key .... 80 (no sense); FMK";

std::vector<FaultCase> fault_cases() {
  std::vector<FaultCase> cases;
  for (unsigned at : {1u, 17u, kCommandsPerTest}) {
    std::string n = std::to_string(at);
    cases.push_back({"fail_write_at " + n, "fail_write_at = " + n + "\n", kSmallTest, 1,
                     kWriteFailure, kMediumError, at, 0, 0x0A});
    cases.push_back({"fail_read_at " + n, "fail_read_at = " + n + "\n", kSmallTest, 1,
                     kReadFailure, kMediumError, kCommandsPerTest, at, 0x08});
    cases.push_back({"filemark_at_read " + n, "filemark_at_read = " + n + "\n", kSmallTest, 1,
                     kReadFailure, kFilemark, kCommandsPerTest, at, 0x08});
    // Read commands are counted per interval in the message.
    std::string in_interval = std::to_string((at - 1) % 16 + 1);
    cases.push_back({"corrupt_read_at " + n, "corrupt_read_at = " + n + ":100\n", kSmallTest, 1,
                     "ERROR: data miscompare after read command " + in_interval +
                         " at offset 0x64\r\nfor SCSI id 2 LUN 0\r\n",
                     "", kCommandsPerTest, at, 0x08});
  }
  // Three 1 MB commands on a tape whose early-warning zone starts at 1, 2
  // or 3 MB: the first, second or last write meets the end of the medium
  // (and is written), and the read/compare test meets blank check after
  // what was written, unless that is the whole test.
  for (unsigned at : {1u, 2u, 3u}) {
    cases.push_back({"end of medium at write " + std::to_string(at),
                     "capacity_mb = " + std::to_string(at + 2) +
                         "\nearly_warning_mb = 2\ncompression = off\n",
                     {"/megs", "3", "/maxtl", "0x100000"},
                     0,
                     "hit \"EOM\" writing data at SCSI id 2 LUN 0 (aborting all write testing)\r\n",
                     "",
                     at,
                     at < 3 ? at + 1 : 3,
                     0x01,
                     at < 3 ? kBlankCheck : "read/compare test interval 1 of 1"});
  }
  return cases;
}

struct RunFiles {
  ChildEnd end;
  std::string output;
  std::string cdb_list;
};

RunFiles run_with_drive(const std::string& description, const std::vector<std::string>& options,
                        bool drive_status) {
  std::vector<std::string> arguments = {"/vtape", "drive.txt", "/cfile", "run.cdb"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  if (drive_status) {
    std::filesystem::copy_file(std::string(BFTDTEST_SOURCE_DIR) + "/bftdtest.dsc", "bftdtest.dsc");
    arguments.insert(arguments.end(), {"/dsc", "VIRTUAL-TAPE"});
  }
  std::FILE* file = std::fopen("drive.txt", "wb");
  std::fputs(description.c_str(), file);
  std::fclose(file);
  RunFiles files;
  files.end = run_bftdtest_child(arguments);
  files.output = read_file_bytes("bftdtest.out");
  files.cdb_list = read_file_bytes("run.cdb");
  return files;
}

TEST(FaultMatrix, EveryFaultEndsWithItsLineAndCompleteFiles) {
  for (bool drive_status : {false, true}) {
    for (const FaultCase& c : fault_cases()) {
      SCOPED_TRACE(c.name + (drive_status ? " with /dsc" : " without /dsc"));
      WorkDirectory directory;
      RunFiles files = run_with_drive(c.description, c.sizes, drive_status);

      ASSERT_TRUE(files.end.ended);
      EXPECT_EQ(c.exit_code, files.end.exit_code) << files.end.errors;
      EXPECT_EQ("", files.end.errors);

      EXPECT_TRUE(ends_with_whole_line(files.output));
      size_t failure = files.output.find(c.failure);
      ASSERT_NE(std::string::npos, failure) << files.output;
      if (!c.status_report.empty()) {
        EXPECT_EQ(c.status_report,
                  files.output.substr(failure + c.failure.size(), c.status_report.size()));
      }
      if (c.exit_code == 1) {
        // Nothing follows the failure but its status report (a hex dump).
        std::string rest = files.output.substr(failure + c.failure.size());
        EXPECT_EQ(c.status_report.empty(), rest.empty()) << rest;
        if (!rest.empty()) {
          EXPECT_EQ("000010: ", rest.substr(rest.rfind("\r\n0000") + 2, 8));
        }
      } else {
        EXPECT_NE(std::string::npos, files.output.find(c.ending, failure)) << files.output;
      }
      // The counters are reported after every interval that ran through.
      bool first_interval_ended = !(c.writes == 1 && c.exit_code == 1);
      EXPECT_EQ(drive_status && first_interval_ended,
                files.output.find("drive read/write retry counter") != std::string::npos);

      std::vector<std::vector<uint8_t>> cdbs;
      std::string problem;
      ASSERT_TRUE(parse_cdb_list(files.cdb_list, &cdbs, &problem)) << problem;
      ASSERT_FALSE(cdbs.empty());
      EXPECT_EQ(c.writes, count_opcode(cdbs, kWrite6));
      EXPECT_EQ(c.reads, count_opcode(cdbs, kRead6));
      EXPECT_EQ(c.last_opcode, cdbs.back()[0]);
      EXPECT_EQ(drive_status, count_opcode(cdbs, kLogSense) > 0);
    }
  }
}

}  // namespace

namespace {

// The faults of the unload/reload step (`/uld`) and of the drive's error
// counters, which end a run differently: only a refused command fails it.
TEST(FaultMatrix, UnloadReloadAndErrorRateFaults) {
  const struct {
    const char* name;
    const char* description;
    std::vector<std::string> options;
    int exit_code;
    const char* text;  // the output file holds it
    int last_opcode;
  } cases[] = {
      // Test Unit Ready answers NOT READY once after the load: the ready
      // wait polls until the drive is ready and the run goes on.
      {"not_ready_polls", "not_ready_polls = 1\nprevent_allow = unsupported\n",
       {"/megs", "1", "/uld"}, 0, "\r\nunloading/reloading drive ...\r\n", kTestUnitReady},
      {"load_unload unsupported", "load_unload = unsupported\n", {"/megs", "1", "/uld"}, 0,
       "ERROR: \"load/unload\" command is not supported (aborting \"/uld\" option\r\n"
       "for SCSI id 2 LUN 0)\r\n",
       0x1E},
      // A drive that refuses to unload a cartridge whose removal is prevented.
      {"unload while prevented", "unload_when_prevented = refuse\n", {"/megs", "1", "/uld"}, 1,
       "ERROR: unable to unload drive at SCSI id 2 LUN 0\r\n\r\nWin32 SRB status . 00 (no error)\r\n"
       "SRB targ status .. 02 (check condition)\r\nSRB sense key .... 05 (illegal request)\r\n",
       kLoadUnload},
      // High error rates fail the verdicts, not the run.
      {"rewrite_percent and corrected_percent", "rewrite_percent = 5\ncorrected_percent = 2\n",
       {"/megs", "2", "/sdint", "1", "/dsc", "VIRTUAL-TAPE"}, 0,
       "maximum RWR percentage calculated ............ 5.0% (failed)\r\n"
       "maximum ECC percentage calculated ............ 2.0% (failed)\r\n",
       kRewind},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WorkDirectory directory;
    std::vector<std::string> options = c.options;
    bool drive_status = options.back() == "VIRTUAL-TAPE";
    if (drive_status) options.resize(options.size() - 2);
    RunFiles files = run_with_drive(c.description, options, drive_status);

    ASSERT_TRUE(files.end.ended);
    EXPECT_EQ(c.exit_code, files.end.exit_code);
    EXPECT_EQ("", files.end.errors);
    EXPECT_TRUE(ends_with_whole_line(files.output));
    EXPECT_NE(std::string::npos, files.output.find(c.text)) << files.output;

    std::vector<std::vector<uint8_t>> cdbs;
    std::string problem;
    ASSERT_TRUE(parse_cdb_list(files.cdb_list, &cdbs, &problem)) << problem;
    ASSERT_FALSE(cdbs.empty());
    EXPECT_EQ(c.last_opcode, cdbs.back()[0]);
    if (std::string(c.name) == "not_ready_polls") {
      // After the load (Load/Unload with the LOAD bit) the drive was polled
      // until it answered ready: more than one Test Unit Ready.
      size_t load = cdbs.size();
      while (load > 0 && !(cdbs[load - 1][0] == kLoadUnload && (cdbs[load - 1][4] & 1) != 0)) {
        --load;
      }
      ASSERT_GT(load, 0u);
      EXPECT_EQ(cdbs.size() - load, count_opcode({cdbs.begin() + static_cast<long>(load),
                                                  cdbs.end()},
                                                 kTestUnitReady));
      EXPECT_GE(cdbs.size() - load, 2u);
    }
  }
}

}  // namespace
