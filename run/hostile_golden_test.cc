// Whole runs of what a careless or hostile user tries: command lines longer
// than the parser counts, numbers that do not fit their settings, files of
// the run that are one file, damaged virtual tapes, signals at any moment.
// One table of golden rows (see testing/golden_run.h). Arguments may use the
// shell, e.g. to write a large file or argument list on the spot.
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

const GoldenCase kHostileCases[] = {
    // 65,534 arguments are the most a 16-bit count holds with the program
    // name; one more is refused before any option is looked at, so the run
    // cannot fall back to the real drive at the default address.
    {"args_too_many", "$(yes /uld | head -n 65535) /vtape", nullptr, false, 1},
    {"args_most", "$(yes /uld | head -n 65531) /megs 1 /vtape", nullptr, false, 0},
    // The same limit for the tokens of a configuration file.
    {"cfg_too_many_tokens", "$(yes /uld | head -n 65535 >many.cfg) /cfg many.cfg /vtape", nullptr, false, 1},
    {"cfg_most_tokens", "$(yes /uld | head -n 65534 >many.cfg) /cfg many.cfg /h", nullptr, false, 0},
    // Values cut to their settings' width, and numbers without a digit: used
    // as the classic program uses them, each a reason under /strict.
    {"values_cut", "/loop 65536 /hanum 256 /bus 256 /tid 0x102 /lun 256 /den 256 /dsc VIRTUAL-TAPE 65536 /vtape",
     nullptr, true, 0},
    {"strict_values_cut",
     "/loop 65536 /hanum 256 /bus 256 /tid 0x102 /lun 256 /den 256 /dsc VIRTUAL-TAPE 65536 /strict /vtape", nullptr,
     true, 2},
    {"strict_no_digits", "/megs 0x /sdint h /den h /megs 1Fh /sdint 99999999999 /strict /vtape", nullptr, false,
     2},
    // The results file: the options exactly as given (suffixes and all) and
    // each value not used as written, as given and as used.
    {"json_values_cut", "/megs 101b /loop 65537 /lun 400h /ofile /dev/null /json results.jsonl /vtape", nullptr, false,
     0, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration "
     "result:failed:0:/loop 65537 used as 1, cut to 16 bits;/lun 400h used as 0, cut to 8 bits",
     -1,
     R"({"options": ["/megs", "101b", "/loop", "65537", "/lun", "400h", "/ofile", "/dev/null", "/json",
                     "results.jsonl", "/vtape"],
         "option_values_not_as_given": [
           {"option": "/loop", "given": "65537", "used": 1, "why": "cut to 16 bits"},
           {"option": "/lun", "given": "400h", "used": 0, "why": "cut to 8 bits"}]})"},
    // /strict: the RESULT line agrees with the exit code when the report
    // could not be written, and ends an interrupted run.
    {"strict_ofile_full_disk", "/ofile /dev/full /megs 1 /strict /vtape", nullptr, false, 1},
    {"strict_break_in_write", "/megs 2 /sdint 1 /strict /vtape drive.vtape", "break_at_command = 20\n", false, 1},
    // SIGTERM and SIGHUP end the run as CTRL-C does: the same report, and
    // a whole chart.
    {"break_terminate", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "break_at_command = 20\nbreak_signal = terminate\n", false, 1, "break_in_write"},
    {"break_terminate_json", "/megs 2 /sdint 1 /json results.jsonl /vtape drive.vtape",
     "break_at_command = 22\nbreak_signal = terminate\n", false, 1, "break_in_write_json",
     "run:VT00000001 result:interrupted:1:interrupted by SIGTERM"},
    {"break_hangup_chart", "/megs 2 /sdint 1 /plot chart.svg /json results.jsonl /vtape drive.vtape",
     "break_at_command = 50\nbreak_signal = hangup\n", false, 1, "break_in_read_chart",
     "run:VT00000001 write:complete write:complete result:interrupted:1:interrupted by SIGHUP", 0},
    // The virtual drive's backing file: saved at the end and after a
    // break; a save that fails is exit code 1 and keeps the cartridge saved
    // before (tape.vt.new on a full disk); a file whose headers claim more
    // data than it holds is refused.
    {"backing_saved", "/megs 1 /maxtl 0x400 /vtape drive.vtape", "backing_file = tape.vt\n", false, 0},
    {"backing_break_saved", "/megs 1 /maxtl 0x400 /vtape drive.vtape",
     "backing_file = tape.vt\nbreak_at_command = 300\nbreak_signal = terminate\n", false, 1},
    {"backing_disk_full", "$(ln -s /dev/full tape.vt.new) /megs 1 /strict /vtape drive.vtape",
     "backing_file = tape.vt\n", false, 1},
    {"backing_claims_too_much", "/vtape drive.vtape", "backing_file = tape.vt\n", false, 1},
    // Two files of the run that are one file, however they are spelled,
    // are refused before anything is opened for writing: two outputs, or
    // an output and an input. Files to be created are one file when their
    // directories are and their names match; devices are no such file.
    {"same_file_spelled_twice", "/ofile s.txt /json ./s.txt /vtape", nullptr, false, 1},
    {"same_file_hard_link", "$(ln pattern.bin same.bin) /ofile same.bin /dfile pattern.bin /vtape", nullptr, false,
     1},
    {"same_file_dangling_link", "$(ln -s later.txt link.txt) /cfile link.txt /plot later.txt /vtape", nullptr,
     false, 1},
    {"same_file_report_and_cdb", "/ofile x /cfile x /vtape", nullptr, false, 1},
    {"same_file_json_and_dsc", "/dsc VIRTUAL-TAPE /json bftdtest.dsc /vtape", nullptr, true, 1},
    {"same_file_chart_and_cfg", "/cfg run.cfg /plot ./run.cfg /vtape", nullptr, false, 1},
    {"same_file_report_and_description", "/ofile drive.vtape /vtape drive.vtape", "compression = off\n", false, 1},
    {"same_file_cdb_and_backing", "/cfile tape.vt /vtape drive.vtape", "backing_file = ./tape.vt\n", false, 1},
    {"same_file_devices", "/ofile /dev/null /cfile /dev/null /megs 1 /vtape", nullptr, false, 0},
    // A directory is no description, as it is no configuration file.
    {"vtape_directory", "/vtape .", nullptr, false, 1},
};

INSTANTIATE_TEST_SUITE_P(Hostile, GoldenRun, ::testing::ValuesIn(kHostileCases), golden_case_name);

}  // namespace
