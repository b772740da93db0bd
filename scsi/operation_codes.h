// The SCSI operation codes (byte 0 of a CDB) that the program sends, that the
// executor sorts by data direction and that the virtual drive answers, named
// for the commands of SPC (all devices), SSC (tape drives) and SMC (medium
// changers). One table for the whole program: the tape commands, the
// executor, the platforms and the virtual drive all take their codes from
// here, so a code is spelled once.
//
// The bottom of the layers: this folder includes nothing of the program, and
// every folder may include it. Constants only; no threads involved.
#pragma once

#include <cstdint>

// SPC: every device type.
constexpr uint8_t kOpTestUnitReady = 0x00;
constexpr uint8_t kOpRequestSense = 0x03;
constexpr uint8_t kOpInquiry = 0x12;
constexpr uint8_t kOpModeSelect6 = 0x15;
constexpr uint8_t kOpModeSense6 = 0x1A;
constexpr uint8_t kOpReceiveDiagnosticResults = 0x1C;
constexpr uint8_t kOpSendDiagnostic = 0x1D;
constexpr uint8_t kOpPreventAllowMediumRemoval = 0x1E;
constexpr uint8_t kOpWriteBuffer = 0x3B;
constexpr uint8_t kOpReadBuffer = 0x3C;
constexpr uint8_t kOpLogSelect = 0x4C;
constexpr uint8_t kOpLogSense = 0x4D;
constexpr uint8_t kOpModeSelect10 = 0x55;
constexpr uint8_t kOpModeSense10 = 0x5A;
constexpr uint8_t kOpReadAttribute = 0x8C;
constexpr uint8_t kOpWriteAttribute = 0x8D;
constexpr uint8_t kOpReportLuns = 0xA0;

// SSC: sequential-access (tape) devices.
constexpr uint8_t kOpRewind = 0x01;
constexpr uint8_t kOpReadBlockLimits = 0x05;
constexpr uint8_t kOpRead6 = 0x08;
constexpr uint8_t kOpWrite6 = 0x0A;
constexpr uint8_t kOpWriteFilemarks6 = 0x10;
constexpr uint8_t kOpSpace6 = 0x11;
constexpr uint8_t kOpVerify6 = 0x13;
constexpr uint8_t kOpErase6 = 0x19;
constexpr uint8_t kOpLoadUnload = 0x1B;
constexpr uint8_t kOpLocate10 = 0x2B;
constexpr uint8_t kOpReadPosition = 0x34;
constexpr uint8_t kOpReportDensitySupport = 0x44;

// Direct-access commands that move data to the device; the executor's table
// of data directions lists them with the tape commands.
constexpr uint8_t kOpWrite10 = 0x2A;
constexpr uint8_t kOpWriteAndVerify10 = 0x2E;
constexpr uint8_t kOpVerify10 = 0x2F;
constexpr uint8_t kOpWriteLong10 = 0x3F;
constexpr uint8_t kOpWrite12 = 0xAA;
constexpr uint8_t kOpWriteAndVerify12 = 0xAE;
constexpr uint8_t kOpVerify12 = 0xAF;

// SMC: medium changers (tape libraries). POSITION TO ELEMENT shares its code
// with the tape drive's LOCATE(10): the device type tells them apart.
constexpr uint8_t kOpInitializeElementStatus = 0x07;
constexpr uint8_t kOpPositionToElement = 0x2B;
constexpr uint8_t kOpInitializeElementStatusWithRange = 0x37;
constexpr uint8_t kOpMoveMedium = 0xA5;
constexpr uint8_t kOpExchangeMedium = 0xA6;
constexpr uint8_t kOpRequestVolumeElementAddress = 0xB5;
constexpr uint8_t kOpSendVolumeTag = 0xB6;
constexpr uint8_t kOpReadElementStatus = 0xB8;
