// The 64 TapeAlert flags of the SSC TapeAlert log page (2Eh): parameter
// codes 0001h to 0040h, each a one-byte value whose bit 0 is the flag.
#pragma once

#include <cstdint>

enum class AlertSeverity : uint8_t { information, warning, critical };

struct TapeAlertFlag {
  const char* name;
  AlertSeverity severity;
};

// Flag `number` (1 to 64); reserved and obsolete numbers have a name that
// says so and the severity information.
const TapeAlertFlag& tapealert_flag(unsigned number);

// "information", "warning" or "critical".
const char* severity_name(AlertSeverity severity);
