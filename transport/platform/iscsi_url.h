// iSCSI unit addresses (`/iscsi <url>`), read and written without libiscsi so
// that every build, with or without iSCSI support, checks them the same way:
//   iscsi://[user[%password]@]host[:port]/<target-iqn>/<lun>
// The host is a name, an IPv4 address or an IPv6 address in brackets; the
// port defaults to 3260; '%' followed by two hex digits in the target name
// stands for that byte (libiscsi's spelling of ':' as "%3A" works). The
// user part ends at the last '@', so a password may hold any character but
// NUL; the user name ends at the first '%'.
//
// Pure functions on caller-owned records; safe on any thread.
#pragma once

#include <cstddef>
#include <cstdint>

// The longest URL taken, with its terminator; it also holds every URL that
// shown_iscsi_url writes (user, portal, a target of 223 escaped bytes, LUN).
constexpr unsigned kIscsiUrlCapacity = 1280;
constexpr uint16_t kIscsiDefaultPort = 3260;
constexpr unsigned kIscsiMaxLun = 16383;  // flat space addressing (SAM)

struct IscsiUrl {
  char host[256];  // without brackets
  uint16_t port;
  char portal[264];  // host:port, an IPv6 host in brackets: what a connect takes
  char target[224];  // iSCSI names are at most 223 bytes (RFC 3720)
  uint16_t lun;
  char user[256];      // empty: no CHAP
  char password[256];  // the CHAP secret; never printed
};

// Reads `text` into `url`. 0, or -1 with the reason in `error` (a sentence
// fragment such as "no LUN after the target name"); the reason never
// quotes the URL, which may hold a password.
int parse_iscsi_url(const char* text, IscsiUrl* url, char* error, size_t error_size);

// For `/list`: a portal, iscsi://[user[%password]@]host[:port] (a final
// '/' allowed), whose targets are to be discovered (`url->target` stays
// empty), or one target of it, iscsi://...host[:port]/<target-iqn>, or a
// whole unit URL as parse_iscsi_url reads it (its target is listed). 0, or
// -1 with the reason in `error`.
int parse_iscsi_portal_url(const char* text, IscsiUrl* url, char* error, size_t error_size);

// The URL that names `url` in reports and results files: its user name
// stays, its password never appears; '%', '/', '@', blanks and control bytes of
// the target are written %XX. Read back, it names the same unit. The text
// is cut to `size` (kIscsiUrlCapacity holds any).
void shown_iscsi_url(const IscsiUrl& url, char* text, size_t size);
