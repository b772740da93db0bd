// Whole runs of the classic program and of its options, as one table of
// golden rows (see testing/golden_run.h for how a row is run and compared).
#include <gtest/gtest.h>

#include <string>

#include "testing/golden_run.h"

namespace {

const char kCapacityEom[] = "capacity_mb = 8\nearly_warning_mb = 2\ncompression = off\n";

// Each case's drive description and options; the expected files were checked
// line by line against the program's messages.
const GoldenCase kGoldenCases[] = {
    {"defaults", "/vtape", nullptr, false, 0},
    {"sizing_block_size_1000", "/lbsize 1000 /vtape", nullptr, false, 0},
    {"sizing_intervals", "/lbsize 0 /maxtl 100000 /sdint 10 /vtape", nullptr, false, 0},
    {"plan_too_large", "/lbsize 0 /maxtl 0x1000000 /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    // 3 MB per test: 30 KB of 3072 rewritten in the first iteration (1.0 %,
    // passed), 31 KB in the second (1.0 %, failed); ECC 2 % in both.
    {"dsc_rwr_verdict", "/dsc VIRTUAL-TAPE /loop 2 /megs 3 /vtape drive.vtape",
     "rewrite_percent = 1\ncorrected_percent = 2\n", true, 0},
    // Early warning at 6 MB: EOM on the 96th Write, blank check on the 97th Read.
    {"eom_blank_check", "/megs 16 /sdint 4 /cfile bftdtest.cdb /vtape drive.vtape", kCapacityEom, false, 0},
    {"write_failure", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "fail_write_at = 20\n", false, 1},
    {"read_failure", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "fail_read_at = 30\n", false, 1},
    {"filemark_on_read", "/megs 2 /cfile bftdtest.cdb /vtape drive.vtape", "filemark_at_read = 10\n", false, 1},
    {"miscompare", "/megs 2 /drand r /cfile bftdtest.cdb /vtape drive.vtape", "corrupt_read_at = 21:0x234\n",
     false, 1},
    // Prevent/Allow rejected once (then skipped), Load/Unload with a NOT READY
    // poll after each load.
    {"unload_reload", "/uld /loop 2 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "not_ready_polls = 1\nprevent_allow = unsupported\n", false, 0},
    // The default drive: Prevent, Unload, Load, the ready wait, Allow.
    {"unload_reload_prevented", "/uld /loop 2 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "not_ready_polls = 1\n", false, 0},
    // A drive that takes Mode Select only with the page format bit: refused
    // without it (24/00), sent again with it, one note line.
    {"mode_select_page_format", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "mode_select_pf = required\n", false, 0},
    // The second Mode Select fails too (unknown density, 26/00): its report.
    {"mode_select_refused", "/den 0x13 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "mode_select_pf = required\n", false, 1},
    // The results file beside the unchanged report; the CDB list gains
    // Inquiry VPD 00h and 80h.
    {"json_complete", "/json results.jsonl /vtape", nullptr, false, 0, "defaults",
     "run:VT00000001 write:complete read_compare:complete iteration result:passed:0"},
    {"json_eom", "/megs 16 /sdint 4 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "capacity_mb = 8\nearly_warning_mb = 2\ncompression = off\nserial = none\n", false, 0, "eom_blank_check",
     "run:- write:complete write:eom read_compare:complete read_compare:blank_check iteration "
     "result:passed:0"},
    {"json_write_failure", "/megs 2 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "fail_write_at = 20\n", false, 1, "write_failure", "run:VT00000001 write:error result:failed:1:write failure"},
    {"json_miscompare", "/megs 2 /drand r /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "corrupt_read_at = 21:0x234\n", false, 1, "miscompare",
     "run:VT00000001 write:complete read_compare:miscompare@21+0x234 result:failed:1:data miscompare"},
    // /strict: each reason that keeps a run that went through from passing.
    {"strict_passed", "/megs 2 /strict /json results.jsonl /vtape", nullptr, false, 0, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration result:passed:0"},
    {"strict_verdicts", "/dsc VIRTUAL-TAPE /loop 2 /megs 3 /strict /json results.jsonl /vtape drive.vtape",
     "rewrite_percent = 1\ncorrected_percent = 2\n", true, 2, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration:rwr=passed:ecc=failed write:complete "
     "read_compare:complete iteration:rwr=failed:ecc=failed "
     "result:failed:2:RWR verdict failed (1.0%);ECC verdict failed (2.0%)"},
    {"strict_nothing_verified", "/megs 0 /strict /vtape", nullptr, false, 2},
    {"strict_amount_cut", "/megs 3 /sdint 2 /strict /json results.jsonl /vtape", nullptr, false, 2, nullptr,
     "run:VT00000001 write:complete read_compare:complete iteration "
     "result:failed:2:amount cut by sizing to 2.000 MB of 3.000 MB asked"},
    {"strict_illegal_number", "/megs 2x /strict /vtape", nullptr, false, 2},
    {"strict_unload_unsupported", "/uld /megs 1 /strict /vtape drive.vtape", "load_unload = unsupported\n", false,
     2},
    {"strict_write_failure", "/megs 2 /strict /vtape drive.vtape", "fail_write_at = 20\n", false, 1},
    // /health: flags 04h and 14h at load, 06h raised by the 10th Write,
    // counters past 4 GiB, a rewrite rate with decimals.
    {"health_flags", "/health /megs 2 /cfile bftdtest.cdb /vtape drive.vtape",
     "tapealert = 4, 20\ntapealert_at_write = 10:6\ncounters_at_load_mb = 5000\nrewrite_percent = 2.5\n", false, 0},
    // Page 17h not listed, page 02h failing (reported once over two iterations).
    {"health_pages", "/health /loop 2 /megs 1 /vtape drive.vtape", "log_page_missing = 17h\nlog_page_failing = 2\n",
     false, 0},
    // The shipped real-drive section on the virtual drive's standard page 0Ch.
    {"dsc_ssc_sequential", "/dsc SSC-SEQUENTIAL /megs 2 /vtape", nullptr, true, 0},
    // The preflight warns before the first Write fails on the adapter's limit.
    {"health_preflight", "/health /megs 1 /vtape drive.vtape",
     "max_transfer = 0x8000\ntapealert = 4\nlog_page_failing = 17h\n", false, 1},
    // The same run's health records in the results file.
    {"health_json", "/health /megs 1 /json results.jsonl /vtape drive.vtape",
     "max_transfer = 0x8000\ntapealert = 4\nlog_page_failing = 17h\n", false, 1, "health_preflight",
     "run:VT00000001 health0:fits=0x8000:4:failed=23 write:error health1:4:failed=23 result:failed:1:write failure"},
    // The help screen, under every spelling; with options before it, the
    // settings they made.
    {"help", "'/?'", nullptr, false, 0},
    {"help_long", "--help", nullptr, false, 0},
    {"help_h", "-h", nullptr, false, 0},
    {"help_dash_q", "'-?'", nullptr, false, 0},
    {"help_slash_h", "/h", nullptr, false, 0},
    {"help_with_settings", "/loop 9 /tid 6 /den 0x25 /hanum 1 /bus 2 /lun 4 /lbsize ms /lbsize 1000 /sdint 3 "
     "/maxtl 0x8000 /ofile run.out /megs 5 /h", nullptr, false, 0},
    {"option_unknown", "/bogus", nullptr, false, 1},
    {"option_without_value", "/uld /loop", nullptr, false, 1},
    {"option_value_like_option", "/ofile /uld /h", nullptr, false, 0},
    {"option_bad_ids", "/tid 16 /vtape", nullptr, false, 1},
    {"option_bad_lun", "/lun 8 /vtape", nullptr, false, 1},
    // Configuration files: where /cfg stands, nesting, the name cut to twelve
    // characters, lines read in pieces of 258 characters, errors inside.
    {"cfg_missing", "/cfg missing.cfg", nullptr, false, 1},
    {"cfg_where_it_stands", "/loop 9 /tid 6 /cfg run.cfg /megs 5 /h", nullptr, false, 0},
    {"cfg_nested", "/cfg outer.cfg /h", nullptr, false, 0},
    {"cfg_two", "/cfg outer.cfg /cfg inner.cfg /h", nullptr, false, 0},
    {"cfg_name_cut", "/cfg abcdefghijklmnopqrst", nullptr, false, 1},
    {"cfg_name_cut_found", "/cfg abcdefghijklmnopqrst /h", nullptr, false, 0},
    {"cfg_long_lines", "/cfg long.cfg /h", nullptr, false, 0},
    {"cfg_split_value", "/cfg split.cfg", nullptr, false, 1},
    {"cfg_long_tokens", "/cfg names.cfg /h", nullptr, false, 0},
    {"cfg_bad_option", "/cfg bad.cfg /tid 7", nullptr, false, 1},
    {"cfg_last_without_value", "/cfg last.cfg /megs 3", nullptr, false, 1},
    {"cfg_zero_then_line", "/cfg zero.cfg /maxtl 0x400 /h", nullptr, false, 0},
    {"cfg_help_inside", "/cfg help.cfg /uld", nullptr, false, 0},
    // Files that cannot be opened, read or written: directories stand where
    // files are expected, which stops root as well as anyone else.
    {"ofile_missing_folder", "/ofile missing/run.out /vtape", nullptr, false, 1},
    {"ofile_directory", "/ofile . /vtape", nullptr, false, 1},
    {"cfile_missing_folder", "/cfile missing/run.cdb /vtape", nullptr, false, 1},
    {"ofile_and_cfile_unopenable", "/ofile missing/run.out /cfile . /vtape", nullptr, false, 1},
    {"ofile_unopenable_cfile_fine", "/ofile . /cfile run.cdb /vtape", nullptr, false, 1},
    {"json_unopenable", "/json . /vtape", nullptr, false, 1},
    // A results file or chart named like another file of the run: refused
    // before anything is opened, so the report is not cut short.
    {"json_named_as_report", "/json bftdtest.out /vtape", nullptr, false, 1},
    {"chart_named_as_json", "/cfile run.cdb /json run.cdb /plot chart.svg /vtape", nullptr, false, 1},
    {"ofile_full_disk", "/ofile /dev/full /megs 1 /vtape", nullptr, false, 1},
    // `/iscsi` refusals that every build gives alike, before any login.
    {"iscsi_with_vtape", "/iscsi iscsi://127.0.0.1/iqn.2024-01.test.bftdtest:tape/1 /vtape", nullptr, false, 1},
    {"iscsi_chap_without_secret", "/iscsi iscsi://127.0.0.1/iqn.2024-01.test.bftdtest:tape/1 chap alice /vtape",
     nullptr, false, 1},
    {"dfile_missing", "/dfile missing.bin /megs 1 /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    {"dfile_directory", "/dfile . /megs 1 /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    {"dfile_empty", "/dfile empty.bin /megs 1 /cfile bftdtest.cdb /vtape", nullptr, false, 0},
    {"dfile_pattern", "/dfile pattern.bin /megs 1 /lbsize 0x1000 /vtape", nullptr, false, 0},
    {"dsc_missing", "/dsc VT", nullptr, false, 1},
    {"dsc_directory", "/dsc VT", nullptr, false, 1},
    {"dsc_unknown_label", "/dsc NO-SUCH-DRIVE /vtape", nullptr, true, 1},
    {"megs_beyond_commands", "/megs 0xFFFFFFFF /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    {"maxtl_beyond_command", "/maxtl 0xFFFFFFFF /lbsize 0 /cfile bftdtest.cdb /vtape", nullptr, false, 1},
    // A number after "ms" sets the size and leaves the Mode Sense flag.
    {"lbsize_ms_then_number", "/lbsize ms /lbsize 1000 /megs 1 /cfile bftdtest.cdb /vtape", nullptr, false, 0},
    // LUN bits and variable blocks in every CDB.
    {"cdb_lun_3_variable", "/lun 3 /lbsize 0 /megs 1 /uld /cfile bftdtest.cdb /vtape", nullptr, false, 0},
    // Drives that cannot be tested, found at setup.
    {"setup_disk", "/vtape drive.vtape", "device_type = 0\n", false, 1},
    {"setup_lun_unsupported", "/lun 1 /vtape drive.vtape", "lun_supported = no\n", false, 1},
    {"setup_held", "/cfile bftdtest.cdb /vtape drive.vtape", "held = yes\n", false, 1},
    {"setup_claimed", "/vtape drive.vtape", "claimed_without_tape_device = yes\n", false, 1},
    {"setup_no_medium", "/cfile bftdtest.cdb /vtape drive.vtape", "medium = none\n", false, 1},
    {"setup_bad_description", "/vtape drive.vtape", "capacity_mb = 8\nfail_write_at = 1x\n", false, 1},
    {"setup_bad_percentage", "/vtape drive.vtape", "rewrite_percent = 100.01\n", false, 1},
    {"setup_bad_jitter", "/vtape drive.vtape", "rate_jitter_percent = 91\n", false, 1},
    {"setup_bad_tapealert", "/vtape drive.vtape", "tapealert_at_write = 3:65\n", false, 1},
    {"setup_identity", "/megs 1 /vtape drive.vtape", "vendor = AB\nproduct = 1234567890ABCDEF\nrevision = R\n",
     false, 0},
    // CTRL-C while a command hangs: in the write loop, the read/compare
    // loop, a drive status collection and the ready wait after a reload.
    {"break_in_write", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "break_at_command = 20\n", false,
     1},
    {"break_in_read", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "break_at_command = 50\n", false,
     1},
    {"break_in_write_json", "/megs 2 /sdint 1 /json results.jsonl /vtape drive.vtape", "break_at_command = 22\n",
     false, 1, nullptr, "run:VT00000001 result:interrupted:1:interrupted by CTRL-C"},
    // The chart after CTRL-C is whole: it parses and renders.
    {"break_in_read_chart", "/megs 2 /sdint 1 /plot chart.svg /json results.jsonl /vtape drive.vtape",
     "break_at_command = 50\n", false, 1, nullptr,
     "run:VT00000001 write:complete write:complete result:interrupted:1:interrupted by CTRL-C", 0},
    {"break_in_dsc", "/megs 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape",
     "break_at_command = 10\n", true, 1},
    {"break_in_ready_wait", "/megs 1 /uld /cfile bftdtest.cdb /vtape drive.vtape",
     "not_ready_polls = 3\nprevent_allow = unsupported\nbreak_at_command = 47\n", false, 1},
    // Every fault of the virtual drive at the first, a middle and the last
    // command of its test (2 MB in two intervals: commands 1 to 32, 17 opens
    // the second interval), some with drive status collection.
    {"fault_fail_write_1", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "fail_write_at = 1\n", false, 1},
    {"fault_fail_write_17", "/megs 2 /sdint 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape", "fail_write_at = 17\n", true, 1},
    {"fault_fail_write_32", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "fail_write_at = 32\n", false, 1},
    {"fault_fail_read_1", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "fail_read_at = 1\n", false, 1},
    {"fault_fail_read_17", "/megs 2 /sdint 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape", "fail_read_at = 17\n", true, 1},
    {"fault_fail_read_32", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "fail_read_at = 32\n", false, 1},
    {"fault_filemark_1", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "filemark_at_read = 1\n", false, 1},
    {"fault_filemark_17", "/megs 2 /sdint 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape", "filemark_at_read = 17\n", true, 1},
    {"fault_filemark_32", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "filemark_at_read = 32\n", false, 1},
    {"fault_corrupt_1", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "corrupt_read_at = 1:100\n", false, 1},
    {"fault_corrupt_17", "/megs 2 /sdint 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape", "corrupt_read_at = 17:100\n", true, 1},
    {"fault_corrupt_32", "/megs 2 /sdint 1 /cfile bftdtest.cdb /vtape drive.vtape", "corrupt_read_at = 32:100\n", false, 1},
    // Three 1 MB writes on a tape whose early-warning zone starts at 1, 2 or 3 MB.
    {"fault_eom_1", "/megs 3 /maxtl 0x100000 /cfile bftdtest.cdb /vtape drive.vtape", "capacity_mb = 3\nearly_warning_mb = 2\ncompression = off\n", false, 0},
    {"fault_eom_2", "/megs 3 /maxtl 0x100000 /cfile bftdtest.cdb /vtape drive.vtape", "capacity_mb = 4\nearly_warning_mb = 2\ncompression = off\n", false, 0},
    {"fault_eom_3", "/megs 3 /maxtl 0x100000 /cfile bftdtest.cdb /vtape drive.vtape", "capacity_mb = 5\nearly_warning_mb = 2\ncompression = off\n", false, 0},
    {"fault_load_unsupported", "/megs 1 /uld /cfile bftdtest.cdb /vtape drive.vtape", "load_unload = unsupported\n",
     false, 0},
    {"fault_unload_refused", "/megs 1 /uld /cfile bftdtest.cdb /vtape drive.vtape", "unload_when_prevented = refuse\n",
     false, 1},
    {"fault_error_rates", "/megs 2 /sdint 1 /dsc VIRTUAL-TAPE /cfile bftdtest.cdb /vtape drive.vtape",
     "rewrite_percent = 5\ncorrected_percent = 2\n", true, 0},
    // 32 Writes and 32 Reads of about 62 ms each at 1 MB/s; every 10th takes
    // 600 ms more: 6 stalls, far above 4x the median, while a busy host would
    // have to hold a command for more than 190 ms to add one. The report is
    // the classic one.
    {"streaming_chart", "/megs 2 /plot chart.svg /json results.jsonl /vtape drive.vtape",
     "rate_mb_s = 1\ncompression = off\nrate_jitter_percent = 20\nbackhitch_every = 10\nbackhitch_ms = 600\n",
     false, 0, nullptr, "run:VT00000001 write:complete read_compare:complete iteration result:passed:0", 6},
};

INSTANTIATE_TEST_SUITE_P(Program, GoldenRun, ::testing::ValuesIn(kGoldenCases), golden_case_name);

}  // namespace
