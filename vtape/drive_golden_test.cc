// Whole runs on virtual drives described like real ones (see
// testing/golden_run.h): the LTO drive that scripts/demo runs, and the
// description keys of its speed and compression.
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

const GoldenCase kVirtualDriveCases[] = {
    // The demo's run (docs/sample-drive.vt): null data compresses no better
    // than the format allows (90 to 1), a few rewrites; times are masked.
    {"vtape_sample_drive", "/dsc VIRTUAL-TAPE /vtape sample-drive.vt", nullptr, true, 0},
    {"vtape_bad_host_rate", "/vtape drive.vtape", "host_rate_mb_s = 100001\n", false, 1},
    {"vtape_bad_compression_ratio", "/vtape drive.vtape", "max_compression_ratio = 90:1\n", false, 1},
};

INSTANTIATE_TEST_SUITE_P(VirtualDrive, GoldenRun, ::testing::ValuesIn(kVirtualDriveCases), golden_case_name);

}  // namespace
