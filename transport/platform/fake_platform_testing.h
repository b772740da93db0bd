// Test support: a scriptable SCSI platform. It holds adapters with their
// buses and logical units (inquiry data, claimed flag), tape devices with
// their addresses, devices held by another process, and the answers to
// pass-through requests (a queue of scripted replies, then an optional
// responder, then a default answer). It records every open, close and
// request so tests can assert what reached the "system".
//
// Usage: fake_reset(); fake_add_tape_drive(...); set_active_platform(
// fake_platform()); ... The state is program-wide; fake_reset() starts over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transport/platform/platform.h"

// One pass-through request as the platform received it.
struct FakeRequest {
  std::string device;  // the name the handle was opened with
  uint8_t path_id;
  uint8_t target_id;
  uint8_t lun;
  std::vector<uint8_t> cdb;  // cdb_length bytes
  uint8_t cdb_field[16];     // the whole CDB field of the request
  DataDirection direction;
  uint32_t data_length;
  uint32_t timeout_seconds;
  const uint8_t* data;
};

// A scripted answer to one request.
struct FakeReply {
  uint32_t error = kErrorNone;       // Win32-style request outcome
  uint8_t scsi_status = 0;           // 0x02: check condition
  std::vector<uint8_t> sense;        // returned sense bytes
  std::vector<uint8_t> data_in;      // copied into the data buffer (data-in commands)
  int64_t transferred_length = -1;   // -1: the request's data length
};

// Answers a request that no scripted reply covers. Fills `reply` and may
// write the data buffer and the sense area.
using FakeResponder = void (*)(const PassThroughRequest& request, PassThroughReply& reply);

void fake_reset();
const Platform* fake_platform();

// Adapters and units. An adapter that was never added is "not found".
void fake_set_adapter_open_error(uint8_t adapter, uint32_t error);  // e.g. 32: held
void fake_fail_adapter_query(uint8_t adapter);
// Adds a logical unit with standard inquiry data (type in bits 4-0,
// qualifier in bits 7-5, vendor/product/revision in bytes 8-35).
void fake_add_unit(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun,
                   uint8_t device_type, bool claimed, uint8_t qualifier = 0,
                   const char* vendor = "VENDOR", const char* product = "PRODUCT",
                   const char* revision = "0001");
// Tape devices "\\\\.\\TapeN" are numbered in the order they are added.
// Returns the tape number.
unsigned fake_add_tape_device(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun);
// A device name whose open answers 32 (held by another process).
void fake_hold_device(const std::string& name);
// A tape drive at an address: the adapter (added when missing), a
// sequential-access unit, and with `claimed` its tape device.
void fake_add_tape_drive(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun,
                         bool claimed = false);

// Answers, used in order; when the queue is empty the responder answers, and
// without one the request succeeds with no sense (an Inquiry gets the
// addressed unit's inquiry data).
void fake_script_reply(const FakeReply& reply);
// A check condition with fixed-format sense: key | flags (FMK 0x80, EOM
// 0x40, ILI 0x20) in byte 2, additional length 10, ASC/ASCQ in bytes 12-13.
void fake_script_check_condition(uint8_t sense_key, uint8_t asc, uint8_t ascq,
                                 uint8_t flags = 0);
void fake_set_responder(FakeResponder responder);
// Fixed-format sense bytes as fake_script_check_condition sends them.
std::vector<uint8_t> fake_fixed_sense(uint8_t sense_key, uint8_t asc, uint8_t ascq,
                                      uint8_t flags = 0);

// What happened.
const std::vector<FakeRequest>& fake_requests();
const std::vector<std::string>& fake_open_attempts();  // every name asked for
const std::vector<std::string>& fake_closes();         // name of each closed handle
unsigned fake_open_handle_count();
