#include "transport/scsi_transport.h"

#include "console/log_output.h"

namespace {

ScsiTransport initial_transport(uint8_t* sense_data) {
  ScsiTransport state{};
  state.target_id = 2;
  state.fixed_bit = 1;
  state.result.sense_data = sense_data;
  return state;
}

}  // namespace

ScsiTransport scsi_transport = initial_transport(nullptr);

void reset_scsi_transport() { scsi_transport = initial_transport(scsi_transport.result.sense_data); }

int set_adapter(uint8_t adapter) {
  scsi_transport.adapter = adapter;
  return 0;
}

int set_bus(uint8_t bus) {
  scsi_transport.bus = bus;
  return 0;
}

int set_target_id(uint8_t target_id) {
  if (target_id > 15) {
    report_printf("ERROR: invalid SCSI id specified (use 0 - 15 only)\r\n");
    return -1;
  }
  scsi_transport.target_id = target_id;
  return 0;
}

int set_lun(uint8_t lun) {
  if (lun > 7) {
    report_printf("ERROR: invalid logical unit number specified (use 0 - 7 only)\r\n");
    return -1;
  }
  scsi_transport.target_lun = lun;
  scsi_transport.lun_bits = static_cast<uint8_t>(lun << 5);
  return 0;
}

void set_unit_address(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun) {
  scsi_transport.adapter = adapter;
  scsi_transport.bus = bus;
  scsi_transport.target_id = target_id;
  scsi_transport.target_lun = lun;
  scsi_transport.lun_bits = static_cast<uint8_t>(lun <= 7 ? lun << 5 : 0);
}

void set_fixed_bit(uint8_t fixed) { scsi_transport.fixed_bit = fixed == 1 ? 1 : 0; }

void set_cdb_list_stream(FILE* stream) { scsi_transport.cdb_list_stream = stream; }

void flush_report_streams() {
  flush_stream(log_file());
  flush_stream(scsi_transport.cdb_list_stream);
}
