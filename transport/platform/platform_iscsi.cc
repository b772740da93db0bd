// The iSCSI platform over libiscsi (see iscsi_platform.h for what it does
// and its bounds): the table of attached units (URL -> the address label it
// answers at), their checks at login, and the platform record over them.
// The sessions themselves are libiscsi_session.cc's.
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "scsi/operation_codes.h"
#include "transport/platform/iscsi_answer.h"
#include "transport/platform/iscsi_platform.h"
#include "transport/platform/iscsi_url.h"
#include "transport/platform/libiscsi_session.h"

namespace {

using Clock = std::chrono::steady_clock;

// A listing (`/list /iscsi <portal>`) may meet a gateway with a target per
// drive; a test uses one or two units.
constexpr unsigned kMaxSessions = 64;
constexpr unsigned kMaxUnits = 64;
constexpr PlatformHandle kAdapterHandleBase = 0x15C50000;
constexpr uint8_t kNoUnitQualifier = 3;  // peripheral qualifier: no logical unit here

struct Unit {
  ScsiAddress address;
  IscsiSession* session;
  uint16_t lun;
  char shown_url[kIscsiUrlCapacity];
  uint8_t inquiry[36];
};

IscsiSession sessions[kMaxSessions];
unsigned session_count = 0;
Unit units[kMaxUnits];
unsigned unit_count = 0;
std::atomic<bool> adapter_open[256];

int seconds_left(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now()).count();
  return left < 1 ? 1 : static_cast<int>(left);
}

// The answers of the login checks and of a listing: Report LUNs (up to
// 511 LUNs) and a standard Inquiry.
uint8_t answer[4096];
constexpr uint8_t kReportLuns[12] = {kOpReportLuns, 0, 0, 0, 0, 0, 0, 0, sizeof answer >> 8, 0, 0, 0};
constexpr uint8_t kInquiryLength = 96;
constexpr uint8_t kInquiry[6] = {kOpInquiry, 0, 0, 0, kInquiryLength, 0};

// Sends a data-in command of `length` bytes to `lun` of the session, into
// `answer` (zeroed first), and fills `reply`. True when it ended GOOD.
bool ask_lun(IscsiSession& session, uint16_t lun, const uint8_t* cdb, uint8_t cdb_length, uint32_t length,
             Clock::time_point deadline, PassThroughReply* reply) {
  uint8_t sense[kSenseAreaSize];
  PassThroughRequest request{};
  request.sense = sense;
  request.direction = DataDirection::in;
  request.data = answer;
  request.data_length = length;
  std::memcpy(request.cdb, cdb, cdb_length);
  request.cdb_length = cdb_length;
  request.timeout_seconds = static_cast<uint32_t>(seconds_left(deadline));
  std::memset(answer, 0, length);
  run_iscsi_command(session, lun, request, false, *reply);
  return reply->error == kErrorNone && reply->scsi_status == 0;
}

// Checks that the target has `lun` (Report LUNs to LUN 0, then Inquiry to
// the LUN) and keeps the unit's inquiry data. 0, or -1 after its ERROR line.
int check_unit(IscsiSession& session, Unit& unit, Clock::time_point deadline) {
  PassThroughReply reply{};
  char listed[128];
  if (ask_lun(session, 0, kReportLuns, sizeof kReportLuns, sizeof answer, deadline, &reply) &&
      !iscsi_lun_listed(answer, reply.transferred_length, unit.lun, listed, sizeof listed)) {
    error_printf("ERROR: iSCSI portal %s: target %s has no LUN %u (it reports LUN %s)\n", session.portal,
                 session.target, static_cast<unsigned>(unit.lun), listed[0] != '\0' ? listed : "none");
    return -1;
  }
  if (!ask_lun(session, unit.lun, kInquiry, sizeof kInquiry, kInquiryLength, deadline, &reply)) {
    const char* note = iscsi_failure_note();
    const char* reason =
        reply.error != kErrorNone && note != nullptr ? note : "it answered with a CHECK CONDITION";
    error_printf("ERROR: iSCSI portal %s: Inquiry of LUN %u of %s failed (%s)\n", session.portal,
                 static_cast<unsigned>(unit.lun), session.target, reason);
    return -1;
  }
  if ((answer[0] >> 5) == kNoUnitQualifier) {
    error_printf("ERROR: iSCSI portal %s: target %s has no LUN %u\n", session.portal, session.target,
                 static_cast<unsigned>(unit.lun));
    return -1;
  }
  std::memcpy(unit.inquiry, answer, sizeof unit.inquiry);
  return 0;
}

bool same_login(const IscsiSession& session, const IscsiUrl& url, const char* user, const char* secret,
                const char* initiator) {
  return std::strcmp(session.portal, url.portal) == 0 && std::strcmp(session.target, url.target) == 0 &&
         std::strcmp(session.user, user) == 0 && std::strcmp(session.secret, secret) == 0 &&
         std::strcmp(session.initiator, initiator) == 0;
}

// --- the platform record ---------------------------------------------------

int adapter_number(const char* device_name) {
  unsigned number = 0;
  char end = '\0';
  if (std::sscanf(device_name, "\\\\.\\Scsi%u%c", &number, &end) != 2 || end != ':' || number > 255)
    return -1;
  for (unsigned i = 0; i < unit_count; ++i) {
    if (units[i].address.port_number == number) return static_cast<int>(number);
  }
  return -1;
}

Unit* unit_at(unsigned adapter, uint8_t bus, uint8_t target_id, uint8_t lun) {
  for (unsigned i = 0; i < unit_count; ++i) {
    const ScsiAddress& a = units[i].address;
    if (a.port_number == adapter && a.path_id == bus && a.target_id == target_id && a.lun == lun)
      return &units[i];
  }
  return nullptr;
}

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  const int adapter = adapter_number(device_name);
  if (adapter < 0) return kErrorNotFound;
  if (adapter_open[adapter].exchange(true)) return kErrorSharingViolation;  // opened for exclusive use
  *handle = kAdapterHandleBase + adapter;
  return kErrorNone;
}

int handle_adapter(PlatformHandle handle) {
  const PlatformHandle adapter = handle - kAdapterHandleBase;
  return adapter >= 0 && adapter <= 255 && adapter_open[adapter] ? static_cast<int>(adapter) : -1;
}

int query_adapter(PlatformHandle handle, AdapterInquiry* inquiry) {
  const int adapter = handle_adapter(handle);
  if (adapter < 0) return -1;
  std::memset(inquiry, 0, sizeof *inquiry);
  for (unsigned i = 0; i < unit_count; ++i) {
    const Unit& unit = units[i];
    if (unit.address.port_number != adapter) continue;
    LogicalUnitInfo& info = inquiry->units[inquiry->unit_count++];
    info.path_id = unit.address.path_id;
    info.target_id = unit.address.target_id;
    info.lun = unit.address.lun;
    info.claimed = 0;
    info.inquiry_length = sizeof info.inquiry;
    std::memcpy(info.inquiry, unit.inquiry, sizeof info.inquiry);
    if (unit.address.path_id >= inquiry->bus_count)
      inquiry->bus_count = static_cast<uint8_t>(unit.address.path_id + 1);
  }
  return 0;
}

int query_tape_address(PlatformHandle, ScsiAddress*) { return -1; }  // no tape devices, only the adapter

void pass_through(PlatformHandle device, const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  const int adapter = handle_adapter(device);
  Unit* unit = adapter < 0
                   ? nullptr
                   : unit_at(static_cast<unsigned>(adapter), request.path_id, request.target_id, request.lun);
  if (unit == nullptr) {
    reply.error = adapter < 0 ? kErrorInvalidParameter : kErrorNotFound;
    return;
  }
  run_iscsi_command(*unit->session, unit->lun, request, true, reply);
}

void close_device(PlatformHandle handle) {
  const PlatformHandle adapter = handle - kAdapterHandleBase;
  if (adapter >= 0 && adapter <= 255) adapter_open[adapter] = false;
}

int device_node(const char* device_name, const ScsiAddress& address, char* text, unsigned size) {
  const int adapter = adapter_number(device_name);
  const Unit* unit =
      adapter < 0 ? nullptr
                  : unit_at(static_cast<unsigned>(adapter), address.path_id, address.target_id, address.lun);
  if (unit == nullptr) return -1;
  std::snprintf(text, size, "%s", unit->shown_url);
  return 0;
}

const char* describe_request_failure() { return iscsi_failure_note(); }

const Platform kIscsiPlatform = {
    "iscsi", open_device, query_adapter, query_tape_address,       pass_through, close_device,
    nullptr, device_node, nullptr,       describe_request_failure, nullptr,
};

}  // namespace

namespace {

// Who logs in: the CHAP user and secret (after the URL, or in it) and the
// initiator name.
struct LoginNames {
  const char* user;
  const char* secret;
  char initiator[224];
};

// 0, or -1 after the ERROR line of a user given twice.
int login_names(const IscsiLogin& login, const IscsiUrl& url, LoginNames* names) {
  const bool chap_after = login.chap_user != nullptr && login.chap_user[0] != '\0';
  if (chap_after && url.user[0] != '\0') {
    error_printf("ERROR: iSCSI portal %s: the CHAP user is given both in the URL and after it\n", url.portal);
    return -1;
  }
  names->user = chap_after ? login.chap_user : url.user;
  names->secret = chap_after ? (login.chap_secret != nullptr ? login.chap_secret : "") : url.password;
  if (login.initiator != nullptr && login.initiator[0] != '\0') {
    std::snprintf(names->initiator, sizeof names->initiator, "%s", login.initiator);
  } else {
    default_iscsi_initiator(names->initiator, sizeof names->initiator);
  }
  // A peer that closes the socket must not end the program with SIGPIPE
  // (libiscsi writes data with writev, which cannot be told not to raise it).
  ::signal(SIGPIPE, SIG_IGN);
  return 0;
}

// The URL of `login`, read by `parse`, and who logs in. 0, or -1 after its
// ERROR line.
int read_login(const IscsiLogin& login, int (*parse)(const char*, IscsiUrl*, char*, size_t), IscsiUrl* url,
               LoginNames* names) {
  char reason[200];
  if (parse(login.url, url, reason, sizeof reason) != 0) {
    error_printf("ERROR: invalid iSCSI URL: %s\n", reason);
    return -1;
  }
  return login_names(login, *url, names);
}

void fill_session(IscsiSession& session, const IscsiUrl& url, const LoginNames& names) {
  session = IscsiSession{};
  std::snprintf(session.portal, sizeof session.portal, "%s", url.portal);
  std::snprintf(session.target, sizeof session.target, "%s", url.target);
  std::snprintf(session.user, sizeof session.user, "%s", names.user);
  std::snprintf(session.secret, sizeof session.secret, "%s", names.secret);
  std::snprintf(session.initiator, sizeof session.initiator, "%s", names.initiator);
}

// The open session to `url`'s target for `names`: one already open, or a
// new one. Null after its ERROR line. `*opened` tells a new one.
IscsiSession* session_for(const IscsiUrl& url, const LoginNames& names, Clock::time_point deadline, bool* opened) {
  *opened = false;
  for (unsigned i = 0; i < session_count; ++i) {
    if (!sessions[i].lost && same_login(sessions[i], url, names.user, names.secret, names.initiator))
      return &sessions[i];
  }
  if (session_count == kMaxSessions) {
    error_printf("ERROR: iSCSI portal %s: more than %u sessions\n", url.portal, kMaxSessions);
    return nullptr;
  }
  IscsiSession* session = &sessions[session_count];
  fill_session(*session, url, names);
  if (open_iscsi_session(*session, deadline) != 0) {
    *session = IscsiSession{};
    return nullptr;
  }
  ++session_count;
  *opened = true;
  return session;
}

// Forgets the session last opened when no unit came of it.
void close_last_session(IscsiSession* session) {
  end_iscsi_session(*session);
  --session_count;
}

// Attaches every tape drive and medium changer LUN of the session's target
// at `adapter`, bus 0, id `target_id`. The number attached; LUNs that do not
// fit a label or the table get a line saying so.
unsigned attach_target_units(IscsiSession& session, const IscsiUrl& target_url, uint8_t adapter,
                             uint8_t target_id, Clock::time_point deadline) {
  PassThroughReply reply{};
  uint16_t luns[511];
  size_t lun_count = 1;
  luns[0] = 0;  // a target that cannot tell its LUNs still has LUN 0
  if (ask_lun(session, 0, kReportLuns, sizeof kReportLuns, sizeof answer, deadline, &reply)) {
    lun_count = std::min(iscsi_reported_luns(answer, reply.transferred_length, luns, std::size(luns)),
                         std::size(luns));
  }
  unsigned attached = 0;
  for (size_t i = 0; i < lun_count; ++i) {
    if (!ask_lun(session, luns[i], kInquiry, sizeof kInquiry, kInquiryLength, deadline, &reply)) continue;
    const uint8_t type = answer[0] & 0x1F;
    if ((answer[0] >> 5) != 0 || (type != 0x01 && type != 0x08)) continue;
    if (luns[i] > 255 || unit_count == kMaxUnits) {
      error_printf("ERROR: iSCSI portal %s: LUN %u of %s not listed (%s)\n", session.portal,
                   static_cast<unsigned>(luns[i]), session.target,
                   luns[i] > 255 ? "above 255" : "more than 64 units");
      continue;
    }
    Unit& unit = units[unit_count++];
    unit = Unit{};
    unit.address = ScsiAddress{adapter, 0, target_id, static_cast<uint8_t>(luns[i])};
    unit.session = &session;
    unit.lun = luns[i];
    IscsiUrl url = target_url;
    url.lun = luns[i];
    shown_iscsi_url(url, unit.shown_url, sizeof unit.shown_url);
    std::memcpy(unit.inquiry, answer, sizeof unit.inquiry);
    ++attached;
  }
  return attached;
}

}  // namespace

int iscsi_attach(const IscsiLogin& login, const ScsiAddress& address) {
  IscsiUrl url;
  LoginNames names;
  if (read_login(login, parse_iscsi_url, &url, &names) != 0) return -1;
  if (unit_count == kMaxUnits ||
      unit_at(address.port_number, address.path_id, address.target_id, address.lun)) {
    error_printf("ERROR: iSCSI portal %s: no room for the unit at /hanum %u /bus %u /tid %u /lun %u\n",
                 url.portal, address.port_number, address.path_id, address.target_id, address.lun);
    return -1;
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kIscsiLoginSeconds);
  bool opened = false;
  IscsiSession* session = session_for(url, names, deadline, &opened);
  if (session == nullptr) return -1;
  Unit& unit = units[unit_count];
  unit = Unit{};
  unit.address = address;
  unit.session = session;
  unit.lun = url.lun;
  shown_iscsi_url(url, unit.shown_url, sizeof unit.shown_url);
  std::memset(url.password, 0, sizeof url.password);
  if (check_unit(*session, unit, deadline) != 0) {
    if (opened) close_last_session(session);
    return -1;
  }
  ++unit_count;
  clear_iscsi_failure_note();
  return 0;
}

int iscsi_attach_portal(const IscsiLogin& login, uint8_t adapter) {
  IscsiUrl url;
  LoginNames names;
  if (read_login(login, parse_iscsi_portal_url, &url, &names) != 0) return -1;
  std::vector<std::string> targets;
  if (url.target[0] != '\0') {
    targets.emplace_back(url.target);
  } else {
    IscsiSession discovery;
    fill_session(discovery, url, names);
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kIscsiLoginSeconds);
    if (discover_iscsi_targets(discovery, deadline, &targets) != 0) return -1;
  }
  // Each target by the portal that was given (what a target announces may
  // be addresses this host cannot reach), with an id of its own: its place
  // in the portal's answer.
  for (size_t t = 0; t < targets.size(); ++t) {
    if (t > 255) {
      error_printf("ERROR: iSCSI portal %s: %zu targets not listed (more than 256)\n", url.portal,
                   targets.size() - t);
      break;
    }
    IscsiUrl target_url = url;
    std::snprintf(target_url.target, sizeof target_url.target, "%s", targets[t].c_str());
    std::memset(target_url.password, 0, sizeof target_url.password);
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kIscsiLoginSeconds);
    bool opened = false;
    IscsiSession* session = session_for(target_url, names, deadline, &opened);
    if (session == nullptr) continue;  // its ERROR line names the target; the others are still listed
    const unsigned attached = attach_target_units(*session, target_url, adapter, static_cast<uint8_t>(t), deadline);
    if (attached == 0 && opened) close_last_session(session);
  }
  std::memset(url.password, 0, sizeof url.password);
  clear_iscsi_failure_note();
  return 0;
}

const Platform* iscsi_platform() { return &kIscsiPlatform; }

void iscsi_detach_all() {
  for (unsigned i = 0; i < session_count; ++i) end_iscsi_session(sessions[i]);
  session_count = 0;
  unit_count = 0;
  for (std::atomic<bool>& open : adapter_open) open = false;
  clear_iscsi_failure_note();
}
