#include "run/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "drive_status/dsc_config.h"
#include "settings/settings.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

constexpr const char* kIllegal = "ERROR: illegal character(s) in number string\r\n";
constexpr const char* kMaxTransferZero =
    "ERROR: maximum write/read data transfer length must be greater than zero\n";
constexpr const char* kBlockSizeTooLarge =
    "ERROR: logical block size cannot be greater than maximum write/read data\n"
    "transfer length\n";

// Runs the parser on a command line (program name first) with fresh settings
// and captures what it writes.
struct Parse {
  int result;
  std::string screen;
  std::string errors;
};

Parse parse(std::vector<std::string> words) {
  reset_settings();
  reset_option_parser();
  reset_dsc_entries();
  words.insert(words.begin(), "bftdtest");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  OutputCapture capture;
  int result = parse_options(static_cast<uint16_t>(words.size()), arguments.data());
  return {result, capture.screen(), capture.errors()};
}

TEST(Options, NoOptionsKeepTheDefaults) {
  Parse p = parse({});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ("", p.screen + p.errors);
  EXPECT_STREQ("bftdtest.out", test_settings.output_file_name);
  EXPECT_STREQ("wb", test_settings.output_file_mode);
  EXPECT_EQ(2, test_settings.scsi_id);
  EXPECT_EQ(1, test_settings.iterations);
  EXPECT_EQ(128.0, test_settings.total_megabytes);
  EXPECT_EQ(0x400u, test_settings.logical_block_size);
  EXPECT_EQ(0x10000u, test_settings.max_transfer_length);
  EXPECT_EQ(0, test_settings.data_pattern_type);
  EXPECT_EQ(0, test_settings.virtual_drive_enabled);
  EXPECT_EQ(1, exit_code);
}

TEST(Options, EachOptionSetsItsFields) {
  EXPECT_EQ(0, parse({"/hanum", "3", "/bus", "1", "/tid", "0x102", "/lun", "0Bh", "/den",
                      "0x8C", "/loop", "0x10003", "/megs", "0x40", "/sdint", "16",
                      "/maxtl", "8000h", "/lbsize", "512", "/uld"})
                   .result);
  EXPECT_EQ(3, test_settings.host_adapter_number);
  EXPECT_EQ(1, test_settings.bus_number);
  EXPECT_EQ(2, test_settings.scsi_id);  // low 8 bits
  EXPECT_EQ(11, test_settings.lun);
  EXPECT_EQ(0x8C, test_settings.density_code);
  EXPECT_EQ(3, test_settings.iterations);  // low 16 bits
  EXPECT_EQ(64.0, test_settings.total_megabytes);
  EXPECT_EQ(16.0, test_settings.interval_megabytes);
  EXPECT_EQ(1, test_settings.interval_given);
  EXPECT_EQ(0x8000u, test_settings.max_transfer_length);
  EXPECT_EQ(512u, test_settings.logical_block_size);
  EXPECT_EQ(1, test_settings.unload_each_iteration);

  EXPECT_EQ(0, parse({"/ofile", "a.out", "/afile", "b.out", "/cfile", "c.lst"}).result);
  EXPECT_STREQ("b.out", test_settings.output_file_name);
  EXPECT_STREQ("ab", test_settings.output_file_mode);
  EXPECT_STREQ("c.lst", test_settings.cdb_list_file_name);
  EXPECT_EQ(1, test_settings.cdb_list_enabled);
  EXPECT_EQ(0, parse({"/afile", "b.out", "/ofile", "a.out"}).result);
  EXPECT_STREQ("wb", test_settings.output_file_mode);

  EXPECT_EQ(0, parse({"/drand", "/dfile", "p.bin"}).result);
  EXPECT_EQ(2, test_settings.data_pattern_type);
  EXPECT_STREQ("p.bin", test_settings.pattern_file_name);
  EXPECT_EQ(0, parse({"/dfile", "p.bin", "/drand"}).result);
  EXPECT_EQ(1, test_settings.data_pattern_type);
  EXPECT_EQ(0, test_settings.random_pattern_repeats);

  EXPECT_EQ(0, parse({"/lbsize", "ms", "/maxtl", "10"}).result);
  EXPECT_EQ(1, test_settings.block_size_from_mode_sense);
  EXPECT_EQ(0x400u, test_settings.logical_block_size);  // left for the drive to tell
}

TEST(Options, LongFileNamesAreCutTo127Characters) {
  std::string name(200, 'n');
  EXPECT_EQ(0, parse({"/ofile", name, "/dfile", name, "/cfile", name, "/vtape", name}).result);
  std::string cut(127, 'n');
  EXPECT_EQ(cut, test_settings.output_file_name);
  EXPECT_EQ(cut, test_settings.pattern_file_name);
  EXPECT_EQ(cut, test_settings.cdb_list_file_name);
  EXPECT_EQ(cut, test_settings.virtual_drive_file_name);
}

TEST(Options, ValueIsTakenEvenWhenItLooksLikeAnOption) {
  Parse p = parse({"/megs", "/loop", "/uld"});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ(kIllegal, p.screen);
  EXPECT_EQ(0.0, test_settings.total_megabytes);
  EXPECT_EQ(1, test_settings.iterations);
  EXPECT_EQ(1, test_settings.unload_each_iteration);

  EXPECT_EQ(0, parse({"/ofile", "/uld"}).result);
  EXPECT_STREQ("/uld", test_settings.output_file_name);
  EXPECT_EQ(0, test_settings.unload_each_iteration);

  p = parse({"/lbsize", "MS"});  // only "ms" in lower case is the word
  EXPECT_EQ(0, p.result);
  EXPECT_EQ(kIllegal, p.screen);
  EXPECT_EQ(0u, test_settings.logical_block_size);
  EXPECT_EQ(0, test_settings.block_size_from_mode_sense);
}

TEST(Options, OptionNamesMatchInFullWithCase) {
  for (const char* word : {"/MEGS", "/meg", "/megs2", "megs", "-H", "/H", ""}) {
    Parse p = parse({word, "1"});
    EXPECT_EQ(-1, p.result) << word;
    EXPECT_EQ(std::string("ERROR: invalid option on command line -- \"") + word + "\"\n",
              p.errors);
  }
  // The first failing option stops the loop: /uld after it is not looked at.
  EXPECT_EQ(-1, parse({"/bogus", "/uld"}).result);
  EXPECT_EQ(0, test_settings.unload_each_iteration);
}

TEST(Options, RandomPatternRepeatsOnlyWithLowerCaseR) {
  EXPECT_EQ(0, parse({"/drand", "repeat"}).result);
  EXPECT_EQ(1, test_settings.data_pattern_type);
  EXPECT_EQ(1, test_settings.random_pattern_repeats);

  Parse p = parse({"/drand", "Repeat"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(1, test_settings.data_pattern_type);
  EXPECT_EQ(0, test_settings.random_pattern_repeats);
  EXPECT_EQ("ERROR: invalid option on command line -- \"Repeat\"\n", p.errors);
}

TEST(Options, VirtualDriveTakesAnOptionalDescriptionFile) {
  EXPECT_EQ(0, parse({"/vtape"}).result);
  EXPECT_EQ(1, test_settings.virtual_drive_enabled);
  EXPECT_STREQ("", test_settings.virtual_drive_file_name);

  EXPECT_EQ(0, parse({"/vtape", "drive.txt", "/loop", "2"}).result);
  EXPECT_STREQ("drive.txt", test_settings.virtual_drive_file_name);
  EXPECT_EQ(2, test_settings.iterations);

  EXPECT_EQ(0, parse({"/vtape", "/loop", "2"}).result);
  EXPECT_EQ(1, test_settings.virtual_drive_enabled);
  EXPECT_STREQ("", test_settings.virtual_drive_file_name);
  EXPECT_EQ(2, test_settings.iterations);
}

TEST(Options, OptionWithoutItsValueIsRefused) {
  for (const char* option : {"/cfg", "/ofile", "/afile", "/cfile", "/dfile", "/hanum", "/bus",
                             "/tid", "/lun", "/den", "/loop", "/megs", "/sdint", "/lbsize",
                             "/maxtl", "/dsc"}) {
    Parse p = parse({"/uld", option});
    EXPECT_EQ(-1, p.result) << option;
    EXPECT_EQ(std::string("ERROR: option \"") + option + "\" needs a value\n", p.errors);
    EXPECT_EQ("", p.screen) << option;
  }
  // The optional values may be left out.
  EXPECT_EQ(0, parse({"/drand"}).result);
  EXPECT_EQ(0, parse({"/uld", "/vtape"}).result);
}

TEST(Options, EndOfLineChecksRunInOrderAfterTheLoop) {
  Parse p = parse({"/maxtl", "0"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(std::string(kMaxTransferZero) + kBlockSizeTooLarge, p.errors);

  p = parse({"/maxtl", "0x200", "/lbsize", "0x400"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(kBlockSizeTooLarge, p.errors);

  p = parse({"/maxtl", "0", "/lbsize", "ms"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(kMaxTransferZero, p.errors);

  p = parse({"/lbsize", "0x10000"});  // equal is fine
  EXPECT_EQ(0, p.result);
  EXPECT_EQ("", p.errors);

  // The checks run after a failing option too, and add their messages.
  p = parse({"/maxtl", "0", "/lbsize", "0", "/bogus"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(std::string("ERROR: invalid option on command line -- \"/bogus\"\n") +
                kMaxTransferZero,
            p.errors);
}

TEST(Options, HelpStopsWithExitCodeZeroAndShowsEarlierOptions) {
  Parse p = parse({"/tid", "0x0B", "/loop", "3", "/?", "/bogus"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(0, exit_code);
  EXPECT_EQ("", p.errors);  // /bogus after the help screen is not looked at
  EXPECT_NE(std::string::npos, p.screen.find("  tape drive SCSI id\t\t\t\t= B\n"));
  EXPECT_NE(std::string::npos,
            p.screen.find("  number of test iterations to perform\t\t= 3\n"));

  p = parse({"/maxtl", "0", "/?"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(0, exit_code);
  EXPECT_NE(std::string::npos,
            p.screen.find("  maximum write/read data transfer length\t= 0x0 bytes\n"));
  EXPECT_EQ(std::string(kMaxTransferZero) + kBlockSizeTooLarge, p.errors);
}

TEST(ConfigFile, OptionsTakeEffectWhereCfgStands) {
  WorkDirectory directory;
  directory.write_file("run.cfg",
                       "  /megs=0x40, /loop 3\r\n"
                       "megs 64\r\n"
                       "; /tid 5 in a comment\n"
                       "\t/den\t0x25\x1a\n"
                       "/hanum,1,/bus=2\n"
                       "/ofile\n"
                       "out.txt\n"
                       "/dfile\n"
                       "/lun 4\n");
  Parse p = parse({"/loop", "9", "/tid", "6", "/cfg", "run.cfg", "/megs", "5"});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ("", p.errors);
  EXPECT_EQ(3, test_settings.iterations);       // the file overrides what came before
  EXPECT_EQ(5.0, test_settings.total_megabytes);  // and what comes after overrides the file
  EXPECT_EQ(6, test_settings.scsi_id);
  EXPECT_EQ(0x25, test_settings.density_code);
  EXPECT_EQ(1, test_settings.host_adapter_number);
  EXPECT_EQ(2, test_settings.bus_number);
  // Consecutive option lines follow each other: /ofile takes /dfile as its name.
  EXPECT_STREQ("/dfile", test_settings.output_file_name);
  EXPECT_EQ(4, test_settings.lun);
}

TEST(ConfigFile, NestedCfgIsIgnoredWithItsName) {
  WorkDirectory directory;
  directory.write_file("outer.cfg", "/loop 2 /cfg inner.cfg /megs 7\n");
  directory.write_file("inner.cfg", "/tid 9\n");
  Parse p = parse({"/cfg", "outer.cfg"});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ("", p.errors);
  EXPECT_EQ(2, test_settings.iterations);
  EXPECT_EQ(7.0, test_settings.total_megabytes);
  EXPECT_EQ(2, test_settings.scsi_id);

  // Several /cfg options on the command line are read one after the other.
  EXPECT_EQ(0, parse({"/cfg", "outer.cfg", "/cfg", "inner.cfg"}).result);
  EXPECT_EQ(9, test_settings.scsi_id);
}

TEST(ConfigFile, NameIsCutToTwelveCharacters) {
  WorkDirectory directory;
  Parse p = parse({"/cfg", "abcdefghijklmnopqrst"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("ERROR: unable to open configuration file \"abcdefghijkl\" for input\n", p.errors);

  directory.write_file("abcdefghijkl", "/loop 4\n");
  EXPECT_EQ(0, parse({"/cfg", "abcdefghijklmnopqrst"}).result);
  EXPECT_EQ(4, test_settings.iterations);
}

TEST(ConfigFile, LinesAreReadInPiecesOf258Characters) {
  WorkDirectory directory;
  // The piece after the first 258 characters is a line of its own: it counts
  // when it begins with an option and is ignored when it begins with a value.
  directory.write_file("long.cfg", "/tid 5" + std::string(252, ' ') + "/lun 3\n" +
                                       "/uld" + std::string(254, ' ') + "megs 64\n");
  EXPECT_EQ(0, parse({"/cfg", "long.cfg"}).result);
  EXPECT_EQ(5, test_settings.scsi_id);
  EXPECT_EQ(3, test_settings.lun);
  EXPECT_EQ(128.0, test_settings.total_megabytes);

  // A value cut off into the next piece leaves its option without a value.
  directory.write_file("split.cfg", "/loop" + std::string(253, ' ') + "7\n");
  Parse p = parse({"/cfg", "split.cfg"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("ERROR: option \"/loop\" needs a value\n", p.errors);
}

TEST(ConfigFile, LongTokensAreKeptWhole) {
  WorkDirectory directory;
  std::string name(100, 'f');
  directory.write_file("names.cfg", "/ofile " + name + "\n/dfile " + std::string(150, 'p'));
  EXPECT_EQ(0, parse({"/cfg", "names.cfg"}).result);
  EXPECT_EQ(name, test_settings.output_file_name);
  EXPECT_EQ(std::string(127, 'p'), test_settings.pattern_file_name);
}

TEST(ConfigFile, ErrorsInsideTheFileEndTheParse) {
  WorkDirectory directory;
  directory.write_file("bad.cfg", "/loop 2 /bogus /uld\n");
  Parse p = parse({"/cfg", "bad.cfg", "/tid", "7"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("ERROR: invalid option on command line -- \"/bogus\"\n", p.errors);
  EXPECT_EQ(0, test_settings.unload_each_iteration);
  EXPECT_EQ(2, test_settings.scsi_id);

  directory.write_file("last.cfg", "/uld /megs\n");
  p = parse({"/cfg", "last.cfg", "/megs", "3"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("ERROR: option \"/megs\" needs a value\n", p.errors);

  // The end-of-line checks run once, at the end of the command line.
  directory.write_file("zero.cfg", "/maxtl 0\n");
  p = parse({"/cfg", "zero.cfg", "/maxtl", "0x400"});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ("", p.errors);

  // An argument count holds at most 65534 tokens; more are refused, not cut.
  std::string many;
  for (int i = 0; i < 65535; ++i) many += "/uld\n";
  directory.write_file("many.cfg", many);
  p = parse({"/cfg", "many.cfg"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("ERROR: too many options in configuration file \"many.cfg\"\n", p.errors);
  EXPECT_EQ(0, test_settings.unload_each_iteration);
  directory.write_file("many.cfg", many.substr(5));
  EXPECT_EQ(0, parse({"/cfg", "many.cfg"}).result);
  EXPECT_EQ(1, test_settings.unload_each_iteration);

  directory.write_file("help.cfg", "/tid 4 /?\n");
  p = parse({"/cfg", "help.cfg", "/uld"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ(0, exit_code);
  EXPECT_NE(std::string::npos, p.screen.find("  tape drive SCSI id\t\t\t\t= 4\n"));
  EXPECT_EQ(0, test_settings.unload_each_iteration);
}

TEST(ConfigFile, ReadConfigArgsCountsAndCopiesTokens) {
  WorkDirectory directory;
  directory.write_file("count.cfg", "/a=1,2\nskip me\n\n/b\r\n");
  FILE* file = std::fopen("count.cfg", "rb");
  ASSERT_NE(nullptr, file);
  EXPECT_EQ(5, read_config_args(file, 0, nullptr));
  char* list[5] = {};
  EXPECT_EQ(5, read_config_args(file, 1, list, 5));
  std::fclose(file);
  EXPECT_STREQ("/a", list[1]);
  EXPECT_STREQ("1", list[2]);
  EXPECT_STREQ("2", list[3]);
  EXPECT_STREQ("/b", list[4]);
  for (int i = 1; i < 5; ++i) delete[] list[i];
}

TEST(DriveStatusOption, LabelWithAndWithoutDelay) {
  WorkDirectory directory;
  directory.write_file("bftdtest.dsc", "DRIVE1\nDECC LSD 3 12 4 1\n");
  Parse p = parse({"/dsc", "DRIVE1", "500"});
  EXPECT_EQ(0, p.result);
  EXPECT_EQ(500, test_settings.status_delay_ms);
  EXPECT_EQ(1, test_settings.drive_status_enabled);
  EXPECT_EQ(1, dsc_entries[kDscDecc].selected);

  EXPECT_EQ(0, parse({"/dsc", "DRIVE1", "/loop", "2"}).result);
  EXPECT_EQ(0, test_settings.status_delay_ms);
  EXPECT_EQ(2, test_settings.iterations);
  EXPECT_EQ(1, test_settings.drive_status_enabled);

  EXPECT_EQ(0, parse({"/dsc", "DRIVE1"}).result);  // the delay may be left out at the end

  p = parse({"/dsc", "OTHER", "/uld"});
  EXPECT_EQ(-1, p.result);
  EXPECT_EQ("DSC FILE ERROR: unable to find \"OTHER\" in DSC file\r\n", p.screen);
  EXPECT_EQ(0, test_settings.unload_each_iteration);
}

}  // namespace
