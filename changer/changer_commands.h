// The CDBs of the medium changer commands the library sweep sends (SMC-3,
// SPC): each builder lays out its CDB, sets `request_length`, zeroes its
// data buffer where the command reads into one, and calls `execute_cdb`;
// none looks at the outcome. Commands go to whatever address the transport
// holds: changer_link.h switches it to the changer. Test thread only.
#pragma once

#include <cstdint>

// TEST UNIT READY (00h).
void changer_test_unit_ready();
// INQUIRY (12h), standard data, into `buffer` (zeroed first).
void changer_inquiry(uint8_t* buffer, uint8_t allocation_length);
// INQUIRY with EVPD for page `page_code`, into `buffer` (zeroed first).
void changer_inquiry_vpd(uint8_t page_code, uint8_t* buffer, uint8_t allocation_length);
// READ ELEMENT STATUS (B8h) of one element type from `start`, with volume
// tags and, when `device_ids` is set, the data transfer elements' device
// identifiers (DVCID). `buffer` is zeroed for its whole allocation first.
void changer_read_element_status(uint8_t element_type, uint16_t start, uint16_t count, bool device_ids,
                                 uint8_t* buffer, uint32_t allocation_length);
// MOVE MEDIUM (A5h) by the transport element `transport` (0: the default).
void changer_move_medium(uint16_t transport, uint16_t source, uint16_t destination);
// INITIALIZE ELEMENT STATUS (07h): the changer checks every element again.
void changer_initialize_element_status();
