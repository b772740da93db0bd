#include "drive_status/tapealert_flags.h"

namespace {

constexpr AlertSeverity I = AlertSeverity::information;
constexpr AlertSeverity W = AlertSeverity::warning;
constexpr AlertSeverity C = AlertSeverity::critical;

// Names and severities as the SSC TapeAlert table gives them.
const TapeAlertFlag kFlags[64] = {
    {"read warning", W},                              // 01h
    {"write warning", W},                             // 02h
    {"hard error", W},                                // 03h
    {"media", C},                                     // 04h
    {"read failure", C},                              // 05h
    {"write failure", C},                             // 06h
    {"media life", W},                                // 07h
    {"not data grade", W},                            // 08h
    {"write protect", C},                             // 09h
    {"volume removal prevented", I},                  // 0Ah
    {"cleaning volume", I},                           // 0Bh
    {"unsupported format", I},                        // 0Ch
    {"recoverable mechanical cartridge failure", C},  // 0Dh
    {"unrecoverable mechanical cartridge failure", C},// 0Eh
    {"memory chip in cartridge failure", W},          // 0Fh
    {"forced eject", C},                              // 10h
    {"read only format", W},                          // 11h
    {"tape directory corrupted on load", W},          // 12h
    {"nearing media life", I},                        // 13h
    {"cleaning required", C},                         // 14h
    {"cleaning requested", W},                        // 15h
    {"expired cleaning volume", C},                   // 16h
    {"invalid cleaning volume", C},                   // 17h
    {"retension requested", W},                       // 18h
    {"multi-port interface error on a primary port", W},  // 19h
    {"cooling fan failure", W},                       // 1Ah
    {"power supply failure", W},                      // 1Bh
    {"power consumption", W},                         // 1Ch
    {"drive preventive maintenance required", W},     // 1Dh
    {"hardware A", C},                                // 1Eh
    {"hardware B", C},                                // 1Fh
    {"primary interface", W},                         // 20h
    {"eject volume", C},                              // 21h
    {"microcode update fail", W},                     // 22h
    {"drive humidity", W},                            // 23h
    {"drive temperature", W},                         // 24h
    {"drive voltage", W},                             // 25h
    {"predictive failure", C},                        // 26h
    {"diagnostics required", W},                      // 27h
    {"obsolete", I},                                  // 28h
    {"obsolete", I},                                  // 29h
    {"obsolete", I},                                  // 2Ah
    {"obsolete", I},                                  // 2Bh
    {"obsolete", I},                                  // 2Ch
    {"obsolete", I},                                  // 2Dh
    {"obsolete", I},                                  // 2Eh
    {"reserved", I},                                  // 2Fh
    {"reserved", I},                                  // 30h
    {"reserved", I},                                  // 31h
    {"lost statistics", W},                           // 32h
    {"tape directory invalid at unload", W},          // 33h
    {"tape system area write failure", C},            // 34h
    {"tape system area read failure", C},             // 35h
    {"no start of data", C},                          // 36h
    {"loading or threading failure", C},              // 37h
    {"unrecoverable unload failure", C},              // 38h
    {"automation interface failure", C},              // 39h
    {"microcode failure", W},                         // 3Ah
    {"WORM volume integrity check failed", W},        // 3Bh
    {"WORM volume overwrite attempted", W},           // 3Ch
    {"reserved", I},                                  // 3Dh
    {"reserved", I},                                  // 3Eh
    {"reserved", I},                                  // 3Fh
    {"reserved", I},                                  // 40h
};

}  // namespace

const TapeAlertFlag& tapealert_flag(unsigned number) {
  return kFlags[number >= 1 && number <= 64 ? number - 1 : 63];
}

const char* severity_name(AlertSeverity severity) {
  switch (severity) {
    case AlertSeverity::critical:
      return "critical";
    case AlertSeverity::warning:
      return "warning";
    default:
      return "information";
  }
}
