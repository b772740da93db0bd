// Win32 services: a critical section for the output lock, Sleep, the console
// cursor calls, CTRL-C, CTRL-BREAK and the closing of the console through the
// console control handler, which Windows runs on a thread of its own, a file
// opened without sharing for the file lock, and MoveFileEx for the atomic
// replacement.
#include "os/os.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

CRITICAL_SECTION output_lock;
bool output_lock_ready = false;
void (*break_handler)(BreakKind) = nullptr;
// Windows runs the control handler on a new thread for every event; only the
// first one is delivered, as with the single delivery thread on POSIX. Later
// ones are swallowed while the first handler runs (it ends the process).
volatile LONG break_delivered = 0;

CRITICAL_SECTION& lock() {
  if (!output_lock_ready) {
    InitializeCriticalSection(&output_lock);
    output_lock_ready = true;
  }
  return output_lock;
}

// The console events that end a run. A closed console gives the handler
// about five seconds before Windows ends the process; the handler ends it
// itself well before.
BOOL WINAPI on_console_control(DWORD control_type) {
  BreakKind kind;
  switch (control_type) {
    case CTRL_C_EVENT: kind = BreakKind::interrupt; break;
    case CTRL_BREAK_EVENT: kind = BreakKind::terminate; break;
    case CTRL_CLOSE_EVENT: kind = BreakKind::hangup; break;
    default: return FALSE;
  }
  if (break_handler == nullptr) return FALSE;
  if (InterlockedExchange(&break_delivered, 1) != 0) return TRUE;  // already handling one
  break_handler(kind);  // does not return
  return TRUE;
}

DWORD WINAPI deliver_console_close(LPVOID) { return on_console_control(CTRL_CLOSE_EVENT) ? 0 : 1; }

}  // namespace

void os_init_console() {
  lock();
  _setmode(_fileno(stdout), _O_BINARY);
}

void os_sleep_ms(uint32_t milliseconds) { Sleep(milliseconds); }

uint64_t os_monotonic_ns() {
  static const uint64_t frequency = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return static_cast<uint64_t>(f.QuadPart);
  }();
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  const uint64_t ticks = static_cast<uint64_t>(counter.QuadPart);
  // Split so that ticks * 1e9 cannot overflow.
  return ticks / frequency * 1000000000u + ticks % frequency * 1000000000u / frequency;
}

// QueryPerformanceCounter is already the cheap counter on Windows.
uint64_t os_fast_ticks() { return os_monotonic_ns(); }
double os_fast_ticks_per_ns() { return 1.0; }

bool os_stream_is_terminal(FILE* stream) {
  if (stream == nullptr) return false;
  int fd = _fileno(stream);
  return fd >= 0 && _isatty(fd) != 0;
}

void os_set_cursor_visible(FILE* screen, bool visible) {
  if (screen != stdout) return;
  HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_CURSOR_INFO info;
  if (console == INVALID_HANDLE_VALUE || !GetConsoleCursorInfo(console, &info)) return;
  info.bVisible = visible ? TRUE : FALSE;
  SetConsoleCursorInfo(console, &info);
}

void os_lock_output() { EnterCriticalSection(&lock()); }
void os_unlock_output() { LeaveCriticalSection(&lock()); }

const char* os_break_name(BreakKind kind) {
  switch (kind) {
    case BreakKind::interrupt: return "CTRL-C";
    case BreakKind::terminate: return "CTRL-BREAK";
    case BreakKind::hangup: return "console close";
  }
  return "CTRL-C";
}

int os_install_break_handler(void (*handler)(BreakKind)) {
  break_handler = handler;
  InterlockedExchange(&break_delivered, 0);
  return SetConsoleCtrlHandler(on_console_control, TRUE) ? 0 : -1;
}

void os_remove_break_handler() {
  SetConsoleCtrlHandler(on_console_control, FALSE);
  // A handler already running ends the process; never return into a program
  // whose cleanup it is doing.
  while (InterlockedCompareExchange(&break_delivered, 0, 0) != 0) Sleep(INFINITE);
  break_handler = nullptr;
}

void os_send_break(BreakKind kind) {
  switch (kind) {
    case BreakKind::interrupt: GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0); break;
    case BreakKind::terminate: GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0); break;
    case BreakKind::hangup: {
      HANDLE thread = CreateThread(nullptr, 0, deliver_console_close, nullptr, 0, nullptr);
      if (thread != nullptr) CloseHandle(thread);
      break;
    }
  }
}

int os_host_name(char* name, size_t size) {
  if (size == 0) return -1;
  char whole[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD length = sizeof whole;
  if (!GetComputerNameA(whole, &length)) {
    name[0] = '\0';
    return -1;
  }
  std::snprintf(name, size, "%s", whole);
  return name[0] != '\0' ? 0 : -1;
}

uint32_t os_process_id() { return static_cast<uint32_t>(GetCurrentProcessId()); }

namespace {

// What a name stands for, as os_same_file compares it.
struct FileIdentity {
  bool comparable = false;
  bool exists = false;
  DWORD volume = 0;
  uint64_t index = 0;      // of the file, or of its directory when it does not exist
  std::string final_name;  // when it does not exist
};

// Opens `path` (a file or a directory) only to ask who it is: no access
// asked for, every kind of sharing allowed, so it never disturbs an owner.
bool file_information(const std::string& path, BY_HANDLE_FILE_INFORMATION* info, DWORD* error) {
  HANDLE handle = CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    *error = GetLastError();
    return false;
  }
  const bool disk_file = GetFileType(handle) == FILE_TYPE_DISK;
  const bool known = GetFileInformationByHandle(handle, info) != 0;
  CloseHandle(handle);
  *error = disk_file ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  return disk_file && known;
}

FileIdentity identity_of(const std::string& path) {
  FileIdentity identity;
  BY_HANDLE_FILE_INFORMATION info;
  DWORD error = ERROR_SUCCESS;
  if (file_information(path, &info, &error)) {
    identity.comparable = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    identity.exists = true;
    identity.volume = info.dwVolumeSerialNumber;
    identity.index = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    return identity;
  }
  if (error != ERROR_FILE_NOT_FOUND) return identity;
  const size_t separator = path.find_last_of("/\\:");
  std::string directory = separator == std::string::npos ? "." : path.substr(0, separator + 1);
  if (directory.back() == ':') directory += ".";  // "C:name": the current directory of drive C
  identity.final_name = separator == std::string::npos ? path : path.substr(separator + 1);
  if (identity.final_name.empty() || identity.final_name == "." || identity.final_name == "..") return identity;
  if (!file_information(directory, &info, &error) || (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    return identity;
  }
  identity.comparable = true;
  identity.volume = info.dwVolumeSerialNumber;
  identity.index = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
  return identity;
}

}  // namespace

bool os_same_file(const char* first, const char* second) {
  const FileIdentity a = identity_of(first);
  const FileIdentity b = identity_of(second);
  return a.comparable && b.comparable && a.exists == b.exists && a.volume == b.volume && a.index == b.index &&
         _stricmp(a.final_name.c_str(), b.final_name.c_str()) == 0;
}

int os_sync_file(FILE* file) {
  if (std::fflush(file) != 0) return -1;
  return _commit(_fileno(file)) == 0 ? 0 : -1;
}

void os_exit_now(int code) {
  ExitProcess(static_cast<UINT>(code));
}

int os_try_lock_file(const char* path, intptr_t* lock) {
  // No sharing: while this handle is open every other open of the file fails.
  HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                            nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION ? 1 : -1;
  *lock = reinterpret_cast<intptr_t>(file);
  return 0;
}

void os_unlock_file(intptr_t lock) { CloseHandle(reinterpret_cast<HANDLE>(lock)); }

int os_replace_file(const char* from, const char* to) {
  return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ? 0 : -1;
}

int os_make_directory(const char* path) {
  if (CreateDirectoryA(path, nullptr)) return 0;
  const DWORD attributes = GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : -1;
}
