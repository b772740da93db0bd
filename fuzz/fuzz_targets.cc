// Every libFuzzer target of the program in one file: fuzz/CMakeLists.txt
// builds one executable per target, each with BFTDTEST_FUZZ_TARGET naming the
// function below that takes its inputs. Seeds lie in corpus/<target>/, words
// in <target>.dict. Each target runs in a scratch directory of its own (the
// program reads "bftdtest.dsc" and `/cfg` files from the current directory)
// with the screen and error streams sent to /dev/null, and stops the fuzzer
// when an invariant of the program breaks.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "changer/element_status.h"
#include "console/log_output.h"
#include "drive_status/collection.h"
#include "drive_status/dsc_config.h"
#include "drive_status/log_parameters.h"
#include "run/options.h"
#include "run/run_sequence.h"
#include "settings/number_syntax.h"
#include "settings/settings.h"
#include "summary/summary_chart.h"
#include "summary/summary_rows.h"
#include "summary/summary_table.h"
#include "transport/command_buffers.h"
#include "transport/platform/iscsi_url.h"
#include "transport/platform/platform.h"
#include "transport/platform/win32_inquiry_walker.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"
#include "transport/transport_lifecycle.h"
#include "vtape/backing_file.h"
#include "vtape/cartridge.h"
#if __has_include(<scsi/sg.h>)
#include <scsi/sg.h>

#include "transport/platform/platform_linux.h"
#endif

namespace fs = std::filesystem;

namespace {

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "broken invariant: %s\n", what);
  std::abort();
}

void write_file(const fs::path& name, const std::string& bytes) {
  FILE* file = std::fopen(name.c_str(), "wb");
  check(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
            std::fclose(file) == 0,
        "a scratch file can be written");
}

// Splits at every `separator`, at most `limit` pieces.
std::vector<std::string> split(const std::string& text, char separator, size_t limit) {
  std::vector<std::string> pieces(1);
  for (char c : text) {
    if (c != separator) {
      pieces.back().push_back(c);
    } else if (pieces.size() < limit) {
      pieces.emplace_back();
    } else {
      break;
    }
  }
  return pieces;
}

bool ends_within(const char* text, size_t capacity) { return memchr(text, '\0', capacity) != nullptr; }

// What `action` writes to the screen; it must be whole "\r\n" lines.
template <class Action>
void check_screen_lines(Action action) {
  char* text = nullptr;
  size_t length = 0;
  FILE* memory = open_memstream(&text, &length);
  check(memory != nullptr, "memory stream");
  FILE* previous = screen_stream();
  set_screen_stream(memory);
  action(memory);
  std::fclose(memory);
  set_screen_stream(previous);
  check(length == 0 || (length >= 2 && text[length - 2] == '\r' && text[length - 1] == '\n'),
        "the report ends with a whole line");
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '\n') check(i > 0 && text[i - 1] == '\r', "every line ends in CR LF");
  }
  std::free(text);
}

// Bytes of the input taken in order; 0 once it is used up.
struct Input {
  const uint8_t* data;
  size_t left;
  uint32_t take(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
      value <<= 8;
      if (left > 0) value |= (--left, *data++);
    }
    return value;
  }
} input;

int parse_arguments(std::vector<std::string> texts) {
  std::vector<char*> arguments;
  std::string program_name = "bftdtest";
  arguments.push_back(program_name.data());
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  int result = parse_options(static_cast<uint16_t>(arguments.size() - 1), arguments.data());
  check(result == 0 || result == -1, "parse_options returns 0 or -1");
  check(exit_code == 0 || exit_code == 1, "exit code 0 or 1");
  check(result != 0 || exit_code == 1, "the help screen ends the parse");
  check(result != 0 || test_settings.max_transfer_length != 0, "a zero transfer length is refused");
  check(ends_within(test_settings.output_file_name, kFileNameCapacity) &&
            ends_within(test_settings.cdb_list_file_name, kFileNameCapacity) &&
            ends_within(test_settings.pattern_file_name, kFileNameCapacity) &&
            ends_within(test_settings.virtual_drive_file_name, kFileNameCapacity),
        "file names stay within their capacity");
  return result;
}

// A platform with one tape drive (adapter 0, bus 0, id 2, LUN 0) whose every
// answer comes from the input: check conditions, failed requests, data and
// residues.
const Platform kInputDrive = {
    "input drive",
    [](const char* name, PlatformHandle* handle) {
      *handle = 1;
      return std::strcmp(name, "\\\\.\\Scsi0:") == 0 ? kErrorNone : kErrorNotFound;
    },
    [](PlatformHandle, AdapterInquiry* inquiry) {
      std::memset(inquiry, 0, sizeof *inquiry);
      inquiry->bus_count = 1;
      inquiry->unit_count = 1;
      inquiry->units[0] = {0, 2, 0, 0, 36, {0x01}};
      return 0;
    },
    [](PlatformHandle, ScsiAddress*) { return -1; },
    [](PlatformHandle, const PassThroughRequest& request, PassThroughReply& reply) {
      reply = PassThroughReply{};
      uint32_t control = input.take(1);
      if ((control & 1) != 0) {
        reply.scsi_status = 0x02;
        reply.sense_length = 18;
        for (unsigned i = 0; i < 18; ++i) request.sense[i] = static_cast<uint8_t>(input.take(1));
      }
      if ((control & 2) != 0) reply.error = 1117;
      uint32_t length = request.direction == DataDirection::in ? request.data_length : 0;
      for (uint32_t i = 0; i < length; ++i) request.data[i] = static_cast<uint8_t>(input.take(1));
      uint32_t residue = (control & 4) != 0 ? input.take(1) : 0;
      reply.transferred_length = residue < length ? length - residue : 0;
    },
    [](PlatformHandle) {},
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

// Each line of the input is one argument; the scratch directory holds a
// "bftdtest.dsc" and a configuration file, so /dsc and /cfg reach their readers.
int options_fuzz(const std::string& text) {
  static bool written = false;
  if (!written) {
    written = true;
    write_file("bftdtest.dsc", "; sections\r\nVT drive\r\nTDWR LSD 0Ch 4 4 1\r\nRPOS RPD 0 4 4 1\r\nOTHER\r\n");
    write_file("a.cfg", "/megs 4 /sdint 2, /lbsize=0x8000\r\nnot an option /tid 3\r\n/cfg a.cfg /dsc VT 100\r\n");
  }
  int result = parse_arguments(split(text, '\n', 2000));
  check(result != 0 || test_settings.block_size_from_mode_sense != 0 ||
            test_settings.logical_block_size <= test_settings.max_transfer_length,
        "a block size above the transfer length is refused");
  return 0;
}

// The input is the content of a /cfg file.
int config_file_fuzz(const std::string& text) {
  write_file("fuzz.cfg", text);
  int result = parse_arguments({"/cfg", "fuzz.cfg"});
  FILE* file = std::fopen("fuzz.cfg", "rb");
  check(file != nullptr, "the configuration file can be reopened");
  uint16_t count = read_config_args(file, 0, nullptr);  // the counting pass alone
  std::fclose(file);
  check(count != 1 || result == 0, "a file without option lines is accepted");
  return 0;
}

// An `/iscsi` URL: read, shown without its password, read back as the same
// unit.
int iscsi_url_fuzz(const std::string& input_text) {
  const std::string text = input_text.c_str();
  IscsiUrl url;
  char error[200];
  if (parse_iscsi_url(text.c_str(), &url, error, sizeof error) != 0) return 0;
  char shown[kIscsiUrlCapacity];
  shown_iscsi_url(url, shown, sizeof shown);
  IscsiUrl again;
  check(parse_iscsi_url(shown, &again, error, sizeof error) == 0, "the shown URL reads back");
  check(std::strcmp(again.portal, url.portal) == 0 && std::strcmp(again.target, url.target) == 0 &&
            again.lun == url.lun && std::strcmp(again.user, url.user) == 0 && again.password[0] == '\0',
        "the shown URL names the same unit, without the password");
  return 0;
}

// Decimal and "0x" texts are checked against a conversion that saturates.
int number_fuzz(const std::string& input_text) {
  std::string text = input_text.c_str();
  const std::string original = text;
  uint32_t value = parse_number(text.data());
  check(std::strlen(text.c_str()) + 1 >= original.size(), "at most the suffix letter is removed");
  bool hex = original.size() > 2 && original.compare(0, 2, "0x") == 0;
  std::string digits = hex ? original.substr(2) : original;
  if (digits.empty() || original.size() >= 30 ||
      digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos) {
    return 0;
  }
  uint64_t expected = 0;
  for (char c : digits) expected = std::min<uint64_t>(expected * (hex ? 16 : 10) + std::stoul(std::string(1, c), nullptr, 16), 0x100000000);
  check(value == std::min<uint64_t>(expected, 0xFFFFFFFF), "reference value");
  return 0;
}

// The first line is the label, the rest the "bftdtest.dsc" file; an accepted
// entry stays within the data the collection reads.
int dsc_fuzz(const std::string& text) {
  size_t end_of_label = std::min(text.find('\n'), text.size());
  std::string label = std::string(text.c_str(), std::min(std::strlen(text.c_str()), end_of_label)).substr(0, 82);
  write_file("bftdtest.dsc", text.substr(std::min(end_of_label + 1, text.size())));
  int result = load_drive_status_config(label.c_str());
  check(result == 0 || result == -1, "the reader returns 0 or -1");
  for (const DscEntry& entry : dsc_entries) {
    if (result != 0 || entry.selected == 0) continue;
    uint32_t source = std::strcmp(entry.command, "LSD") == 0   ? kDscLogDataLength
                      : std::strcmp(entry.command, "RPD") == 0 ? kDscReadPositionLength
                      : std::strcmp(entry.command, "RSD") == 0 ? kDscSenseLength
                                                               : 0;
    check(entry.length >= 1 && entry.length <= 4 && uint32_t{entry.offset} + entry.length <= source,
          "an accepted entry has a known command and stays within its source");
  }
  return 0;
}

// The "bftdtest.dsc" entries (even ones the reader refuses) and every answer
// of the drive to the collection's commands come from the input; both phases
// of a write and a read/compare interval run over them.
int drive_status_fuzz(const std::string&) {
  reset_drive_status();
  set_active_platform(&kInputDrive);
  check(start_transport(nullptr) == 0, "the transport starts on the input drive");
  check(set_target_id(2) == 0, "the drive's address is valid");
  static const char* const kCommands[] = {"LSD", "RPD", "RSD", "XYZ"};
  for (DscEntry& entry : dsc_entries) {
    uint32_t flags = input.take(1);
    entry.selected = flags & 1;
    std::memcpy(entry.command, kCommands[(flags >> 1) & 3], 4);
    entry.page = static_cast<uint8_t>(input.take(1));
    entry.offset = static_cast<uint8_t>(input.take(1));
    entry.length = static_cast<uint8_t>(input.take(1));
    entry.multiplier = input.take(2);
  }
  test_settings.drive_status_enabled = 1;
  check_screen_lines([](FILE*) {
    for (uint16_t kind = 0; kind < 2; ++kind) {
      if (collect_drive_status(0, kind, 0.0) != 0 || collect_drive_status(1, kind, input.take(1) * 65536.0) != 0) break;
      check(!std::isnan(drive_status.max_rwr_percentage) && !std::isnan(drive_status.max_ecc_percentage),
            "the largest percentages are numbers");
    }
  });
  shutdown_transport();
  set_active_platform(nullptr);
  return 0;
}

// Random command outcomes, sense bytes and dump ranges.
int status_report_fuzz(const std::string&) {
  std::vector<uint8_t> sense(kSenseBufferSize, 0);
  ScsiResult& result = scsi_transport.result;
  result.win32_error = input.take(2);
  result.target_status = static_cast<uint8_t>(input.take(1));
  result.sense_key_byte = static_cast<uint8_t>(input.take(1));
  result.transferred_length = input.take(4);
  uint32_t buffer_size = input.take(2) & 0x3FF;  // up to 1023 bytes keeps the fuzzer fast
  uint32_t start = input.take(4);
  uint32_t count = input.take(4);
  std::memcpy(sense.data(), input.data, std::min(input.left, sense.size()));
  result.sense_data = sense.data();
  std::vector<uint8_t> dumped(input.data, input.data + input.left);
  dumped.resize(buffer_size);
  check_screen_lines([&](FILE* memory) {
    print_command_status();
    int dump = hex_dump(nullptr, dumped.empty() ? nullptr : dumped.data(), buffer_size, start, count);
    check(dump == (buffer_size == 0 ? -1 : 0), "hex_dump refuses only empty buffers");
    hex_dump(memory, dumped.data(), buffer_size, start, count);
  });
  result.sense_data = nullptr;
  return 0;
}

// A medium changer's element status answer: a capacity (1 to 64
// descriptors) and the bytes, read as the allocation length they fill.
int element_status_fuzz(const std::string&) {
  const uint32_t capacity = 1 + input.take(1) % 64;
  std::vector<uint8_t> buffer(input.data, input.data + std::min<size_t>(input.left, 8192));
  static ElementStatus elements[64];
  const uint32_t length = static_cast<uint32_t>(buffer.size());
  const ElementStatusReport report =
      parse_element_status(buffer.empty() ? nullptr : buffer.data(), length, elements, capacity);
  check(report.parsed <= capacity, "no more descriptors than the array holds");
  check(length >= kElementStatusHeaderLength || (report.malformed && report.parsed == 0),
        "a buffer without a whole header gives nothing");
  check(report.parsed * kElementDescriptorMinLength <= length, "each descriptor lies within the buffer");
  for (uint32_t i = 0; i < report.parsed; ++i) {
    const ElementStatus& e = elements[i];
    check(e.type >= kMediumTransportElement && e.type <= kDataTransferElement, "a known element type");
    check(ends_within(e.barcode, sizeof e.barcode), "a barcode ends within its field");
    for (const char* c = e.barcode; *c != '\0'; ++c) check(*c >= 0x20 && *c < 0x7F, "a barcode is printable");
    check(e.identifier_length <= kMaxIdentifierLength, "an identifier fits its field");
    char serial[kMaxIdentifierLength + 1];
    identifier_serial(e, serial, sizeof serial);
    check(ends_within(serial, sizeof serial), "a serial ends within its field");
    if (serial[0] != '\0') check(identifier_matches_serial(e, serial), "an identifier matches its own serial");
  }
  if (report.parsed > 0) check(report.last_address == elements[report.parsed - 1].address, "last address");
  return 0;
}

// The Windows adapter inquiry answer, in a buffer of exactly its size.
int win32_inquiry_walker_fuzz(const std::string& text) {
  std::vector<uint8_t> buffer(text.begin(), text.end());
  static AdapterInquiry inquiry;
  std::memset(&inquiry, 0xA5, sizeof inquiry);
  int result = walk_adapter_inquiry(buffer.empty() ? nullptr : buffer.data(), buffer.size(), &inquiry);
  if (buffer.empty() || buffer.size() > kAdapterInquiryBufferSize) {
    check(result == -1 && inquiry.unit_count == 0, "an empty or oversized answer is refused");
    return 0;
  }
  check(result == 0 && inquiry.bus_count == buffer[0], "an answer of a valid size is walked");
  // Each unit is a record head (12 bytes) at its own offset: no record is read twice.
  check(inquiry.unit_count <= std::min<size_t>(kMaxUnitsPerAdapter, buffer.size() < 13 ? 0 : buffer.size() - 12),
        "units stand for distinct records");
  for (unsigned i = 0; i < inquiry.unit_count; ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    check(unit.inquiry_length <= sizeof unit.inquiry, "inquiry data fits its field");
    for (unsigned j = unit.inquiry_length; j < sizeof unit.inquiry; ++j) {
      check(unit.inquiry[j] == 0, "inquiry data beyond its length is zero");
    }
  }
  return 0;
}

// The log page walker of /health over any bytes a drive could return, in a
// buffer of exactly their size.
int log_page_fuzz(const std::string& text) {
  if (text.size() > 0x10004) return 0;  // no answer is longer than a 16-bit page length allows
  std::vector<uint8_t> buffer(text.begin(), text.end());
  static LogPage page;
  const uint8_t* bytes = buffer.empty() ? nullptr : buffer.data();
  if (walk_log_page(bytes, static_cast<uint32_t>(buffer.size()), &page) != 0) {
    check(buffer.size() < 4 && page.count == 0, "only an answer without a whole header is refused");
    return 0;
  }
  check(page.end <= buffer.size() && page.end <= page.page_length + 4, "the walk stays within page and data");
  check(page.count <= kMaxLogParameters, "at most kMaxLogParameters parameters");
  for (unsigned i = 0; i < page.count; ++i) {
    const LogParameter& p = page.parameters[i];
    check(p.offset >= 8 && p.offset + p.length <= page.end, "a value lies within the page");
    check(find_log_parameter(page, p.code) == &p, "each code is kept once, first come");
    uint64_t value = 0;
    check((log_counter(page, bytes, p.code, &value) == 0) == (p.length >= 1 && p.length <= 8),
          "counters are 1 to 8 bytes");
  }
  bool listed[64];
  supported_log_pages(page, bytes, listed);
  return 0;
}

// The input is a virtual tape backing file. The reader takes no more memory
// than the file holds (libFuzzer's malloc limit catches a larger
// allocation), and what it accepts is saved and read back unchanged.
int backing_file_fuzz(const std::string& text) {
  write_file("tape.vt", text);
  Cartridge cartridge{};
  const int result = load_backing_file("tape.vt", &cartridge);
  check(result == 0 || result == -1, "the reader returns 0 or -1");
  check(stored_data_bytes(cartridge) <= text.size(), "no more data than the file holds");
  if (result != 0) return 0;
  check(save_backing_file("copy.vt", cartridge, true) == 0, "an accepted cartridge can be saved");
  Cartridge copy{};
  check(load_backing_file("copy.vt", &copy) == 0 && copy.runs.size() == cartridge.runs.size(),
        "the saved cartridge reads back");
  for (size_t i = 0; i < copy.runs.size(); ++i) {
    const TapeRun& a = cartridge.runs[i];
    const TapeRun& b = copy.runs[i];
    check(a.filemark == b.filemark && a.block_length == b.block_length && a.blocks_per_unit == b.blocks_per_unit &&
              a.units == b.units && a.unit_tape_bytes == b.unit_tape_bytes &&
              (a.data == nullptr ? b.data == nullptr || b.data->empty() : b.data != nullptr && *a.data == *b.data),
          "every run reads back as saved");
  }
  return 0;
}

#if __has_include(<scsi/sg.h>)
// The Linux platform's discovery over a sysfs tree built from the input:
// every seven lines describe one unit (name, type, inquiry, vendor, model,
// driver, sg node); a last line feeds the fake system calls.
int linux_sysfs_fuzz(const std::string& text) {
  constexpr size_t kFields = 7, kUnits = 4;
  std::vector<std::string> fields = split(text, '\n', kFields * kUnits + 1);
  const std::string answers = fields.size() > kFields * kUnits ? fields.back() : "";
  input = {reinterpret_cast<const uint8_t*>(answers.data()), answers.size()};
  static const LinuxSystem kSystem = {
      [](const char*, int) { return (input.take(1) & 0x80) != 0 ? (errno = EACCES, -1) : 100; },
      [](int) { return 0; },
      [](int, unsigned long request, void* argument) {
        uint32_t control = input.take(1);
        if (request != SG_IO || (control & 0x80) != 0) return errno = EIO, -1;
        auto* h = static_cast<sg_io_hdr_t*>(argument);
        h->status = (control & 1) != 0 ? 2 : 0;
        h->masked_status = static_cast<uint8_t>(input.take(1));
        h->host_status = static_cast<uint16_t>(input.take(1) & 0x0F);
        h->driver_status = static_cast<uint16_t>(input.take(1) & 0x0F);
        h->resid = static_cast<int8_t>(input.take(1)) * 8;
        h->sb_len_wr = static_cast<uint8_t>(input.take(1));
        auto* data = static_cast<uint8_t*>(h->dxferp);
        for (unsigned i = 0; data != nullptr && i < h->dxfer_len && i < 64; ++i) data[i] = static_cast<uint8_t>(input.take(1));
        return 0;
      },
      [](const char*, char*, size_t) { return false; },
  };
  const fs::path root = fs::current_path() / "root";
  std::error_code ignored;
  fs::remove_all(root, ignored);
  fs::create_directories(root / "sys/class/scsi_host/host0");
  fs::create_directories(root / "sys/class/scsi_device");
  for (size_t unit = 0; unit < kUnits && (unit + 1) * kFields <= fields.size(); ++unit) {
    const std::string* f = &fields[unit * kFields];
    auto entry = [](std::string name) {  // one directory entry below its parent
      std::replace(name.begin(), name.end(), '/', '_');
      std::replace(name.begin(), name.end(), '\0', '_');
      name.resize(std::min<size_t>(name.size(), 64));
      return name.empty() || name == "." || name == ".." ? "x" + name : name;
    };
    fs::path device = root / "sys/class/scsi_device" / entry(f[0]) / "device";
    if (fs::exists(device.parent_path())) continue;
    fs::create_directories(device);
    if (!f[1].empty()) write_file(device / "type", f[1] + "\n");
    if (!f[2].empty()) write_file(device / "inquiry", f[2]);
    write_file(device / "vendor", f[3]);
    write_file(device / "model", f[4]);
    write_file(device / "rev", f[4].substr(0, 4));
    if (!f[5].empty()) fs::create_directory_symlink("../../drivers/" + entry(f[5]), device / "driver", ignored);
    if (!f[6].empty()) fs::create_directories(device / "scsi_generic" / entry(f[6]));
    if (unit == 0) {
      fs::create_directories(root / "sys/class/scsi_tape/nst0");
      fs::create_directory_symlink("../../scsi_device/" + entry(f[0]), root / "sys/class/scsi_tape/nst0/device", ignored);
    }
  }
  set_linux_root(root.c_str());
  set_linux_system(&kSystem);
  const Platform* platform = native_platform();
  PlatformHandle handle = kInvalidPlatformHandle;
  check(platform->open_device("\\\\.\\Scsi0:", &handle) == kErrorNone, "adapter 0 exists");
  static AdapterInquiry inquiry;
  if (platform->query_adapter(handle, &inquiry) == 0) {
    check(inquiry.unit_count <= kUnits, "no more units than directories");
    for (unsigned i = 0; i < inquiry.unit_count; ++i) {
      check(inquiry.units[i].inquiry_length > 0 && inquiry.units[i].inquiry_length <= sizeof inquiry.units[i].inquiry,
            "a listed unit has inquiry data that fits its field");
    }
  }
  platform->close_device(handle);
  if (platform->open_device("\\\\.\\Tape0", &handle) == kErrorNone) {
    ScsiAddress address{};
    platform->query_tape_address(handle, &address);
    platform->close_device(handle);
  }
  if (platform->describe_last_error != nullptr) platform->describe_last_error();
  reset_linux_platform();
  return 0;
}
#endif

// A results file as `/summary` reads it, line by line, then grouped,
// printed and charted: every row belongs to its run, runs own contiguous
// rows, every row has a result, and every run lands in exactly one group.
int results_file_fuzz(const std::string& text) {
  SummaryData data;
  summary_begin_file(&data, "input.jsonl");
  size_t from = 0;
  while (from < text.size()) {
    const size_t end = text.find('\n', from);
    const bool cut = end == std::string::npos;
    const size_t length = (cut ? text.size() : end) - from;
    summary_add_line(&data, text.data() + from, length, cut);
    from += length + 1;
  }
  summary_end_file(&data);
  uint32_t next_row = 0;
  for (uint32_t r = 0; r < data.runs.size(); ++r) {
    const SummaryRun& run = data.runs[r];
    check(run.first_row == next_row && run.row_count > 0, "a run's rows follow the ones before");
    next_row = run.first_row + run.row_count;
    for (uint32_t i = run.first_row; i < next_row && i < data.rows.size(); ++i) {
      check(data.rows[i].run == r, "a row belongs to its run");
      check(!data.rows[i].result.empty(), "every row has a result");
    }
  }
  check(next_row == data.rows.size(), "no row outside a run");
  const std::vector<SummaryGroup> groups = group_overlapping_runs(data);
  std::vector<int> seen(data.runs.size(), 0);
  for (const SummaryGroup& group : groups) {
    for (uint32_t run : group.runs) ++seen[run];
  }
  for (int count : seen) check(count == 1, "every run in one group");
  static FILE* sink = std::fopen("/dev/null", "w");
  print_summary(sink, data, groups);
  write_summary_chart(sink, data, groups);
  return 0;
}

namespace {

std::string scratch_directory;

}  // namespace

// Once, before any input: every path on the fuzzer's command line is made
// absolute, then the target moves into its scratch directory (removed when
// the fuzzer ends normally) and silences the screen and error streams.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static std::vector<std::string> texts;
  static std::vector<char*> pointers;
  for (int i = 0; i < *argc; ++i) {
    std::string text = (*argv)[i];
    size_t value = text.find('=');
    if (i > 0 && !text.empty() && text[0] != '-') {
      text = fs::absolute(text).string();
    } else if (value != std::string::npos && value + 1 < text.size() &&
               (text.rfind("-dict=", 0) == 0 || text.rfind("-artifact_prefix=", 0) == 0 ||
                text.rfind("-exact_artifact_path=", 0) == 0 || text.rfind("-seed_inputs=", 0) == 0 ||
                text.rfind("-merge_control_file=", 0) == 0)) {
      text = text.substr(0, value + 1) + fs::absolute(text.substr(value + 1)).string();
    }
    texts.push_back(text);
  }
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  *argv = pointers.data();
  std::string pattern = (fs::temp_directory_path() / "bftdtest_fuzz_XXXXXX").string();
  check(mkdtemp(pattern.data()) != nullptr && chdir(pattern.c_str()) == 0, "scratch directory");
  scratch_directory = pattern;
  std::atexit([] {
    std::error_code ignored;
    fs::remove_all(scratch_directory, ignored);
  });
  FILE* sink = std::fopen("/dev/null", "w");
  check(sink != nullptr, "/dev/null");
  set_screen_stream(sink);
  set_error_stream(sink);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  reset_program_state();
  input = {data, size};
  int result = BFTDTEST_FUZZ_TARGET(std::string(reinterpret_cast<const char*>(data), size));
  reset_program_state();
  return result;
}
