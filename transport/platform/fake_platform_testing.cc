#include "transport/platform/fake_platform_testing.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

namespace {

struct FakeUnit {
  uint8_t bus;
  LogicalUnitInfo info;
};

struct FakeAdapter {
  uint8_t bus_count = 1;
  uint32_t open_error = kErrorNone;
  bool query_fails = false;
  std::vector<FakeUnit> units;
};

struct FakeState {
  std::map<uint8_t, FakeAdapter> adapters;
  std::vector<ScsiAddress> tape_devices;
  std::vector<std::string> held;
  std::deque<FakeReply> replies;
  FakeResponder responder = nullptr;
  std::map<PlatformHandle, std::string> open_handles;
  PlatformHandle next_handle = 100;
  std::vector<FakeRequest> requests;
  std::vector<std::string> open_attempts;
  std::vector<std::string> closes;
};

FakeState& state() {
  static FakeState fake;
  return fake;
}

bool parse_number(const std::string& name, const char* prefix, const char* suffix,
                  unsigned* number) {
  size_t prefix_length = std::strlen(prefix);
  size_t suffix_length = std::strlen(suffix);
  if (name.size() <= prefix_length + suffix_length) return false;
  if (name.compare(0, prefix_length, prefix) != 0) return false;
  if (name.compare(name.size() - suffix_length, suffix_length, suffix) != 0) return false;
  std::string digits = name.substr(prefix_length, name.size() - prefix_length - suffix_length);
  if (digits.empty() || digits.size() > 3) return false;
  unsigned value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  *number = value;
  return true;
}

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  FakeState& fake = state();
  std::string name = device_name;
  fake.open_attempts.push_back(name);
  *handle = kInvalidPlatformHandle;
  if (std::find(fake.held.begin(), fake.held.end(), name) != fake.held.end()) {
    return kErrorSharingViolation;
  }
  unsigned number = 0;
  if (parse_number(name, "\\\\.\\Scsi", ":", &number)) {
    auto adapter = fake.adapters.find(static_cast<uint8_t>(number));
    if (number > 255 || adapter == fake.adapters.end()) return kErrorNotFound;
    if (adapter->second.open_error != kErrorNone) return adapter->second.open_error;
  } else if (parse_number(name, "\\\\.\\Tape", "", &number)) {
    if (number >= fake.tape_devices.size()) return kErrorNotFound;
  } else {
    return kErrorNotFound;
  }
  *handle = fake.next_handle++;
  fake.open_handles[*handle] = name;
  return kErrorNone;
}

const std::string* handle_name(PlatformHandle handle) {
  auto open = state().open_handles.find(handle);
  return open == state().open_handles.end() ? nullptr : &open->second;
}

int query_adapter(PlatformHandle handle, AdapterInquiry* inquiry) {
  const std::string* name = handle_name(handle);
  unsigned number = 0;
  if (name == nullptr || !parse_number(*name, "\\\\.\\Scsi", ":", &number)) return -1;
  const FakeAdapter& adapter = state().adapters[static_cast<uint8_t>(number)];
  if (adapter.query_fails) return -1;
  inquiry->bus_count = adapter.bus_count;
  inquiry->unit_count = 0;
  // Walk order: bus by bus, each bus's units in the order they were added.
  for (uint8_t bus = 0; bus < adapter.bus_count; ++bus) {
    for (const FakeUnit& unit : adapter.units) {
      if (unit.bus != bus || inquiry->unit_count >= kMaxUnitsPerAdapter) continue;
      inquiry->units[inquiry->unit_count++] = unit.info;
    }
  }
  return 0;
}

int query_tape_address(PlatformHandle handle, ScsiAddress* address) {
  const std::string* name = handle_name(handle);
  unsigned number = 0;
  if (name == nullptr || !parse_number(*name, "\\\\.\\Tape", "", &number)) return -1;
  *address = state().tape_devices[number];
  return 0;
}

const LogicalUnitInfo* unit_at(const std::string& device, const PassThroughRequest& request) {
  FakeState& fake = state();
  unsigned number = 0;
  uint8_t adapter_number = 0;
  if (parse_number(device, "\\\\.\\Scsi", ":", &number)) {
    adapter_number = static_cast<uint8_t>(number);
  } else if (parse_number(device, "\\\\.\\Tape", "", &number)) {
    adapter_number = fake.tape_devices[number].port_number;
  } else {
    return nullptr;
  }
  for (const FakeUnit& unit : fake.adapters[adapter_number].units) {
    if (unit.info.path_id == request.path_id && unit.info.target_id == request.target_id &&
        unit.info.lun == request.lun) {
      return &unit.info;
    }
  }
  return nullptr;
}

void apply(const FakeReply& scripted, const PassThroughRequest& request, PassThroughReply& reply) {
  reply.error = scripted.error;
  reply.scsi_status = scripted.scsi_status;
  size_t sense_length = std::min<size_t>(scripted.sense.size(), 255);
  if (sense_length > 0) std::memcpy(request.sense, scripted.sense.data(), sense_length);
  reply.sense_length = static_cast<uint8_t>(sense_length);
  size_t data_length = std::min<size_t>(scripted.data_in.size(), request.data_length);
  if (data_length > 0) std::memcpy(request.data, scripted.data_in.data(), data_length);
  reply.transferred_length = scripted.transferred_length < 0
                                 ? request.data_length
                                 : static_cast<uint32_t>(scripted.transferred_length);
}

void pass_through(PlatformHandle handle, const PassThroughRequest& request,
                  PassThroughReply& reply) {
  FakeState& fake = state();
  const std::string* name = handle_name(handle);
  FakeRequest seen{};
  seen.device = name != nullptr ? *name : "<closed handle>";
  seen.path_id = request.path_id;
  seen.target_id = request.target_id;
  seen.lun = request.lun;
  seen.cdb.assign(request.cdb, request.cdb + request.cdb_length);
  std::memcpy(seen.cdb_field, request.cdb, sizeof seen.cdb_field);
  seen.direction = request.direction;
  seen.data_length = request.data_length;
  seen.timeout_seconds = request.timeout_seconds;
  seen.data = request.data;
  fake.requests.push_back(seen);

  if (name == nullptr) {
    reply = PassThroughReply{kErrorInvalidParameter, 0, 0, 0};
    return;
  }
  if (!fake.replies.empty()) {
    FakeReply scripted = fake.replies.front();
    fake.replies.pop_front();
    apply(scripted, request, reply);
    return;
  }
  if (fake.responder != nullptr) {
    fake.responder(request, reply);
    return;
  }
  FakeReply answer;
  const LogicalUnitInfo* unit = unit_at(*name, request);
  if (request.cdb[0] == 0x12 && unit != nullptr) {
    answer.data_in.assign(unit->inquiry, unit->inquiry + unit->inquiry_length);
    answer.transferred_length = std::min<uint32_t>(unit->inquiry_length, request.data_length);
  }
  apply(answer, request, reply);
}

void close_device(PlatformHandle handle) {
  FakeState& fake = state();
  auto open = fake.open_handles.find(handle);
  if (open == fake.open_handles.end()) {
    fake.closes.push_back("<not open>");
    return;
  }
  fake.closes.push_back(open->second);
  fake.open_handles.erase(open);
}

const char* describe_last_error() { return nullptr; }

const Platform kFakePlatform = {"fake",         open_device,  query_adapter, query_tape_address,
                                pass_through,   close_device, describe_last_error, nullptr, nullptr};

void copy_text(uint8_t* field, size_t width, const char* text) {
  std::memset(field, ' ', width);
  std::memcpy(field, text, std::min(width, std::strlen(text)));
}

}  // namespace

void fake_reset() { state() = FakeState{}; }

const Platform* fake_platform() { return &kFakePlatform; }

void fake_set_adapter_open_error(uint8_t adapter, uint32_t error) {
  state().adapters[adapter].open_error = error;
}

void fake_fail_adapter_query(uint8_t adapter) { state().adapters[adapter].query_fails = true; }

void fake_add_unit(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun,
                   uint8_t device_type, bool claimed, uint8_t qualifier, const char* vendor,
                   const char* product, const char* revision) {
  FakeAdapter& entry = state().adapters[adapter];
  if (entry.bus_count <= bus) entry.bus_count = static_cast<uint8_t>(bus + 1);
  FakeUnit unit{};
  unit.bus = bus;
  unit.info.path_id = bus;
  unit.info.target_id = target_id;
  unit.info.lun = lun;
  unit.info.claimed = claimed ? 1 : 0;
  unit.info.inquiry_length = 36;
  unit.info.inquiry[0] = static_cast<uint8_t>((qualifier << 5) | (device_type & 0x1F));
  unit.info.inquiry[4] = 31;  // additional length of standard inquiry data
  copy_text(unit.info.inquiry + 8, 8, vendor);
  copy_text(unit.info.inquiry + 16, 16, product);
  copy_text(unit.info.inquiry + 32, 4, revision);
  entry.units.push_back(unit);
}

unsigned fake_add_tape_device(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun) {
  state().tape_devices.push_back(ScsiAddress{adapter, bus, target_id, lun});
  return static_cast<unsigned>(state().tape_devices.size() - 1);
}

void fake_hold_device(const std::string& name) { state().held.push_back(name); }

void fake_add_tape_drive(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun,
                         bool claimed) {
  fake_add_unit(adapter, bus, target_id, lun, 0x01, claimed);
  if (claimed) fake_add_tape_device(adapter, bus, target_id, lun);
}

void fake_script_reply(const FakeReply& reply) { state().replies.push_back(reply); }

std::vector<uint8_t> fake_fixed_sense(uint8_t sense_key, uint8_t asc, uint8_t ascq,
                                      uint8_t flags) {
  std::vector<uint8_t> sense(18, 0);
  sense[0] = 0x70;
  sense[2] = static_cast<uint8_t>(flags | (sense_key & 0x0F));
  sense[7] = 10;
  sense[12] = asc;
  sense[13] = ascq;
  return sense;
}

void fake_script_check_condition(uint8_t sense_key, uint8_t asc, uint8_t ascq, uint8_t flags) {
  FakeReply reply;
  reply.scsi_status = 0x02;
  reply.sense = fake_fixed_sense(sense_key, asc, ascq, flags);
  reply.transferred_length = 0;
  fake_script_reply(reply);
}

void fake_set_responder(FakeResponder responder) { state().responder = responder; }

const std::vector<FakeRequest>& fake_requests() { return state().requests; }
const std::vector<std::string>& fake_open_attempts() { return state().open_attempts; }
const std::vector<std::string>& fake_closes() { return state().closes; }
unsigned fake_open_handle_count() { return static_cast<unsigned>(state().open_handles.size()); }
