// The iSCSI platform (`/iscsi <url>`): the program's own initiator
// (libiscsi) logs in to the target and carries every command of the
// transport over the session unchanged: CDB, direction, length, timeout,
// status, sense and the transferred length from the response's residual.
// Data moves straight between the program's buffers and the socket.
//
// Each attached unit answers at the address it was given (`/hanum`, `/bus`,
// `/tid`, `/lun` only label it) as an unclaimed unit of that adapter, so
// the device table, the executor and everything above them work as with a
// local drive. Up to 64 units (a drive and a changer for a test; a
// listing may meet more), over one session per target.
//
// Bounds (no wait is endless): connecting, logging in and checking the LUN
// take at most kIscsiLoginSeconds; a command may run for its own timeout (30
// hours) while the connection lives, and a connection counts as lost when
// the target closes it or answers none of kIscsiUnansweredPings NOP-Out
// pings sent every kIscsiPingSeconds while a command waits on a quiet
// connection. A lost connection is not reconnected: its commands fail at
// once with kErrorDeviceNotConnected, and describe_request_failure names
// the portal and the reason.
//
// Builds without libiscsi (and every Windows build) keep the interface:
// iscsi_attach then says that the build has no iSCSI support.
//
// Threads: everything runs on the program's thread, except the platform's
// close_device, which the CTRL-C handler may call: it only marks the handle
// closed; sessions end in iscsi_detach_all or with the process.
#pragma once

#include "transport/platform/platform.h"

constexpr int kIscsiLoginSeconds = 30;
constexpr int kIscsiPingSeconds = 5;
constexpr int kIscsiUnansweredPings = 3;

struct IscsiLogin {
  const char* url;          // iscsi://[user[%password]@]host[:port]/<target-iqn>/<lun>
  const char* chap_user;    // null or empty: the URL's user, if any
  const char* chap_secret;  // with chap_user
  const char* initiator;    // null or empty: iqn.2024-01.org.bftdtest:<host name>
};

// Logs in to the unit that `login` names (or joins the session already
// open to its target) and lists it at `address` of the platform's adapter
// `address.port_number`. 0, or -1 after one "ERROR:" line on the error
// stream that names the portal and the reason (bad URL, no connection,
// login refused, no such LUN, no iSCSI support in this build).
int iscsi_attach(const IscsiLogin& login, const ScsiAddress& address);

// For `/list /iscsi <portal>`: asks the portal for its targets
// (SendTargets; only the URL's target when it names one), logs in to each
// through that portal and attaches every tape drive and medium changer LUN
// (Report LUNs, Inquiry) at `adapter`, bus 0, the target's place in the
// answer as id and its LUN. A target that refuses the login gets its ERROR
// line and the others are still listed. 0 once the portal answered (with
// or without units), or -1 after one "ERROR:" line (bad URL, no
// connection, discovery refused, no iSCSI support in this build).
int iscsi_attach_portal(const IscsiLogin& login, uint8_t adapter);

// The platform record of the attached units; null without iSCSI support.
const Platform* iscsi_platform();

// Logs out of every session (a few seconds at most each) and forgets every
// unit. Harmless when nothing is attached.
void iscsi_detach_all();
