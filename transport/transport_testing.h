// Test support: a fixture that puts the transport on the scriptable fake
// platform with fresh state, and gives it back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "transport/platform/fake_platform_testing.h"

// Fresh fake platform, transport state, device table and command buffers
// before each test (no scan yet: add devices, then call scan_devices()).
class FakeTransportTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// Bytes as "0a 00 01 00 00 00" for readable comparisons.
std::string hex_bytes(const std::vector<uint8_t>& bytes);
