// The iSCSI platform over libiscsi (see iscsi_platform.h for what it does
// and its bounds).
//
// One command at a time: the task is queued on the session and the
// connection is served (poll, then iscsi_service) until the task's callback
// has run. Read data lands in the caller's buffer (registered with the task
// as its data-in buffer) and write data leaves from it (handed over as the
// task's data-out), so a CHECK CONDITION's sense, which libiscsi keeps in
// the task's own data-in blob, never mixes with the data read.
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "scsi/operation_codes.h"
#include "transport/platform/iscsi_answer.h"
#include "transport/platform/iscsi_platform.h"
#include "transport/platform/iscsi_url.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kMaxSessions = 8;
constexpr unsigned kMaxUnits = 8;
constexpr int kLogoutSeconds = 3;
constexpr PlatformHandle kAdapterHandleBase = 0x15C50000;
constexpr uint8_t kNoUnitQualifier = 3;  // peripheral qualifier: no logical unit here

struct Session {
  iscsi_context* context;
  char portal[264];
  char target[224];
  char user[256];
  char secret[256];
  char initiator[224];
  bool lost;
  char lost_reason[256];
};

struct Unit {
  ScsiAddress address;
  Session* session;
  uint16_t lun;
  char shown_url[kIscsiUrlCapacity];
  uint8_t inquiry[36];
};

Session sessions[kMaxSessions];
unsigned session_count = 0;
Unit units[kMaxUnits];
unsigned unit_count = 0;
std::atomic<bool> adapter_open[256];
// The sentence of describe_request_failure for the last failed request.
char failure_note[600];

// What a callback of libiscsi left: its status once it ran.
struct Waiter {
  bool done;
  int status;
};

void note_done(iscsi_context*, int status, void*, void* data) {
  auto* waiter = static_cast<Waiter*>(data);
  waiter->done = true;
  waiter->status = status;
}

// The first error libiscsi logged since the current step began. Its own
// last error (iscsi_get_error) is no help after a failed connection: the
// reconnect that is switched off overwrites it with "Can not reconnect".
char library_message[256];

void keep_library_message(int, const char* message) {
  if (library_message[0] != '\0' || std::strncmp(message, "NOP", 3) == 0 ||
      std::strstr(message, "reconnect") != nullptr) {
    return;
  }
  const char* prefix = "iscsi_service: ";
  if (std::strncmp(message, prefix, std::strlen(prefix)) == 0) message += std::strlen(prefix);
  std::snprintf(library_message, sizeof library_message, "%s", message);
  // One line, without the " [target name]" that the log adds and a final '.'.
  size_t length = std::strcspn(library_message, "\r\n");
  if (length > 0 && library_message[length - 1] == ']') {
    const char* open = std::strrchr(library_message, '[');
    if (open != nullptr && open > library_message && open[-1] == ' ') length = static_cast<size_t>(open - 1 - library_message);
  }
  if (length > 0 && library_message[length - 1] == '.') --length;
  library_message[length] = '\0';
}

void begin_step() { library_message[0] = '\0'; }

// Why the step failed: on a logged-in session what the socket tells (`fd`
// is the connection's descriptor as it was polled; -1 if none), else what
// libiscsi logged; while connecting and logging in the other way round
// (libiscsi has read the socket's error itself by then).
const char* socket_reason(int fd) {
  if (fd >= 0) {
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error != 0) return std::strerror(error);
    char byte = 0;
    const ssize_t peeked = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (peeked == 0) return "the target closed the connection";
    if (peeked < 0 && (errno == ECONNRESET || errno == EPIPE || errno == ETIMEDOUT)) return std::strerror(errno);
  }
  return nullptr;
}

const char* failure_reason(iscsi_context* context, int fd) {
  const char* from_socket = socket_reason(fd);
  const bool logged_in = context != nullptr && iscsi_is_logged_in(context) != 0;
  if (logged_in && from_socket != nullptr) return from_socket;
  if (library_message[0] != '\0') return library_message;
  return from_socket != nullptr ? from_socket : "the connection failed";
}

void lose(Session& session, const char* reason) {
  if (session.lost) return;
  session.lost = true;
  std::snprintf(session.lost_reason, sizeof session.lost_reason, "%s", reason);
}

// Ends a lost connection: libiscsi runs the callbacks of whatever is still
// queued (status CANCELLED) and closes the socket.
void drop_connection(Session& session) {
  if (session.context == nullptr) return;
  iscsi_destroy_context(session.context);
  session.context = nullptr;
}

enum class Served { done, lost, timed_out };

int milliseconds_until(Clock::time_point when) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(when - Clock::now()).count();
  return left <= 0 ? 0 : left > 1000 ? 1000 : static_cast<int>(left);
}

// Serves the session's connection until `waiter` is done, `deadline` has
// passed or the connection is lost (then `session.lost` says why). With
// `keepalive`, a connection quiet for kIscsiPingSeconds gets a NOP-Out, and
// kIscsiUnansweredPings of them unanswered make it lost.
Served serve(Session& session, const Waiter& waiter, Clock::time_point deadline, bool keepalive) {
  iscsi_context* context = session.context;
  const auto ping_interval = std::chrono::seconds(kIscsiPingSeconds);
  Clock::time_point last_heard = Clock::now();
  Clock::time_point last_ping = last_heard;
  while (!waiter.done) {
    const Clock::time_point now = Clock::now();
    if (now >= deadline) return Served::timed_out;
    if (keepalive && now - last_heard >= ping_interval && now - last_ping >= ping_interval) {
      if (iscsi_get_nops_in_flight(context) >= kIscsiUnansweredPings) {
        char reason[96];
        std::snprintf(reason, sizeof reason, "no answer for %d seconds (%d NOP-Out pings unanswered)",
                      (kIscsiUnansweredPings + 1) * kIscsiPingSeconds, kIscsiUnansweredPings);
        lose(session, reason);
        return Served::lost;
      }
      if (iscsi_nop_out_async(context, nullptr, nullptr, 0, nullptr) != 0) {
        lose(session, failure_reason(session.context, -1));
        return Served::lost;
      }
      last_ping = now;
    }
    pollfd descriptor{iscsi_get_fd(context), static_cast<short>(iscsi_which_events(context)), 0};
    const int ready = ::poll(&descriptor, 1, milliseconds_until(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) {
      lose(session, std::strerror(errno));
      return Served::lost;
    }
    if (ready == 0) continue;
    if ((descriptor.revents & POLLIN) != 0) last_heard = Clock::now();
    if (iscsi_service(context, descriptor.revents) < 0) {
      lose(session, failure_reason(context, descriptor.fd));
      return Served::lost;
    }
  }
  return Served::done;
}

void note_failure(const Session& session, const char* what) {
  std::snprintf(failure_note, sizeof failure_note, "ERROR: iSCSI portal %s: %s", session.portal, what);
}

void note_lost(const Session& session) {
  char what[300];
  std::snprintf(what, sizeof what, "connection lost (%s)", session.lost_reason);
  note_failure(session, what);
}

int transfer_direction(DataDirection direction, uint32_t length) {
  if (length == 0) return SCSI_XFER_NONE;
  return direction == DataDirection::in ? SCSI_XFER_READ : SCSI_XFER_WRITE;
}

IscsiResidual residual_kind(const scsi_task& task) {
  if (task.residual_status == SCSI_RESIDUAL_UNDERFLOW) return IscsiResidual::underflow;
  if (task.residual_status == SCSI_RESIDUAL_OVERFLOW) return IscsiResidual::overflow;
  return IscsiResidual::none;
}

// Sends one CDB to `lun` over the session and waits for its end, at most
// `timeout_seconds`; fills `reply` as pass_through does.
void run_command(Session& session, uint16_t lun, const PassThroughRequest& request, bool keepalive,
                 PassThroughReply& reply) {
  reply = PassThroughReply{};
  begin_step();
  if (session.lost || session.context == nullptr) {
    reply.error = kErrorDeviceNotConnected;
    note_lost(session);
    return;
  }
  uint8_t cdb[16] = {};
  std::memcpy(cdb, request.cdb, request.cdb_length);
  const int direction = transfer_direction(request.direction, request.data_length);
  scsi_task* task = scsi_create_task(request.cdb_length, cdb, direction, static_cast<int>(request.data_length));
  if (task == nullptr ||
      (direction == SCSI_XFER_READ &&
       scsi_task_add_data_in_buffer(task, static_cast<int>(request.data_length), request.data) != 0)) {
    if (task != nullptr) scsi_free_scsi_task(task);
    reply.error = kErrorIoDevice;
    note_failure(session, "no memory for the command");
    return;
  }
  iscsi_data data_out{request.data_length, request.data};
  Waiter waiter{false, 0};
  if (iscsi_scsi_command_async(session.context, lun, task, note_done,
                               direction == SCSI_XFER_WRITE ? &data_out : nullptr, &waiter) != 0) {
    scsi_free_scsi_task(task);
    reply.error = kErrorIoDevice;
    note_failure(session, failure_reason(session.context, -1));
    return;
  }
  const Served served =
      serve(session, waiter, Clock::now() + std::chrono::seconds(request.timeout_seconds), keepalive);
  if (served == Served::timed_out) {
    iscsi_scsi_cancel_task(session.context, task);  // runs the callback (CANCELLED)
    scsi_free_scsi_task(task);
    reply.error = kErrorTimeout;
    char what[96];
    std::snprintf(what, sizeof what, "no answer within the command's timeout of %u seconds",
                  static_cast<unsigned>(request.timeout_seconds));
    note_failure(session, what);
    return;
  }
  if (served == Served::lost || waiter.status == SCSI_STATUS_CANCELLED) {
    lose(session, failure_reason(session.context, -1));  // keeps the first reason
    drop_connection(session);
    scsi_free_scsi_task(task);
    reply.error = kErrorDeviceNotConnected;
    note_lost(session);
    return;
  }
  if (waiter.status == SCSI_STATUS_ERROR || waiter.status == SCSI_STATUS_TIMEOUT || waiter.status > 0xFF) {
    reply.error = waiter.status == SCSI_STATUS_TIMEOUT ? kErrorTimeout : kErrorIoDevice;
    note_failure(session, failure_reason(session.context, -1));
    scsi_free_scsi_task(task);
    return;
  }
  reply.scsi_status = static_cast<uint8_t>(waiter.status);
  reply.transferred_length =
      direction == SCSI_XFER_NONE ? 0
                                  : iscsi_transferred_length(request.data_length, residual_kind(*task), task->residual);
  if (waiter.status == SCSI_STATUS_CHECK_CONDITION && task->datain.data != nullptr && task->datain.size > 0) {
    reply.sense_length = iscsi_response_sense(task->datain.data, static_cast<size_t>(task->datain.size),
                                              request.sense, kSenseAreaSize - 1);
  }
  scsi_free_scsi_task(task);
}

// --- login ------------------------------------------------------------------

// "iqn.2024-01.org.bftdtest:" and the host name in lower case.
void default_initiator(char* name, size_t size) {
  char host[64] = "";
  if (::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') std::strcpy(host, "initiator");
  for (char* c = host; *c != '\0'; ++c) {
    if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
    if (!((*c >= 'a' && *c <= 'z') || (*c >= '0' && *c <= '9') || *c == '.' || *c == '-')) *c = '-';
  }
  std::snprintf(name, size, "iqn.2024-01.org.bftdtest:%s", host);
}

// Waits on one connect or login step; 0, or -1 after its ERROR line.
int finish_step(Session& session, const Waiter& waiter, Clock::time_point deadline, const char* what) {
  const Served served = serve(session, waiter, deadline, false);
  if (served == Served::timed_out) {
    error_printf("ERROR: iSCSI portal %s: %s: no answer within %d seconds\n", session.portal, what,
                 kIscsiLoginSeconds);
    return -1;
  }
  if (served == Served::lost) {
    error_printf("ERROR: iSCSI portal %s: %s (%s)\n", session.portal, what, session.lost_reason);
    return -1;
  }
  if (waiter.status != SCSI_STATUS_GOOD) {
    error_printf("ERROR: iSCSI portal %s: %s (%s)\n", session.portal, what, failure_reason(session.context, -1));
    return -1;
  }
  return 0;
}

// Connects and logs in. 0, or -1 after its ERROR line (the context freed).
int open_session(Session& session, Clock::time_point deadline) {
  session.context = iscsi_create_context(session.initiator);
  if (session.context == nullptr) {
    error_printf("ERROR: iSCSI portal %s: no memory for a session\n", session.portal);
    return -1;
  }
  iscsi_context* context = session.context;
  iscsi_set_targetname(context, session.target);
  iscsi_set_session_type(context, ISCSI_SESSION_NORMAL);
  iscsi_set_header_digest(context, ISCSI_HEADER_DIGEST_NONE_CRC32C);
  iscsi_set_noautoreconnect(context, 1);
  iscsi_set_log_level(context, 1);
  iscsi_set_log_fn(context, keep_library_message);
  if (session.user[0] != '\0') iscsi_set_initiator_username_pwd(context, session.user, session.secret);

  // A connect callback may come again when the connection ends: it gets a
  // waiter that outlives this function.
  static Waiter connected;
  connected = Waiter{false, 0};
  begin_step();
  int result = iscsi_connect_async(context, session.portal, note_done, &connected);
  if (result != 0) {
    error_printf("ERROR: iSCSI portal %s: cannot connect (%s)\n", session.portal, failure_reason(session.context, -1));
  } else {
    result = finish_step(session, connected, deadline, "cannot connect");
  }
  if (result == 0) {
    Waiter logged_in{false, 0};
    begin_step();
    char what[300];
    std::snprintf(what, sizeof what, "login to %s failed", session.target);
    if (iscsi_login_async(context, note_done, &logged_in) != 0) {
      error_printf("ERROR: iSCSI portal %s: %s (%s)\n", session.portal, what, failure_reason(session.context, -1));
      result = -1;
    } else {
      result = finish_step(session, logged_in, deadline, what);
    }
  }
  if (result != 0) drop_connection(session);
  return result;
}

int seconds_left(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now()).count();
  return left < 1 ? 1 : static_cast<int>(left);
}

// Checks that the target has `lun` (Report LUNs to LUN 0, then Inquiry to
// the LUN) and keeps the unit's inquiry data. 0, or -1 after its ERROR line.
int check_unit(Session& session, Unit& unit, Clock::time_point deadline) {
  uint8_t sense[kSenseAreaSize];
  static uint8_t data[4096];
  PassThroughRequest request{};
  request.sense = sense;
  request.direction = DataDirection::in;
  request.data = data;
  PassThroughReply reply{};

  const uint8_t report_luns[12] = {kOpReportLuns, 0, 0, 0, 0, 0, 0, 0, sizeof data >> 8, 0, 0, 0};
  std::memcpy(request.cdb, report_luns, sizeof report_luns);
  request.cdb_length = sizeof report_luns;
  request.data_length = sizeof data;
  request.timeout_seconds = static_cast<uint32_t>(seconds_left(deadline));
  std::memset(data, 0, sizeof data);
  run_command(session, 0, request, false, reply);
  char listed[128];
  if (reply.error == kErrorNone && reply.scsi_status == 0 &&
      !iscsi_lun_listed(data, reply.transferred_length, unit.lun, listed, sizeof listed)) {
    error_printf("ERROR: iSCSI portal %s: target %s has no LUN %u (it reports LUN %s)\n", session.portal,
                 session.target, static_cast<unsigned>(unit.lun), listed[0] != '\0' ? listed : "none");
    return -1;
  }

  const uint8_t inquiry[6] = {kOpInquiry, 0, 0, 0, 96, 0};
  std::memcpy(request.cdb, inquiry, sizeof inquiry);
  request.cdb_length = sizeof inquiry;
  request.data_length = 96;
  request.timeout_seconds = static_cast<uint32_t>(seconds_left(deadline));
  std::memset(data, 0, sizeof data);
  run_command(session, unit.lun, request, false, reply);
  if (reply.error != kErrorNone || reply.scsi_status != 0) {
    const char* reason = reply.error != kErrorNone ? failure_note : "it answered with a CHECK CONDITION";
    error_printf("ERROR: iSCSI portal %s: Inquiry of LUN %u of %s failed (%s)\n", session.portal,
                 static_cast<unsigned>(unit.lun), session.target, reason);
    return -1;
  }
  if ((data[0] >> 5) == kNoUnitQualifier) {
    error_printf("ERROR: iSCSI portal %s: target %s has no LUN %u\n", session.portal, session.target,
                 static_cast<unsigned>(unit.lun));
    return -1;
  }
  std::memcpy(unit.inquiry, data, sizeof unit.inquiry);
  return 0;
}

// Logs out (at most kLogoutSeconds) and closes the connection.
void end_session(Session& session) {
  if (session.context != nullptr && !session.lost) {
    Waiter logged_out{false, 0};
    if (iscsi_logout_async(session.context, note_done, &logged_out) == 0) {
      serve(session, logged_out, Clock::now() + std::chrono::seconds(kLogoutSeconds), false);
    }
  }
  drop_connection(session);
  session = Session{};
}

bool same_login(const Session& session, const IscsiUrl& url, const char* user, const char* secret,
                const char* initiator) {
  return std::strcmp(session.portal, url.portal) == 0 && std::strcmp(session.target, url.target) == 0 &&
         std::strcmp(session.user, user) == 0 && std::strcmp(session.secret, secret) == 0 &&
         std::strcmp(session.initiator, initiator) == 0;
}

// --- the platform record ---------------------------------------------------

int adapter_number(const char* device_name) {
  unsigned number = 0;
  char end = '\0';
  if (std::sscanf(device_name, "\\\\.\\Scsi%u%c", &number, &end) != 2 || end != ':' || number > 255) return -1;
  for (unsigned i = 0; i < unit_count; ++i) {
    if (units[i].address.port_number == number) return static_cast<int>(number);
  }
  return -1;
}

Unit* unit_at(unsigned adapter, uint8_t bus, uint8_t target_id, uint8_t lun) {
  for (unsigned i = 0; i < unit_count; ++i) {
    const ScsiAddress& a = units[i].address;
    if (a.port_number == adapter && a.path_id == bus && a.target_id == target_id && a.lun == lun) return &units[i];
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
    if (unit.address.path_id >= inquiry->bus_count) inquiry->bus_count = static_cast<uint8_t>(unit.address.path_id + 1);
  }
  return 0;
}

int query_tape_address(PlatformHandle, ScsiAddress*) { return -1; }  // no tape devices, only the adapter

void pass_through(PlatformHandle device, const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  const int adapter = handle_adapter(device);
  Unit* unit = adapter < 0 ? nullptr
                           : unit_at(static_cast<unsigned>(adapter), request.path_id, request.target_id, request.lun);
  if (unit == nullptr) {
    reply.error = adapter < 0 ? kErrorInvalidParameter : kErrorNotFound;
    return;
  }
  run_command(*unit->session, unit->lun, request, true, reply);
}

void close_device(PlatformHandle handle) {
  const PlatformHandle adapter = handle - kAdapterHandleBase;
  if (adapter >= 0 && adapter <= 255) adapter_open[adapter] = false;
}

int device_node(const char* device_name, const ScsiAddress& address, char* text, unsigned size) {
  const int adapter = adapter_number(device_name);
  const Unit* unit = adapter < 0 ? nullptr
                                 : unit_at(static_cast<unsigned>(adapter), address.path_id, address.target_id,
                                           address.lun);
  if (unit == nullptr) return -1;
  std::snprintf(text, size, "%s", unit->shown_url);
  return 0;
}

const char* describe_request_failure() { return failure_note[0] != '\0' ? failure_note : nullptr; }

const Platform kIscsiPlatform = {
    "iscsi",      open_device, query_adapter, query_tape_address, pass_through,
    close_device, nullptr,     device_node,   nullptr,            describe_request_failure,
};

}  // namespace

int iscsi_attach(const IscsiLogin& login, const ScsiAddress& address) {
  IscsiUrl url;
  char reason[200];
  if (parse_iscsi_url(login.url, &url, reason, sizeof reason) != 0) {
    error_printf("ERROR: invalid iSCSI URL: %s\n", reason);
    return -1;
  }
  const bool chap_after = login.chap_user != nullptr && login.chap_user[0] != '\0';
  if (chap_after && url.user[0] != '\0') {
    error_printf("ERROR: iSCSI portal %s: the CHAP user is given both in the URL and after it\n", url.portal);
    return -1;
  }
  if (unit_count == kMaxUnits || unit_at(address.port_number, address.path_id, address.target_id, address.lun)) {
    error_printf("ERROR: iSCSI portal %s: no room for the unit at /hanum %u /bus %u /tid %u /lun %u\n", url.portal,
                 address.port_number, address.path_id, address.target_id, address.lun);
    return -1;
  }
  const char* user = chap_after ? login.chap_user : url.user;
  const char* secret = chap_after ? (login.chap_secret != nullptr ? login.chap_secret : "") : url.password;
  char initiator[224];
  if (login.initiator != nullptr && login.initiator[0] != '\0') {
    std::snprintf(initiator, sizeof initiator, "%s", login.initiator);
  } else {
    default_initiator(initiator, sizeof initiator);
  }
  // A peer that closes the socket must not end the program with SIGPIPE
  // (libiscsi writes data with writev, which cannot be told not to raise it).
  ::signal(SIGPIPE, SIG_IGN);

  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kIscsiLoginSeconds);
  Session* session = nullptr;
  for (unsigned i = 0; i < session_count && session == nullptr; ++i) {
    if (!sessions[i].lost && same_login(sessions[i], url, user, secret, initiator)) session = &sessions[i];
  }
  bool opened = false;
  if (session == nullptr) {
    if (session_count == kMaxSessions) {
      error_printf("ERROR: iSCSI portal %s: more than %u sessions\n", url.portal, kMaxSessions);
      return -1;
    }
    session = &sessions[session_count];
    *session = Session{};
    std::snprintf(session->portal, sizeof session->portal, "%s", url.portal);
    std::snprintf(session->target, sizeof session->target, "%s", url.target);
    std::snprintf(session->user, sizeof session->user, "%s", user);
    std::snprintf(session->secret, sizeof session->secret, "%s", secret);
    std::snprintf(session->initiator, sizeof session->initiator, "%s", initiator);
    if (open_session(*session, deadline) != 0) {
      *session = Session{};
      return -1;
    }
    ++session_count;
    opened = true;
  }
  Unit& unit = units[unit_count];
  unit = Unit{};
  unit.address = address;
  unit.session = session;
  unit.lun = url.lun;
  shown_iscsi_url(url, unit.shown_url, sizeof unit.shown_url);
  std::memset(url.password, 0, sizeof url.password);
  if (check_unit(*session, unit, deadline) != 0) {
    if (opened) {
      end_session(*session);
      --session_count;
    }
    return -1;
  }
  ++unit_count;
  failure_note[0] = '\0';
  return 0;
}

const Platform* iscsi_platform() { return &kIscsiPlatform; }

void iscsi_detach_all() {
  for (unsigned i = 0; i < session_count; ++i) end_session(sessions[i]);
  session_count = 0;
  unit_count = 0;
  for (std::atomic<bool>& open : adapter_open) open = false;
  failure_note[0] = '\0';
}
