#include "transport/platform/libiscsi_session.h"

#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "transport/platform/iscsi_answer.h"
#include "transport/platform/iscsi_platform.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLogoutSeconds = 3;

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
    if (open != nullptr && open > library_message && open[-1] == ' ')
      length = static_cast<size_t>(open - 1 - library_message);
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
    if (peeked < 0 && (errno == ECONNRESET || errno == EPIPE || errno == ETIMEDOUT))
      return std::strerror(errno);
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

void lose(IscsiSession& session, const char* reason) {
  if (session.lost) return;
  session.lost = true;
  std::snprintf(session.lost_reason, sizeof session.lost_reason, "%s", reason);
}

// Ends a lost connection: libiscsi runs the callbacks of whatever is still
// queued (status CANCELLED) and closes the socket.
void drop_connection(IscsiSession& session) {
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
Served serve(IscsiSession& session, const Waiter& waiter, Clock::time_point deadline, bool keepalive) {
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
    // POLLRDHUP tells a target that closed the connection from one that
    // broke it: libiscsi says nothing when a read finds the end.
    const short events = static_cast<short>(iscsi_which_events(context) | POLLRDHUP);
    pollfd descriptor{iscsi_get_fd(context), events, 0};
    const int ready = ::poll(&descriptor, 1, milliseconds_until(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) {
      lose(session, std::strerror(errno));
      return Served::lost;
    }
    if (ready == 0) continue;
    if ((descriptor.revents & POLLIN) != 0) last_heard = Clock::now();
    const bool closed =
        (descriptor.revents & (POLLRDHUP | POLLHUP)) != 0 && iscsi_is_logged_in(context) != 0;
    // A failed connection shows as a failed service or, when libiscsi has
    // cancelled its tasks itself, as the command's CANCELLED.
    if (iscsi_service(context, descriptor.revents) < 0 ||
        (waiter.done && waiter.status == SCSI_STATUS_CANCELLED)) {
      lose(session, closed ? "the target closed the connection" : failure_reason(context, descriptor.fd));
      return Served::lost;
    }
  }
  return Served::done;
}

void note_failure(const IscsiSession& session, const char* what) {
  std::snprintf(failure_note, sizeof failure_note, "ERROR: iSCSI portal %s: %s", session.portal, what);
}

void note_lost(const IscsiSession& session) {
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

// Waits on one connect or login step; 0, or -1 after its ERROR line.
int finish_step(IscsiSession& session, const Waiter& waiter, Clock::time_point deadline, const char* what) {
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
    error_printf("ERROR: iSCSI portal %s: %s (%s)\n", session.portal, what,
                 failure_reason(session.context, -1));
    return -1;
  }
  return 0;
}

}  // namespace

void run_iscsi_command(IscsiSession& session, uint16_t lun, const PassThroughRequest& request, bool keepalive,
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
  scsi_task* task =
      scsi_create_task(request.cdb_length, cdb, direction, static_cast<int>(request.data_length));
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
      direction == SCSI_XFER_NONE
          ? 0
          : iscsi_transferred_length(request.data_length, residual_kind(*task), task->residual);
  if (waiter.status == SCSI_STATUS_CHECK_CONDITION && task->datain.data != nullptr && task->datain.size > 0) {
    reply.sense_length = iscsi_response_sense(task->datain.data, static_cast<size_t>(task->datain.size),
                                              request.sense, kSenseAreaSize - 1);
  }
  scsi_free_scsi_task(task);
}

void default_iscsi_initiator(char* name, size_t size) {
  char host[64] = "";
  if (::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') std::strcpy(host, "initiator");
  for (char* c = host; *c != '\0'; ++c) {
    if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
    if (!((*c >= 'a' && *c <= 'z') || (*c >= '0' && *c <= '9') || *c == '.' || *c == '-')) *c = '-';
  }
  std::snprintf(name, size, "iqn.2024-01.org.bftdtest:%s", host);
}

namespace {

// What a SendTargets answer left: the callback copies the names (libiscsi
// frees its list when the callback returns).
struct DiscoveryWaiter {
  Waiter waiter;
  std::vector<std::string>* targets;
};

void note_targets(iscsi_context*, int status, void* command_data, void* data) {
  auto* discovery = static_cast<DiscoveryWaiter*>(data);
  if (status == SCSI_STATUS_GOOD) {
    for (auto* address = static_cast<iscsi_discovery_address*>(command_data); address != nullptr;
         address = address->next) {
      if (address->target_name != nullptr) discovery->targets->emplace_back(address->target_name);
    }
  }
  note_done(nullptr, status, nullptr, &discovery->waiter);
}

}  // namespace

int open_iscsi_session(IscsiSession& session, IscsiDeadline deadline) {
  session.context = iscsi_create_context(session.initiator);
  if (session.context == nullptr) {
    error_printf("ERROR: iSCSI portal %s: no memory for a session\n", session.portal);
    return -1;
  }
  iscsi_context* context = session.context;
  const bool discovery = session.target[0] == '\0';
  if (!discovery) iscsi_set_targetname(context, session.target);
  iscsi_set_session_type(context, discovery ? ISCSI_SESSION_DISCOVERY : ISCSI_SESSION_NORMAL);
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
    error_printf("ERROR: iSCSI portal %s: cannot connect (%s)\n", session.portal,
                 failure_reason(session.context, -1));
  } else {
    result = finish_step(session, connected, deadline, "cannot connect");
  }
  if (result == 0) {
    Waiter logged_in{false, 0};
    begin_step();
    char what[300];
    if (discovery) {
      std::snprintf(what, sizeof what, "discovery login failed");
    } else {
      std::snprintf(what, sizeof what, "login to %s failed", session.target);
    }
    if (iscsi_login_async(context, note_done, &logged_in) != 0) {
      error_printf("ERROR: iSCSI portal %s: %s (%s)\n", session.portal, what,
                   failure_reason(session.context, -1));
      result = -1;
    } else {
      result = finish_step(session, logged_in, deadline, what);
    }
  }
  if (result != 0) drop_connection(session);
  return result;
}

int discover_iscsi_targets(IscsiSession& session, IscsiDeadline deadline, std::vector<std::string>* targets) {
  session.target[0] = '\0';
  int result = open_iscsi_session(session, deadline);
  if (result == 0) {
    DiscoveryWaiter discovery{{false, 0}, targets};
    begin_step();
    if (iscsi_discovery_async(session.context, note_targets, &discovery) != 0) {
      error_printf("ERROR: iSCSI portal %s: SendTargets failed (%s)\n", session.portal,
                   failure_reason(session.context, -1));
      result = -1;
    } else {
      result = finish_step(session, discovery.waiter, deadline, "SendTargets failed");
    }
  }
  end_iscsi_session(session);
  return result;
}

void end_iscsi_session(IscsiSession& session) {
  if (session.context != nullptr && !session.lost) {
    Waiter logged_out{false, 0};
    if (iscsi_logout_async(session.context, note_done, &logged_out) == 0) {
      serve(session, logged_out, Clock::now() + std::chrono::seconds(kLogoutSeconds), false);
    }
  }
  drop_connection(session);
  session = IscsiSession{};
}

const char* iscsi_failure_note() { return failure_note[0] != '\0' ? failure_note : nullptr; }

void clear_iscsi_failure_note() { failure_note[0] = '\0'; }
