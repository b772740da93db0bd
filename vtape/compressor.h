// The compressed size of a record, as the drive's data compression would
// store it. Linux builds use LZ4 (compressor_lz4.cc); builds without LZ4 use
// a small built-in estimator (compressor_builtin.cc). The build picks one.
#pragma once

#include <cstdint>

// Bytes that `length` bytes of `data` take after compression, never more
// than `length` (a drive stores incompressible data as it is). Called once
// per distinct record; not thread-safe (shares one scratch buffer).
uint32_t compressed_size(const uint8_t* data, uint32_t length);
