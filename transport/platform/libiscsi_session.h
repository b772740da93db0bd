// The libiscsi sessions of the iSCSI platform (platform_iscsi.cc): logging
// in, carrying one command at a time over a session, telling why a request
// failed, logging out. For the platform's files only; compiled where
// libiscsi is found (see cmake/iscsi_library.cmake).
//
// One command at a time: the task is queued on the session and the
// connection is served (poll, then iscsi_service) until the task's callback
// has run. Read data lands in the caller's buffer (registered with the task
// as its data-in buffer) and write data leaves from it (handed over as the
// task's data-out), so a CHECK CONDITION's sense, which libiscsi keeps in
// the task's own data-in blob, never mixes with the data read. The bounds
// are those of iscsi_platform.h.
//
// Threads: the program's thread only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "transport/platform/platform.h"

struct iscsi_context;

struct IscsiSession {
  iscsi_context* context;  // null once the connection is closed
  char portal[264];
  char target[224];
  char user[256];  // empty: no CHAP
  char secret[256];
  char initiator[224];
  bool lost;  // the connection failed; no command goes over it any more
  char lost_reason[256];
};

using IscsiDeadline = std::chrono::steady_clock::time_point;

// Connects to the session's portal and logs in to its target (with CHAP when
// it has a user; a discovery session when the target is empty) by
// `deadline`. 0, or -1 after one "ERROR:" line on the
// error stream naming the portal and the reason (the connection closed).
int open_iscsi_session(IscsiSession& session, IscsiDeadline deadline);

// Logs in to the session's portal for discovery (its target left empty;
// with CHAP when it has a user), asks SendTargets for every target the
// portal offers and logs out, all by `deadline`. The names go to `targets`
// in the order of the answer. 0, or -1 after one "ERROR:" line naming the
// portal and the reason. The record is cleared.
int discover_iscsi_targets(IscsiSession& session, IscsiDeadline deadline, std::vector<std::string>* targets);

// Sends `request` (its CDB, direction, data, length and timeout) to `lun`
// over the session and fills `reply` as a platform's pass_through does; the
// sense of a CHECK CONDITION goes to request.sense. `keepalive`: a quiet
// connection gets NOP-Out pings and counts as lost when they go unanswered.
// A lost connection is closed and every later command fails at once with
// kErrorDeviceNotConnected.
void run_iscsi_command(IscsiSession& session, uint16_t lun, const PassThroughRequest& request, bool keepalive,
                       PassThroughReply& reply);

// The sentence about the last request that failed on its way ("ERROR:
// iSCSI portal ...: ..."), or null; and its reset.
const char* iscsi_failure_note();
void clear_iscsi_failure_note();

// Logs out (a few seconds at most) unless the connection was lost, closes
// it and clears the record.
void end_iscsi_session(IscsiSession& session);

// "iqn.2024-01.org.bftdtest:" and the host name in lower case.
void default_iscsi_initiator(char* name, size_t size);
