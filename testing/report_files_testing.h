// Test support: checks of the files a run leaves behind, the output file and
// the CDB list file, as an operator would read them after a failed or
// interrupted run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// True when `text` is empty or ends with "\r\n".
bool ends_with_whole_line(const std::string& text);

// The CDBs of a CDB list file, one per line, each byte as " %02x" and the line
// ended by "\r\n". Returns false (with `problem` set) when a line has another
// form or the last line is cut.
bool parse_cdb_list(const std::string& text, std::vector<std::vector<uint8_t>>* cdbs,
                    std::string* problem);

// How many of `cdbs` have operation code `opcode`.
unsigned count_opcode(const std::vector<std::vector<uint8_t>>& cdbs, uint8_t opcode);

// SCSI operation codes the tests look for.
constexpr uint8_t kTestUnitReady = 0x00;
constexpr uint8_t kRewind = 0x01;
constexpr uint8_t kRead6 = 0x08;
constexpr uint8_t kWrite6 = 0x0A;
constexpr uint8_t kWriteFilemarks = 0x10;
constexpr uint8_t kInquiry = 0x12;
constexpr uint8_t kLoadUnload = 0x1B;
constexpr uint8_t kLogSense = 0x4D;
