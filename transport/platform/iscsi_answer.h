// What an iSCSI response means for a pass-through reply and for the login
// checks, without libiscsi: the data moved (from the response's residual),
// the sense bytes (from a CHECK CONDITION response's data segment) and the
// LUNs of a Report LUNs answer. Pure functions; safe on any thread.
#pragma once

#include <cstddef>
#include <cstdint>

// The residual of a SCSI Response (RFC 7143, 11.4.5): none, underflow (the
// target moved less than the expected length) or overflow (it had more).
enum class IscsiResidual : uint8_t { none, underflow, overflow };

// Bytes moved of a data phase of `length` bytes: `length` less an underflow
// residual (never below 0); the whole length with no residual or with an
// overflow, where the target had more than the buffer took.
uint32_t iscsi_transferred_length(uint32_t length, IscsiResidual kind, uint64_t residual);

// A CHECK CONDITION response carries SenseLength (2 bytes, big-endian) and
// then the sense data. Copies the sense bytes, at most `capacity`, into
// `sense` and returns how many; 0 when the segment holds none.
uint8_t iscsi_response_sense(const uint8_t* segment, size_t size, uint8_t* sense, unsigned capacity);

// The LUNs (peripheral or flat space addressing; others skipped) of the
// Report LUNs parameter data in `data` (`size` bytes moved), at most
// `capacity` of them into `luns`. Returns how many the data lists (which may
// be more than `capacity`).
size_t iscsi_reported_luns(const uint8_t* data, size_t size, uint16_t* luns, size_t capacity);

// True when the Report LUNs parameter data in `data` (`size` bytes moved)
// lists `lun` (peripheral or flat space addressing). `*listed` gets the
// LUNs found, as text ("0, 1"), cut to `listed_size`.
bool iscsi_lun_listed(const uint8_t* data, size_t size, unsigned lun, char* listed, size_t listed_size);
