// Whole runs of the classic program on a virtual library's drives, and the
// library's description errors, as golden rows (see testing/golden_run.h).
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

const GoldenCase kLibraryCases[] = {
    // The second of two drives an operator loaded: SCSI id 3, its own serial.
    {"library_second_drive", "/tid 3 /megs 1 /cfile bftdtest.cdb /json results.jsonl /vtape drive.vtape",
     "slots = 4\ndrives = 2\nloaded_drives = 2\n", false, 0, nullptr,
     "run:VT00000002 write:complete read_compare:complete iteration result:passed:0"},
    // A damaged cartridge: the 5th Read(6) after the load returns one wrong byte.
    {"library_damaged_cartridge", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "slots = 8\ndamaged_slots = 1\nloaded_drives = 1\n", false, 1},
    // A cartridge the drive cannot use: NOT READY, INCOMPATIBLE MEDIUM INSTALLED.
    {"library_unloadable_cartridge", "/megs 1 /cfile bftdtest.cdb /vtape drive.vtape",
     "slots = 8\nunloadable_slots = 1\nloaded_drives = 1\n", false, 1},
    // Nobody loaded the drive: MEDIUM NOT PRESENT.
    {"library_empty_drive", "/megs 1 /vtape drive.vtape", "slots = 2\n", false, 1},
    // /tid names the changer, or an id where nothing answers.
    {"library_changer_as_drive", "/tid 1 /vtape drive.vtape", "slots = 2\n", false, 1},
    {"library_nothing_at_tid", "/tid 4 /vtape drive.vtape", "slots = 2\ndrives = 2\n", false, 1},
    // Descriptions that do not make a library.
    {"setup_bad_barcodes", "/vtape drive.vtape", "slots = 4\nbarcodes = VT0001L9, vt0002l9\n", false, 1},
    {"setup_bad_barcode_counter", "/vtape drive.vtape", "slots = 20\nbarcodes = , VT9990L9+\n", false, 1},
    {"setup_bad_duplicate_barcode", "/vtape drive.vtape", "slots = 3\nbarcodes = CLN001L1\ncleaning_slots = 3\n",
     false, 1},
    {"setup_bad_layout", "/vtape drive.vtape", "slots = 4\ndrives = 3\nchanger_tid = 3\n", false, 1},
    {"setup_bad_fault_slot", "/vtape drive.vtape", "slots = 4\nbarcodes = VT0001L9\ndamaged_slots = 2\n", false, 1},
    {"setup_bad_slot_list", "/vtape drive.vtape", "slots = 4\ncleaning_slots = 2 x\n", false, 1},
    {"setup_bad_loaded_drives", "/vtape drive.vtape", "slots = 4\nbarcodes = VT0001L9\ndrives = 2\nloaded_drives = 2\n",
     false, 1},
    {"setup_bad_library_key", "/vtape drive.vtape", "drives = 2\n", false, 1},
    {"setup_bad_library_serial", "/vtape drive.vtape", "slots = 2\nserial = ABC\n", false, 1},
};

INSTANTIATE_TEST_SUITE_P(VirtualLibrary, GoldenRun, ::testing::ValuesIn(kLibraryCases), golden_case_name);

}  // namespace
