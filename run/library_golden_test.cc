// Library sweeps (`/changer`) on the virtual library, as golden rows: the
// report, the CDB list with every changer command, and each fault a library
// can show (see testing/golden_run.h for how a row runs).
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

// Eight slots, a cleaning cartridge in slot 8 and a damaged one in slot 3.
const char kEightSlots[] = "slots = 8\ndrives = 2\ncleaning_slots = 8\ndamaged_slots = 3\n";

const GoldenCase kLibraryRows[] = {
    // The damaged cartridge fails (a miscompare: exit code 1), the cleaning
    // one is skipped, six pass, and every cartridge is back in its slot.
    {"library_sweep", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0", kEightSlots, false, 1},
    // /slots picks slots by number: an empty one is said, the rest tested.
    {"library_slots", "/megs 1 /slots 2,4-5 /vtape drive.vtape /changer 0 0 1 0",
     "slots = 6\nbarcodes = A00001L9,,A00003L9+\n", false, 0},
    // A cartridge that never becomes ready fails, goes home, the sweep goes on.
    {"library_never_ready", "/megs 1 /strict /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nunloadable_slots = 2\n", false, 2},
    // The third Move Medium (slot 2 to the drive) fails: the sweep stops.
    {"library_move_fails", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nmove_fails_at = 3\n", false, 1},
    // The second (the first cartridge back to its slot) fails.
    {"library_move_back_fails", "/megs 1 /vtape drive.vtape /changer 0 0 1 0", "slots = 3\nmove_fails_at = 2\n", false,
     1},
    // UNIT ATTENTION 28/00 and elements not valid: Initialize Element Status once.
    {"library_inventory_not_valid", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 2\ninventory_valid = no\n", false, 0},
    // Held by another process for two tries, then free.
    {"library_changer_held", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 1\nchanger_held_polls = 2\n", false, 0},
    // A cartridge left in the tested drive goes home before the first test.
    {"library_drive_loaded", "/megs 1 /slots 2 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nloaded_drives = 1\n", false, 0},
    // Without drive identifiers the drive must be named; /drive 1 is SCSI id 3.
    {"library_no_identifiers", "/megs 1 /vtape drive.vtape /changer 0 0 1 0", "slots = 2\ndvcid = no\n", false, 1},
    {"library_drive_option", "/tid 3 /drive 1 /megs 1 /vtape drive.vtape /changer 0 0 1 0",
     "slots = 2\ndrives = 2\ndvcid = no\n", false, 0},
    {"library_no_such_drive", "/drive 2 /megs 1 /vtape drive.vtape /changer 0 0 1 0", "slots = 2\ndrives = 2\n",
     false, 1},
    // Errors before anything moves: a slot the library lacks, a device that
    // is no changer, option errors.
    {"library_slot_missing", "/slots 2,9 /megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 8\n", false, 1},
    {"library_not_a_changer", "/megs 1 /vtape drive.vtape /changer 0 0 2 0", "slots = 2\n", false, 1},
    {"library_bad_slots", "/changer 0 0 1 0 /slots 3-1 /vtape", nullptr, false, 1},
    {"library_slots_alone", "/slots 1 /vtape", nullptr, false, 1},
    {"library_changer_values", "/changer 0 0 1 /megs 1 /vtape", nullptr, false, 1},
    // Drive status and health per cartridge: each cartridge's figures start
    // afresh (one flag raised in each, not two in the second).
    {"library_health", "/dsc VIRTUAL-TAPE /health /strict /megs 1 /vtape drive.vtape /changer 0 0 1 0",
     "slots = 2\nrewrite_percent = 2\ntapealert_at_write = 5:6\n", true, 2},
    // 100 slots do not fit one answer of 4 KiB: the slots are read in two
    // pieces, the second from the element after the last one of the first;
    // slot 100 comes from that second piece.
    {"library_pieces", "/megs 1 /slots 1,100 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0", "slots = 100\n",
     false, 0},
    // The results file: the library, each cartridge's records tagged with
    // its barcode, the cartridge records and the result over the sweep.
    {"library_json", "/megs 1 /health /slots 1-3,8 /json results.jsonl /vtape drive.vtape /changer 0 0 1 0",
     "slots = 8\ndrives = 2\ncleaning_slots = 8\ndamaged_slots = 3\ntapealert_at_write = 20:6\n", false, 1, nullptr,
     "run:VT00000001 library:8/2:drive=256:4 VT0001L9/health0 VT0001L9/write:complete VT0001L9/read_compare:complete "
     "VT0001L9/iteration VT0001L9/health1 cartridge:VT0001L9@1:passed VT0002L9/health0 VT0002L9/write:complete "
     "VT0002L9/read_compare:complete VT0002L9/iteration VT0002L9/health1:6+ cartridge:VT0002L9@2:passed:ta=6 "
     "VT0003L9/health0 VT0003L9/write:complete VT0003L9/read_compare:miscompare@5+0x0 VT0003L9/health1 "
     "cartridge:VT0003L9@3:failed:data miscompare cartridge:CLN001L1@8:skipped:cleaning cartridge "
     "result:failed:1:VT0003L9 (slot 3): data miscompare"},
    {"library_json_stopped", "/megs 1 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nmove_fails_at = 3\n", false, 1, "library_move_fails",
     "run:VT00000001 library:3/1:drive=256:3 VT0001L9/write:complete VT0001L9/read_compare:complete "
     "VT0001L9/iteration cartridge:VT0001L9@1:passed cartridge:VT0002L9@2:failed:a changer command failed "
     "cartridge:VT0003L9@3:not_tested result:failed:1:sweep stopped: a changer command failed;VT0002L9 (slot 2): a "
     "changer command failed"},
    {"library_json_no_drive", "/megs 1 /json results.jsonl /vtape drive.vtape /changer 0 0 1 0",
     "slots = 2\ndvcid = no\n", false, 1, "library_no_identifiers",
     "run:VT00000001 library:2/1:drive=-:- result:failed:1:sweep stopped: the library could not be prepared"},
    // CTRL-C during the second cartridge's test leaves it in the drive.
    {"library_break", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nbreak_at_command = 70\n", false, 1},
    // The interrupted result line names the cartridge in the drive.
    {"library_break_json", "/megs 1 /json results.jsonl /vtape drive.vtape /changer 0 0 1 0",
     "slots = 3\nbreak_at_command = 74\n", false, 1, nullptr,
     "run:VT00000001 library:3/1:drive=256:3 VT0001L9/write:complete VT0001L9/read_compare:complete "
     "VT0001L9/iteration cartridge:VT0001L9@1:passed VT0002L9/result:interrupted:1:interrupted by CTRL-C"},
};

INSTANTIATE_TEST_SUITE_P(Library, GoldenRun, ::testing::ValuesIn(kLibraryRows), golden_case_name);

}  // namespace
