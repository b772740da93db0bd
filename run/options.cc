#include "run/options.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "console/text_layout.h"
#include "drive_status/dsc_config.h"
#include "settings/config_tokens.h"
#include "settings/number_syntax.h"
#include "settings/settings.h"
#include "settings/slot_list.h"
#include "transport/platform/iscsi_url.h"

namespace {

constexpr size_t kConfigNameLength = 12;
constexpr size_t kDscLabelLength = 82;
constexpr unsigned kConfigLineLength = 256;
constexpr int kConfigPieceLength = 258;  // a line with its CR LF
constexpr size_t kNotedValueLength = 40;  // of a value noted as not used as written

// 1 while the options of a configuration file are parsed.
uint8_t in_config_file = 0;
std::vector<OptionValueNote> value_notes;
std::vector<std::string> config_files;
// The results files of `/summary`, copied (a configuration file's tokens
// are freed after its parse).
std::vector<std::string> summary_files;

static_assert(kIscsiTextCapacity == kIscsiUrlCapacity, "the iSCSI URL setting holds every URL the parser takes");

// The arguments of the command line that hold an iSCSI URL or a CHAP
// secret, so that a record of the options can leave the secrets out.
const char* url_arguments[2] = {nullptr, nullptr};  // `/iscsi`'s and `/changer`'s
const char* secret_argument = nullptr;
char shown_url_argument[kIscsiUrlCapacity];

// Reads an option's number from a copy, so the argument stays as given, and
// keeps its low `bits` bits as the setting's field does. A value the run
// does not use as written is noted.
uint32_t option_number(const char* option, const char* text, unsigned bits) {
  std::string copy = text;
  const NumberReading reading = read_number(copy.data());
  const uint32_t used = bits < 32 ? reading.value & ((1u << bits) - 1) : reading.value;
  const char* why = reading.illegal     ? "illegal characters"
                    : reading.no_digits ? "no digits"
                    : reading.saturated ? "above the largest 32-bit number"
                    : used == reading.value ? nullptr
                    : bits == 8             ? "cut to 8 bits"
                                            : "cut to 16 bits";
  if (why != nullptr) {
    std::string given = text;
    if (given.size() > kNotedValueLength) given = given.substr(0, kNotedValueLength) + "...";
    value_notes.push_back({option, given, used, why});
  }
  return used;
}

// Copies at most `capacity` - 1 characters of `text` and terminates the copy:
// the fixed text fields cut longer values.
void copy_cut(char* destination, size_t capacity, const char* text) {
  size_t length = std::strlen(text);
  if (length > capacity - 1) length = capacity - 1;
  std::memcpy(destination, text, length);
  destination[length] = '\0';
}

// One option's view of the argument list: `next` is the first argument after
// the option; a handler moves it past every value it uses.
struct OptionCall {
  char** arguments;
  uint16_t count;
  uint16_t next;
  const char* option;  // the option's name
};

bool has_value(const OptionCall& call) { return call.next < call.count; }
char* take_value(OptionCall& call) { return call.arguments[call.next++]; }
uint32_t take_number(OptionCall& call, unsigned bits = 32) {
  return option_number(call.option, take_value(call), bits);
}

int apply_config_file(OptionCall& call);

int apply_output_file(OptionCall& call) {
  copy_cut(test_settings.output_file_name, kFileNameCapacity, take_value(call));
  test_settings.output_file_mode[0] = 'w';
  return 0;
}

int apply_append_file(OptionCall& call) {
  copy_cut(test_settings.output_file_name, kFileNameCapacity, take_value(call));
  test_settings.output_file_mode[0] = 'a';
  return 0;
}

// An option that names a file the run writes and switches it on.
int take_file_option(OptionCall& call, char* file_name, uint8_t* enabled) {
  copy_cut(file_name, kFileNameCapacity, take_value(call));
  *enabled = 1;
  return 0;
}

int apply_cdb_list_file(OptionCall& call) {
  return take_file_option(call, test_settings.cdb_list_file_name, &test_settings.cdb_list_enabled);
}

int apply_pattern_file(OptionCall& call) {
  copy_cut(test_settings.pattern_file_name, kFileNameCapacity, take_value(call));
  test_settings.data_pattern_type = 2;
  return 0;
}

int apply_random_pattern(OptionCall& call) {
  test_settings.data_pattern_type = 1;
  if (has_value(call) && call.arguments[call.next][0] == 'r') {
    test_settings.random_pattern_repeats = 1;
    ++call.next;
  }
  return 0;
}

int apply_host_adapter(OptionCall& call) {
  test_settings.host_adapter_number = static_cast<uint8_t>(take_number(call, 8));
  return 0;
}

int apply_bus(OptionCall& call) {
  test_settings.bus_number = static_cast<uint8_t>(take_number(call, 8));
  return 0;
}

int apply_target_id(OptionCall& call) {
  test_settings.scsi_id = static_cast<uint8_t>(take_number(call, 8));
  return 0;
}

int apply_lun(OptionCall& call) {
  test_settings.lun = static_cast<uint8_t>(take_number(call, 8));
  return 0;
}

int apply_density(OptionCall& call) {
  test_settings.density_code = static_cast<uint8_t>(take_number(call, 8));
  return 0;
}

int apply_loop(OptionCall& call) {
  test_settings.iterations = static_cast<uint16_t>(take_number(call, 16));
  return 0;
}

int apply_megabytes(OptionCall& call) {
  test_settings.total_megabytes = static_cast<double>(take_number(call));
  return 0;
}

int apply_interval(OptionCall& call) {
  test_settings.interval_megabytes = static_cast<double>(take_number(call));
  test_settings.interval_given = 1;
  return 0;
}

int apply_block_size(OptionCall& call) {
  char* value = take_value(call);
  if (std::strcmp(value, "ms") == 0) {
    test_settings.block_size_from_mode_sense = 1;
  } else {
    // Only "ms" touches the Mode Sense flag: a number sets the size alone.
    test_settings.logical_block_size = option_number(call.option, value, 32);
  }
  return 0;
}

int apply_max_transfer(OptionCall& call) {
  test_settings.max_transfer_length = take_number(call);
  return 0;
}

int apply_drive_status(OptionCall& call) {
  char label[kDscLabelLength + 1];
  copy_cut(label, sizeof label, take_value(call));
  label[std::strcspn(label, "\r\n")] = '\0';
  if (has_value(call) && call.arguments[call.next][0] != '/') {
    test_settings.status_delay_ms = static_cast<uint16_t>(take_number(call, 16));
  }
  return load_drive_status_config(label);
}

int apply_unload(OptionCall&) {
  test_settings.unload_each_iteration = 1;
  return 0;
}

int apply_virtual_drive(OptionCall& call) {
  test_settings.virtual_drive_enabled = 1;
  if (has_value(call) && call.arguments[call.next][0] != '/') {
    copy_cut(test_settings.virtual_drive_file_name, kFileNameCapacity, take_value(call));
  }
  return 0;
}

// A value of `/iscsi` that must fit its setting whole: a cut URL or secret
// would log in somewhere else or fail for no visible reason.
int copy_iscsi_value(char* setting, const char* value, const char* what) {
  if (std::strlen(value) >= kIscsiTextCapacity) {
    error_printf("ERROR: the iSCSI %s is longer than %u characters\n", what, kIscsiTextCapacity - 1);
    return -1;
  }
  std::strcpy(setting, value);
  return 0;
}

bool has_plain_value(const OptionCall& call) { return has_value(call) && call.arguments[call.next][0] != '/'; }

// `/iscsi <url> [chap <user> <secret>] [initiator <iqn>]`: the keywords keep
// the form usable in a `/cfg` file, whose tokens end at blanks, commas and '='.
int apply_iscsi(OptionCall& call) {
  const char* url = take_value(call);
  if (copy_iscsi_value(test_settings.iscsi_url, url, "URL") != 0) return -1;
  test_settings.iscsi_enabled = 1;
  url_arguments[0] = url;
  while (has_plain_value(call)) {
    const char* keyword = take_value(call);
    if (std::strcmp(keyword, "chap") == 0) {
      if (!has_plain_value(call) || call.next + 1 >= call.count || call.arguments[call.next + 1][0] == '/') {
        error_printf("ERROR: \"chap\" after option \"/iscsi\" needs a user name and a secret\n");
        return -1;
      }
      if (copy_iscsi_value(test_settings.iscsi_chap_user, take_value(call), "CHAP user name") != 0) return -1;
      secret_argument = call.arguments[call.next];
      if (copy_iscsi_value(test_settings.iscsi_chap_secret, take_value(call), "CHAP secret") != 0) return -1;
    } else if (std::strcmp(keyword, "initiator") == 0) {
      if (!has_plain_value(call)) {
        error_printf("ERROR: \"initiator\" after option \"/iscsi\" needs an iSCSI name\n");
        return -1;
      }
      if (copy_iscsi_value(test_settings.iscsi_initiator, take_value(call), "initiator name") != 0) return -1;
    } else {
      error_printf("ERROR: \"%s\" after option \"/iscsi\" is neither \"chap\" nor \"initiator\"\n", keyword);
      return -1;
    }
  }
  return 0;
}

int apply_results_file(OptionCall& call) {
  return take_file_option(call, test_settings.results_file_name, &test_settings.results_file_enabled);
}

int apply_strict(OptionCall&) {
  test_settings.strict_exit = 1;
  return 0;
}

int apply_health(OptionCall&) {
  test_settings.health_enabled = 1;
  return 0;
}

int apply_chart_file(OptionCall& call) {
  return take_file_option(call, test_settings.chart_file_name, &test_settings.chart_enabled);
}

int apply_eta(OptionCall&) {
  test_settings.eta_enabled = 1;
  return 0;
}

// `/changer <hanum> <bus> <tid> <lun>`: four numbers, none of them an option;
// or `/changer <iscsi-url>`, the changer over the program's iSCSI initiator.
int apply_changer(OptionCall& call) {
  if (has_value(call) && std::strncmp(call.arguments[call.next], "iscsi://", 8) == 0) {
    const char* url = take_value(call);
    if (copy_iscsi_value(test_settings.changer_iscsi_url, url, "URL") != 0) return -1;
    url_arguments[1] = url;
    test_settings.changer_enabled = 1;
    test_settings.changer_iscsi_enabled = 1;
    return 0;
  }
  test_settings.changer_iscsi_enabled = 0;
  uint32_t values[4];
  for (uint32_t& value : values) {
    if (!has_value(call) || call.arguments[call.next][0] == '/') {
      error_printf("ERROR: option \"/changer\" needs four values: <hanum> <bus> <tid> <lun>\n");
      return -1;
    }
    value = take_number(call, 8);
  }
  test_settings.changer_enabled = 1;
  test_settings.changer = UnitAddress{static_cast<uint8_t>(values[0]), static_cast<uint8_t>(values[1]),
                                      static_cast<uint8_t>(values[2]), static_cast<uint8_t>(values[3])};
  return 0;
}

int apply_slots(OptionCall& call) {
  const char* text = take_value(call);
  unsigned count = 0;
  const char* why = "";
  if (parse_slot_list(text, test_settings.slot_ranges, kMaxSlotRanges, &count, &why) != 0) {
    error_printf("ERROR: invalid slot list \"%s\": %s\n", text, why);
    return -1;
  }
  test_settings.slot_range_count = static_cast<uint8_t>(count);
  return 0;
}

int apply_drive(OptionCall& call) {
  const uint32_t ordinal = take_number(call);
  if (ordinal > 0xFFFF) {
    error_printf("ERROR: option \"/drive\" takes a drive number from 0 to 65535\n");
    return -1;
  }
  test_settings.drive_ordinal = static_cast<int32_t>(ordinal);
  return 0;
}

int apply_ready_wait(OptionCall& call) {
  test_settings.ready_wait_minutes = take_number(call);
  return 0;
}

int apply_list(OptionCall&) {
  test_settings.list_devices = 1;
  return 0;
}

struct OptionSpec;
const OptionSpec* find_option(const char* argument);

// `/summary <file>...`: every argument up to the next option is a file.
int apply_summary(OptionCall& call) {
  test_settings.summary_enabled = 1;
  while (has_value(call) && find_option(call.arguments[call.next]) == nullptr) {
    summary_files.emplace_back(take_value(call));
  }
  return 0;
}

int apply_label(OptionCall& call) {
  copy_cut(test_settings.run_label, kFileNameCapacity, take_value(call));
  return 0;
}

int apply_help(OptionCall&) {
  print_help();
  exit_code = 0;
  return -1;
}

enum class ValueNeed { kNone, kRequired, kOptional };

struct OptionSpec {
  const char* name;
  ValueNeed need;
  int (*apply)(OptionCall& call);
};

// Tried in this order; names match in full and with case.
constexpr OptionSpec kOptions[] = {
    {"/cfg", ValueNeed::kRequired, apply_config_file},
    {"/ofile", ValueNeed::kRequired, apply_output_file},
    {"/afile", ValueNeed::kRequired, apply_append_file},
    {"/cfile", ValueNeed::kRequired, apply_cdb_list_file},
    {"/dfile", ValueNeed::kRequired, apply_pattern_file},
    {"/drand", ValueNeed::kOptional, apply_random_pattern},
    {"/hanum", ValueNeed::kRequired, apply_host_adapter},
    {"/bus", ValueNeed::kRequired, apply_bus},
    {"/tid", ValueNeed::kRequired, apply_target_id},
    {"/lun", ValueNeed::kRequired, apply_lun},
    {"/den", ValueNeed::kRequired, apply_density},
    {"/loop", ValueNeed::kRequired, apply_loop},
    {"/megs", ValueNeed::kRequired, apply_megabytes},
    {"/sdint", ValueNeed::kRequired, apply_interval},
    {"/lbsize", ValueNeed::kRequired, apply_block_size},
    {"/maxtl", ValueNeed::kRequired, apply_max_transfer},
    {"/dsc", ValueNeed::kRequired, apply_drive_status},
    {"/uld", ValueNeed::kNone, apply_unload},
    {"/vtape", ValueNeed::kOptional, apply_virtual_drive},
    {"/iscsi", ValueNeed::kRequired, apply_iscsi},
    {"/json", ValueNeed::kRequired, apply_results_file},
    {"/strict", ValueNeed::kNone, apply_strict},
    {"/health", ValueNeed::kNone, apply_health},
    {"/plot", ValueNeed::kRequired, apply_chart_file},
    {"/eta", ValueNeed::kNone, apply_eta},
    {"/changer", ValueNeed::kRequired, apply_changer},
    {"/slots", ValueNeed::kRequired, apply_slots},
    {"/drive", ValueNeed::kRequired, apply_drive},
    {"/readywait", ValueNeed::kRequired, apply_ready_wait},
    {"/list", ValueNeed::kNone, apply_list},
    {"/summary", ValueNeed::kRequired, apply_summary},
    {"/label", ValueNeed::kRequired, apply_label},
    {"/?", ValueNeed::kNone, apply_help},
    // The spellings other tools use for help.
    {"/h", ValueNeed::kNone, apply_help},
    {"-h", ValueNeed::kNone, apply_help},
    {"-?", ValueNeed::kNone, apply_help},
    {"--help", ValueNeed::kNone, apply_help},
};

const OptionSpec* find_option(const char* argument) {
  for (const OptionSpec& option : kOptions) {
    if (std::strcmp(argument, option.name) == 0) return &option;
  }
  return nullptr;
}

// The options given so far (command line and configuration files), by
// their place in kOptions: `/list` and `/summary` take only a few others.
bool given[std::size(kOptions)];

// The configuration argument list: element 0 is an empty text, elements 1 to
// count - 1 own their token copies.
struct ConfigArguments {
  char** list = nullptr;
  uint16_t count = 0;
};

char empty_argument[1] = "";

void release(ConfigArguments& arguments) {
  if (arguments.list == nullptr) return;
  for (uint16_t i = 1; i < arguments.count; ++i) delete[] arguments.list[i];
  delete[] arguments.list;
  arguments.list = nullptr;
}

// Counts and copies the file's tokens; 0, or -1 after its message.
int load_config_arguments(FILE* file, const char* name, ConfigArguments& arguments) {
  arguments.count = read_config_args(file, 0, nullptr);
  if (arguments.count == 0) {
    error_printf("ERROR: too many options in configuration file \"%s\"\n", name);
    return -1;
  }
  if (std::ferror(file)) {
    error_printf("ERROR: unable to read configuration file \"%s\"\n", name);
    return -1;
  }
  arguments.list = new (std::nothrow) char*[arguments.count]();
  if (arguments.list == nullptr) {
    error_printf("ERROR: unable to allocate arg buffer pointers\n");
    return -1;
  }
  arguments.list[0] = empty_argument;
  uint16_t copied = read_config_args(file, 1, arguments.list, arguments.count);
  if (copied == 0) return -1;  // the allocation message is written
  if (copied != arguments.count) {
    error_printf("ERROR: configuration file \"%s\" changed while being read\n", name);
    return -1;
  }
  return 0;
}

int apply_config_file(OptionCall& call) {
  char* value = take_value(call);
  if (in_config_file) return 0;  // configuration files do not nest

  char name[kConfigNameLength + 1];
  copy_cut(name, sizeof name, value);
  FILE* file = std::fopen(name, "rb");
  if (file == nullptr) {
    error_printf("ERROR: unable to open configuration file \"%s\" for input\n", name);
    return -1;
  }
  config_files.push_back(name);
  in_config_file = 1;
  ConfigArguments arguments;
  int result = load_config_arguments(file, name, arguments);
  if (result == 0) result = parse_options(arguments.count, arguments.list);
  release(arguments);
  std::fclose(file);
  in_config_file = 0;
  return result;
}

// The library options mean nothing without the changer. An iSCSI changer
// answers beside the drive: its adapter, bus and id, the next LUN.
int check_library_settings(int result) {
  TestSettings& s = test_settings;
  if (s.changer_iscsi_enabled != 0) {
    s.changer = UnitAddress{s.host_adapter_number, s.bus_number, s.scsi_id, static_cast<uint8_t>((s.lun + 1) % 8)};
  }
  if (test_settings.changer_enabled != 0) return result;
  const char* alone = test_settings.slot_range_count != 0      ? "/slots"
                      : test_settings.drive_ordinal >= 0        ? "/drive"
                      : test_settings.ready_wait_minutes != kDefaultReadyWaitMinutes ? "/readywait"
                                                                : nullptr;
  if (alone == nullptr) return result;
  error_printf("ERROR: option \"%s\" needs \"/changer\"\n", alone);
  return -1;
}

// `/list` and `/summary` do no test: an option that only a test uses is
// refused beside them rather than silently ignored.
int check_mode_options(int result) {
  const char* mode = test_settings.summary_enabled != 0 ? "/summary" : test_settings.list_devices != 0 ? "/list"
                                                                                                        : nullptr;
  if (result != 0 || mode == nullptr) return result;
  if (test_settings.summary_enabled != 0 && test_settings.list_devices != 0) {
    error_printf("ERROR: options \"/list\" and \"/summary\" cannot be used together\n");
    return -1;
  }
  static const char* const kWithList[] = {"/list", "/cfg", "/vtape", "/iscsi", "/json", "/hanum", "/bus", "/tid", "/lun"};
  static const char* const kWithSummary[] = {"/summary", "/cfg", "/strict", "/plot"};
  const bool list = test_settings.list_devices != 0;
  for (size_t i = 0; i < std::size(kOptions); ++i) {
    if (!given[i]) continue;
    bool allowed = false;
    if (list) {
      for (const char* name : kWithList) allowed = allowed || std::strcmp(name, kOptions[i].name) == 0;
    } else {
      for (const char* name : kWithSummary) allowed = allowed || std::strcmp(name, kOptions[i].name) == 0;
    }
    if (!allowed) {
      error_printf("ERROR: option \"%s\" cannot be used with \"%s\"\n", kOptions[i].name, mode);
      return -1;
    }
  }
  if (!list && summary_files.empty()) {
    error_printf("ERROR: option \"/summary\" needs at least one results file\n");
    return -1;
  }
  return 0;
}

// The checks after the last option of the command line; each runs whatever
// the result so far.
int check_transfer_settings(int result) {
  if (test_settings.max_transfer_length == 0) {
    error_printf("ERROR: maximum write/read data transfer length must be greater than zero\n");
    result = -1;
  }
  if (!test_settings.block_size_from_mode_sense &&
      test_settings.logical_block_size > test_settings.max_transfer_length) {
    error_printf("ERROR: logical block size cannot be greater than maximum write/read data\n");
    error_printf("transfer length\n");
    result = -1;
  }
  return result;
}

}  // namespace

int parse_options(uint16_t argument_count, char** arguments) {
  int result = 0;
  uint16_t index = 1;
  while (index < argument_count && result == 0) {
    const char* argument = arguments[index];
    const OptionSpec* option = find_option(argument);
    if (option == nullptr) {
      error_printf("ERROR: invalid option on command line -- \"%s\"\n", argument);
      result = -1;
      break;
    }
    given[option - kOptions] = true;
    OptionCall call{arguments, argument_count, static_cast<uint16_t>(index + 1), option->name};
    if (option->need == ValueNeed::kRequired && !has_value(call)) {
      error_printf("ERROR: option \"%s\" needs a value\n", argument);
      result = -1;
      break;
    }
    result = option->apply(call);
    index = call.next;
  }
  if (in_config_file == 0) {
    result = check_mode_options(check_library_settings(check_transfer_settings(result)));
  }
  return result;
}

uint16_t read_config_args(FILE* file, int mode, char** arguments, uint16_t capacity) {
  std::rewind(file);
  uint32_t counter = 0;
  char line[kConfigPieceLength + 1];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    clean_config_line(line);
    char* cursor = line;
    char* token = next_config_token(&cursor);
    if (token == nullptr || token[0] != '/') continue;
    for (; token != nullptr; token = next_config_token(&cursor)) {
      ++counter;
      if (counter >= UINT16_MAX) return 0;  // the count + 1 must fit
      if (mode != 1 || counter >= capacity) continue;
      size_t size = std::strlen(token) + 1;
      char* copy = new (std::nothrow) char[size];
      if (copy == nullptr) {
        error_printf("ERROR: unable to allocate arg buffer\n");
        return 0;
      }
      std::memcpy(copy, token, size);
      arguments[counter] = copy;
    }
  }
  return static_cast<uint16_t>(counter + 1);
}

void print_help() {
  FILE* screen = screen_stream();
  print_title({screen}, kProgramTitle);
  screen_printf("\nPROGRAM USAGE:\n\n  bftdtest.exe [command line options]\n");
  screen_printf("\nCOMMAND LINE OPTIONS:\n\n");
  static const char* const kOptionLines[] = {
      "  /cfg <file>\t\tcommand line option configuration file\n",
      "  /ofile <file>\t\toutput file name\n",
      "  /afile <file>\t\toutput file name (append)\n",
      "  /cfile <file>\t\tcreate CDB list file\n",
      "  /dfile <file>\t\tinput file name for user-defined data pattern\n",
      "  /drand ['r']\t\tuse (repeating) pseudo-random data pattern\n",
      "  /hanum <value>\thost adapter number\n",
      "  /bus <value>\t\thost adapter bus number\n",
      "  /tid <value>\t\ttape drive SCSI id\n",
      "  /lun <value>\t\ttape drive logical unit number\n",
      "  /den <value>\t\ttape drive density code\n",
      "  /loop <value>\t\tnumber of test iterations to perform\n",
      "  /megs <value>\t\tamount of data to write/read (in MB)\n",
      "  /sdint <value>\tstatus display interval (number of MB)\n",
      "  /lbsize <value|\"ms\">\tlogical block size (in bytes or from \"mode sense\")\n",
      "  /maxtl <value>\tmaximum write/read data transfer length (in bytes)\n",
      "  /dsc <label> [delay]\tdrive status configuration label (see \"bftdtest.dsc\")\n",
      "  /uld\t\t\tunload/reload drive after each test iteration\n",
      "  /vtape [file]\t\tuse the built-in virtual tape drive\n",
      "  /json <file>\t\twrite a JSON Lines results file\n",
      "  /strict\t\texit code 2 when the test must not count as a pass\n",
      "  /health\t\treport TapeAlert flags, drive counters, adapter limits\n",
      "  /plot <file>\t\twrite a streaming chart of the test (SVG)\n",
      "  /eta\t\t\tshow the time left with the progress count\n",
      "  /changer <h b t l>\ttest a library's cartridges (changer adapter/bus/id/LUN)\n",
      "  /slots <list>\t\tlibrary slots to test, e.g. 1-10,15 (default: all full)\n",
      "  /drive <n>\t\tthe tested drive is the library's drive n (from 0)\n",
      "  /readywait <min>\tminutes a loaded cartridge may take to become ready\n",
      "  /iscsi <url> [...]\treach the drive over iSCSI: iscsi://host[:port]/iqn/lun\n",
      "\t\t\t[chap <user> <secret>] [initiator <iqn>]; /changer <url>\n",
      "  /list\t\t\tlist tape drives and medium changers with their options\n",
      "  /summary <file>...\tone table of the runs in results files (/json)\n",
      "  /label <text>\t\tname the run in the results file (host in /summary)\n",
      "  /?\t\t\tthis help screen\n",
  };
  for (const char* text : kOptionLines) screen_printf("%s", text);

  screen_printf("\nDEFAULT TEST SETTINGS:\n\n");
  screen_printf("  output file name\t\t\t\t= \"%s\"\n", test_settings.output_file_name);
  screen_printf("  host adapter number\t\t\t\t= %u\n", test_settings.host_adapter_number);
  screen_printf("  host adapter bus number\t\t\t= %u\n", test_settings.bus_number);
  screen_printf("  tape drive SCSI id\t\t\t\t= %X\n", test_settings.scsi_id);
  screen_printf("  tape drive density code\t\t\t= 0x%02X\n", test_settings.density_code);
  screen_printf("  number of test iterations to perform\t\t= %u\n", test_settings.iterations);
  screen_printf("  amount of data to write/read\t\t\t= %.3f MB\n", test_settings.total_megabytes);
  screen_printf("  status display interval\t\t\t= once per iteration\n");
  screen_printf("  logical block size\t\t\t\t= 0x%lX bytes\n",
                static_cast<unsigned long>(test_settings.logical_block_size));
  screen_printf("  maximum write/read data transfer length\t= 0x%lX bytes\n",
                static_cast<unsigned long>(test_settings.max_transfer_length));

  screen_printf("\nPROGRAM NOTES:\n\n");
  screen_printf("  This \"CV\" version of the program is for customers.\n\n");
  screen_printf(
      "  All <value> parameters can be represented in hexadecimal or decimal.  Any\n"
      "  hexadecimal <value> must have an 'h' appended to it or a \"0x\" preceding it.\n\n");
  screen_printf(
      "  The \"/cfg\" option allows the user to use a configuration file for setting\n"
      "  command line options rather than using the command line.  Any line that does\n"
      "  not start with a '/' character will be ignored.  Any line that does start\n"
      "  with a '/' character will be considered a line with valid options.  Multiple\n"
      "  options can be on one line and options can be spread across multiple lines.\n");
  screen_printf("  The maximum line length can be up to %u characters.  There is no default\n",
                kConfigLineLength);
  screen_printf("  configuration file.\n\n");
  screen_printf(
      "  If both the \"/dfile\" and \"/drand\" options are not used, the default data\n"
      "  pattern will be null data.  Both options should not be used at the same time.\n\n");
  screen_printf(
      "  The \"/drand\" optional parameter 'r' is for making the pseudo-random data\n"
      "  pattern repeat for every logical block written/read.  This parameter will\n"
      "  be ignored when using variable block mode.\n\n");
  screen_printf(
      "  The \"/sdint\" option allows the user to display status information during each\n"
      "  test iteration at a specified interval.  The interval <value> supplied will\n"
      "  be interpreted as a megabyte interval.\n\n");
  screen_printf(
      "  The \"/uld\" option will tell the program to unload then reload the drive after\n"
      "  each test iteration performed.\n\n");
  screen_printf(
      "  Note that some host adapter drivers cannot handle large transfers.  If there\n"
      "  are Win32 SRB status errors while writing or reading, try using the \"/maxtl\"\n"
      "  option to reduce the size of the CDB transfer.\n\n");
}

const std::vector<OptionValueNote>& option_value_notes() { return value_notes; }
const std::vector<std::string>& config_files_read() { return config_files; }

const char* argument_for_record(const char* argument) {
  if (argument == secret_argument) return "(secret)";
  if (argument != url_arguments[0] && argument != url_arguments[1]) return argument;
  IscsiUrl url;
  char error[160];
  if (parse_iscsi_url(argument, &url, error, sizeof error) != 0) return "(iSCSI URL)";
  shown_iscsi_url(url, shown_url_argument, sizeof shown_url_argument);
  return shown_url_argument;
}

void shown_iscsi_setting(const char* setting, char* text, size_t size) {
  IscsiUrl url;
  char error[160];
  if (parse_iscsi_url(setting, &url, error, sizeof error) != 0) {
    std::snprintf(text, size, "%s", "(iSCSI URL)");
    return;
  }
  shown_iscsi_url(url, text, size);
}

const std::vector<std::string>& summary_file_names() { return summary_files; }

void reset_option_parser() {
  in_config_file = 0;
  value_notes.clear();
  url_arguments[0] = url_arguments[1] = nullptr;
  secret_argument = nullptr;
  config_files.clear();
  summary_files.clear();
  std::fill(std::begin(given), std::end(given), false);
}
