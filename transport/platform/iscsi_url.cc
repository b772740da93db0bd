#include "transport/platform/iscsi_url.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char kScheme[] = "iscsi://";
constexpr char kSyntax[] = "iscsi://[user[%password]@]host[:port]/<target-iqn>/<lun>";

int fail(char* error, size_t size, const char* reason, bool with_syntax = false) {
  std::snprintf(error, size, with_syntax ? "%s (%s)" : "%s", reason, kSyntax);
  return -1;
}

// Copies [begin, end) into `field` of `capacity` bytes. False when it does not fit.
bool copy_span(const char* begin, const char* end, char* field, size_t capacity) {
  const size_t length = static_cast<size_t>(end - begin);
  if (length >= capacity) return false;
  std::memcpy(field, begin, length);
  field[length] = '\0';
  return true;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decimal digits only, at most `limit`. -1 when not such a number.
long decimal(const char* begin, const char* end, long limit) {
  if (begin == end) return -1;
  long value = 0;
  for (const char* c = begin; c != end; ++c) {
    if (*c < '0' || *c > '9') return -1;
    value = value * 10 + (*c - '0');
    if (value > limit) return -1;
  }
  return value;
}

// The target name with its %XX escapes decoded. 0, or -1 after the reason.
int decode_target(const char* begin, const char* end, IscsiUrl* url, char* error, size_t size) {
  size_t used = 0;
  for (const char* c = begin; c != end; ++c) {
    char byte = *c;
    if (byte == '%') {
      const int high = end - c > 2 ? hex_value(c[1]) : -1;
      const int low = high >= 0 ? hex_value(c[2]) : -1;
      if (low < 0) return fail(error, size, "'%' in the target name is not followed by two hex digits");
      byte = static_cast<char>(high * 16 + low);
      c += 2;
    }
    if (static_cast<unsigned char>(byte) <= ' ' || byte == 0x7F) {
      return fail(error, size, "blank or control character in the target name");
    }
    if (used + 1 >= sizeof url->target) return fail(error, size, "target name longer than 223 bytes");
    url->target[used++] = byte;
  }
  url->target[used] = '\0';
  if (used == 0) return fail(error, size, "empty target name", true);
  return 0;
}

// host[:port] or [v6]:port between `begin` and `end`. 0, or -1 after the reason.
int read_portal(const char* begin, const char* end, IscsiUrl* url, char* error, size_t size) {
  const char* host_end = nullptr;
  const char* after_host = nullptr;
  const char* host_begin = begin;
  if (begin != end && *begin == '[') {
    host_begin = begin + 1;
    host_end = static_cast<const char*>(std::memchr(begin, ']', static_cast<size_t>(end - begin)));
    if (host_end == nullptr) return fail(error, size, "'[' without ']' around the IPv6 address");
    after_host = host_end + 1;
    if (after_host != end && *after_host != ':')
      return fail(error, size, "text after ']' that is not a port");
  } else {
    host_end = static_cast<const char*>(std::memchr(begin, ':', static_cast<size_t>(end - begin)));
    if (host_end == nullptr) host_end = end;
    after_host = host_end;
    if (after_host != end &&
        std::memchr(after_host + 1, ':', static_cast<size_t>(end - after_host - 1)) != nullptr) {
      return fail(error, size, "an IPv6 address needs brackets, as in iscsi://[::1]:3260/...");
    }
  }
  if (host_begin == host_end) return fail(error, size, "no host name or address", true);
  if (!copy_span(host_begin, host_end, url->host, sizeof url->host)) {
    return fail(error, size, "host name longer than 255 characters");
  }
  for (const char* c = url->host; *c != '\0'; ++c) {
    if (static_cast<unsigned char>(*c) <= ' ' || *c == '@' || *c == '%' || *c == '[' || *c == ']') {
      return fail(error, size, "the host name holds a character no host name has");
    }
  }
  url->port = kIscsiDefaultPort;
  if (after_host != end) {
    const long port = decimal(after_host + 1, end, 65535);
    if (port <= 0) return fail(error, size, "the port is not a number from 1 to 65535");
    url->port = static_cast<uint16_t>(port);
  }
  const bool bracketed = std::strchr(url->host, ':') != nullptr;
  std::snprintf(url->portal, sizeof url->portal, bracketed ? "[%s]:%u" : "%s:%u", url->host,
                static_cast<unsigned>(url->port));
  return 0;
}

// The scheme and the user part of `text`: `*rest` is left at the portal.
// 0, or -1 after the reason.
int read_scheme_and_user(const char* text, IscsiUrl* url, const char** rest_out, char* error, size_t error_size) {
  *url = IscsiUrl{};
  if (error_size > 0) error[0] = '\0';
  const size_t scheme_length = sizeof kScheme - 1;
  if (std::strncmp(text, kScheme, scheme_length) != 0) {
    return fail(error, error_size, "it does not begin with iscsi://", true);
  }
  const char* rest = text + scheme_length;
  const char* end = rest + std::strlen(rest);
  if (static_cast<size_t>(end - text) >= kIscsiUrlCapacity) {
    return fail(error, error_size, "longer than 1279 characters");
  }

  // iSCSI names and host names have no '@': the last one ends the user part.
  const char* at = std::strrchr(rest, '@');
  if (at != nullptr) {
    const char* percent = static_cast<const char*>(std::memchr(rest, '%', static_cast<size_t>(at - rest)));
    const char* user_end = percent != nullptr ? percent : at;
    if (user_end == rest) return fail(error, error_size, "empty CHAP user name before '@'");
    if (!copy_span(rest, user_end, url->user, sizeof url->user)) {
      return fail(error, error_size, "CHAP user name longer than 255 characters");
    }
    if (percent != nullptr) {
      if (percent + 1 == at) return fail(error, error_size, "empty CHAP secret after '%'");
      if (!copy_span(percent + 1, at, url->password, sizeof url->password)) {
        return fail(error, error_size, "CHAP secret longer than 255 characters");
      }
    }
    rest = at + 1;
  }
  *rest_out = rest;
  return 0;
}

}  // namespace

int parse_iscsi_url(const char* text, IscsiUrl* url, char* error, size_t error_size) {
  const char* rest = nullptr;
  if (read_scheme_and_user(text, url, &rest, error, error_size) != 0) return -1;
  const char* end = rest + std::strlen(rest);
  const char* slash = std::strchr(rest, '/');
  if (slash == nullptr) return fail(error, error_size, "no target name after the portal", true);
  if (read_portal(rest, slash, url, error, error_size) != 0) return -1;
  const char* last_slash = std::strrchr(slash, '/');
  if (last_slash == slash) return fail(error, error_size, "no LUN after the target name", true);
  if (decode_target(slash + 1, last_slash, url, error, error_size) != 0) return -1;
  const long lun = decimal(last_slash + 1, end, kIscsiMaxLun);
  if (lun < 0) return fail(error, error_size, "the LUN is not a number from 0 to 16383");
  url->lun = static_cast<uint16_t>(lun);
  return 0;
}

int parse_iscsi_portal_url(const char* text, IscsiUrl* url, char* error, size_t error_size) {
  const char* rest = nullptr;
  if (read_scheme_and_user(text, url, &rest, error, error_size) != 0) return -1;
  const char* slash = std::strchr(rest, '/');
  const char* target = slash != nullptr && slash[1] != '\0' ? slash + 1 : nullptr;
  if (target != nullptr && std::strchr(target, '/') != nullptr) return parse_iscsi_url(text, url, error, error_size);
  const char* end = slash != nullptr ? slash : rest + std::strlen(rest);
  if (read_portal(rest, end, url, error, error_size) != 0) {
    if (error_size > 0 && std::strstr(error, kSyntax) != nullptr) {
      std::snprintf(error, error_size, "no host name or address (iscsi://[user[%%password]@]host[:port])");
    }
    return -1;
  }
  // iscsi://host/<target-iqn>: that target alone.
  return target != nullptr ? decode_target(target, target + std::strlen(target), url, error, error_size) : 0;
}

void shown_iscsi_url(const IscsiUrl& url, char* text, size_t size) {
  // The target as a URL spells it: what would end it or read as an escape,
  // and what cannot be seen, as %XX.
  char target[3 * sizeof url.target];
  size_t used = 0;
  for (const char* c = url.target; *c != '\0'; ++c) {
    const unsigned char byte = static_cast<unsigned char>(*c);
    const bool escaped = byte == '%' || byte == '/' || byte == '@' || byte <= ' ' || byte == 0x7F;
    used += static_cast<size_t>(
        std::snprintf(target + used, sizeof target - used, escaped ? "%%%02X" : "%c", static_cast<unsigned>(byte)));
  }
  std::snprintf(text, size, "iscsi://%s%s%s/%s/%u", url.user, url.user[0] != '\0' ? "@" : "", url.portal, target,
                static_cast<unsigned>(url.lun));
}
