#include "transport/platform/iscsi_url.h"

#include <gtest/gtest.h>

#include <string>

#include "transport/platform/iscsi_answer.h"

namespace {

TEST(IscsiUrl, ReadsEveryPartAndShowsItWithoutThePassword) {
  const struct {
    const char* text;
    const char* portal;
    const char* target;
    unsigned lun;
    const char* user;
    const char* password;
    const char* shown;
  } cases[] = {
      {"iscsi://127.0.0.1/iqn.2024-01.test:tape/1", "127.0.0.1:3260", "iqn.2024-01.test:tape", 1, "", "",
       "iscsi://127.0.0.1:3260/iqn.2024-01.test:tape/1"},
      {"iscsi://tapes.example.com:3261/iqn.2024-01.test:tape/0", "tapes.example.com:3261",
       "iqn.2024-01.test:tape", 0, "", "", "iscsi://tapes.example.com:3261/iqn.2024-01.test:tape/0"},
      {"iscsi://alice@host/iqn.x/16383", "host:3260", "iqn.x", 16383, "alice", "",
       "iscsi://alice@host:3260/iqn.x/16383"},
      // The user part ends at the last '@': a password may hold '@', '/', '%' and ':'.
      {"iscsi://alice%p@ss/w%rd:@10.0.0.5:65535/iqn.x/2", "10.0.0.5:65535", "iqn.x", 2, "alice",
       "p@ss/w%rd:", "iscsi://alice@10.0.0.5:65535/iqn.x/2"},
      {"iscsi://[::1]/iqn.x/3", "[::1]:3260", "iqn.x", 3, "", "", "iscsi://[::1]:3260/iqn.x/3"},
      {"iscsi://[2001:db8::7]:3270/iqn.x/3", "[2001:db8::7]:3270", "iqn.x", 3, "", "",
       "iscsi://[2001:db8::7]:3270/iqn.x/3"},
      // libiscsi's escape of ':' in target names; bytes no iSCSI name has
      // are escaped when shown.
      {"iscsi://host/iqn.2024-01.test%3Atape/1", "host:3260", "iqn.2024-01.test:tape", 1, "", "",
       "iscsi://host:3260/iqn.2024-01.test:tape/1"},
      {"iscsi://host/odd%2Fname%40x%25/1", "host:3260", "odd/name@x%", 1, "", "",
       "iscsi://host:3260/odd%2Fname%40x%25/1"},
      {"iscsi://host/a/b/1", "host:3260", "a/b", 1, "", "", "iscsi://host:3260/a%2Fb/1"},
  };
  for (const auto& c : cases) {
    IscsiUrl url;
    char error[200];
    ASSERT_EQ(0, parse_iscsi_url(c.text, &url, error, sizeof error)) << c.text << ": " << error;
    EXPECT_STREQ(c.portal, url.portal) << c.text;
    EXPECT_STREQ(c.target, url.target) << c.text;
    EXPECT_EQ(c.lun, url.lun) << c.text;
    EXPECT_STREQ(c.user, url.user) << c.text;
    EXPECT_STREQ(c.password, url.password) << c.text;
    char shown[kIscsiUrlCapacity];
    shown_iscsi_url(url, shown, sizeof shown);
    EXPECT_STREQ(c.shown, shown) << c.text;
  }
}

TEST(IscsiUrl, RefusesBadUrlsWithAReasonThatNeverQuotesThem) {
  const std::string syntax = " (iscsi://[user[%password]@]host[:port]/<target-iqn>/<lun>)";
  const struct {
    std::string text;
    std::string reason;
  } cases[] = {
      {"http://host/iqn.x/1", "it does not begin with iscsi://" + syntax},
      {"iscsi://host", "no target name after the portal" + syntax},
      {"iscsi://host/iqn.x", "no LUN after the target name" + syntax},
      {"iscsi://host//1", "empty target name" + syntax},
      {"iscsi:///iqn.x/1", "no host name or address" + syntax},
      {"iscsi://host/iqn.x/", "the LUN is not a number from 0 to 16383"},
      {"iscsi://host/iqn.x/16384", "the LUN is not a number from 0 to 16383"},
      {"iscsi://host/iqn.x/1a", "the LUN is not a number from 0 to 16383"},
      {"iscsi://host:0/iqn.x/1", "the port is not a number from 1 to 65535"},
      {"iscsi://host:65536/iqn.x/1", "the port is not a number from 1 to 65535"},
      {"iscsi://host:/iqn.x/1", "the port is not a number from 1 to 65535"},
      {"iscsi://::1/iqn.x/1", "an IPv6 address needs brackets, as in iscsi://[::1]:3260/..."},
      {"iscsi://[::1/iqn.x/1", "'[' without ']' around the IPv6 address"},
      {"iscsi://[::1]x/iqn.x/1", "text after ']' that is not a port"},
      {"iscsi://@host/iqn.x/1", "empty CHAP user name before '@'"},
      {"iscsi://alice%@host/iqn.x/1", "empty CHAP secret after '%'"},
      {"iscsi://host/iqn.x%3/1", "'%' in the target name is not followed by two hex digits"},
      {"iscsi://host/iqn%20x/1", "blank or control character in the target name"},
      {"iscsi://host/" + std::string(224, 'q') + "/1", "target name longer than 223 bytes"},
      {"iscsi://" + std::string(256, 'h') + "/iqn.x/1", "host name longer than 255 characters"},
      {"iscsi://host/iqn%7Fx/1", "blank or control character in the target name"},
      {"iscsi://host/" + std::string(1270, 'q') + "/1", "longer than 1279 characters"},
  };
  for (const auto& c : cases) {
    IscsiUrl url;
    char error[200];
    EXPECT_EQ(-1, parse_iscsi_url(c.text.c_str(), &url, error, sizeof error)) << c.text;
    EXPECT_EQ(c.reason, error) << c.text;
  }
}

TEST(IscsiUrl, ReadsAPortalToListOrOneOfItsTargets) {
  const struct {
    const char* text;
    int result;
    const char* portal;
    const char* target;  // empty: every target of the portal
    const char* user;
    const char* password;
    const char* error;
  } cases[] = {
      {"iscsi://127.0.0.1", 0, "127.0.0.1:3260", "", "", "", ""},
      {"iscsi://alice%s3cret@[::1]:3270/", 0, "[::1]:3270", "", "alice", "s3cret", ""},
      {"iscsi://host:3261/iqn.2024-01.test%3Alibrary", 0, "host:3261", "iqn.2024-01.test:library", "", "", ""},
      {"iscsi://host/iqn.x/7", 0, "host:3260", "iqn.x", "", "", ""},
      {"iscsi://", -1, "", "", "", "", "no host name or address (iscsi://[user[%password]@]host[:port])"},
      {"iscsi:///", -1, "", "", "", "", "no host name or address (iscsi://[user[%password]@]host[:port])"},
      {"iscsi://host:99999", -1, "", "", "", "", "the port is not a number from 1 to 65535"},
      {"iscsi://host/iqn.x/", -1, "", "", "", "", "the LUN is not a number from 0 to 16383"},
      {"iscsi://host/iqn%20x", -1, "", "", "", "", "blank or control character in the target name"},
      {"host:3260", -1, "", "", "", "",
       "it does not begin with iscsi:// (iscsi://[user[%password]@]host[:port]/<target-iqn>/<lun>)"},
  };
  for (const auto& c : cases) {
    IscsiUrl url;
    char error[200];
    ASSERT_EQ(c.result, parse_iscsi_portal_url(c.text, &url, error, sizeof error)) << c.text << ": " << error;
    EXPECT_STREQ(c.error, error) << c.text;
    if (c.result != 0) continue;
    EXPECT_STREQ(c.portal, url.portal) << c.text;
    EXPECT_STREQ(c.target, url.target) << c.text;
    EXPECT_STREQ(c.user, url.user) << c.text;
    EXPECT_STREQ(c.password, url.password) << c.text;
  }
}

TEST(IscsiAnswer, ResidualSenseSegmentAndLunList) {
  // Data moved, from the residual of the response.
  EXPECT_EQ(65536u, iscsi_transferred_length(65536, IscsiResidual::none, 0));
  EXPECT_EQ(3096u, iscsi_transferred_length(4096, IscsiResidual::underflow, 1000));
  EXPECT_EQ(0u, iscsi_transferred_length(256, IscsiResidual::underflow, 256));
  EXPECT_EQ(0u, iscsi_transferred_length(256, IscsiResidual::underflow, 1u << 20));  // never below 0
  EXPECT_EQ(512u, iscsi_transferred_length(512, IscsiResidual::overflow, 488));      // the target had more

  // SenseLength, then the sense; the length never reaches past the segment
  // or the caller's area.
  const uint8_t segment[] = {0x00, 0x12, 0xF0, 0x00, 0x20, 0x00, 0x00, 0x0C, 0x18, 0x0A,
                             0,    0,    0,    0,    0,    0,    0,    0,    0,    0};
  uint8_t sense[32] = {};
  EXPECT_EQ(18, iscsi_response_sense(segment, sizeof segment, sense, sizeof sense));
  EXPECT_EQ(0xF0, sense[0]);
  EXPECT_EQ(0x18, sense[6]);
  EXPECT_EQ(8, iscsi_response_sense(segment, 10, sense, sizeof sense));  // segment cut short
  EXPECT_EQ(4, iscsi_response_sense(segment, sizeof segment, sense, 4));
  EXPECT_EQ(0, iscsi_response_sense(segment, 1, sense, sizeof sense));
  EXPECT_EQ(0, iscsi_response_sense(nullptr, 0, sense, sizeof sense));

  // Report LUNs: LUN 0 (peripheral), LUN 1, LUN 300 (flat space), and a
  // list length larger than what moved.
  const uint8_t luns[] = {0,    0, 0, 32, 0, 0, 0, 0, 0x00, 0,    0, 0, 0, 0, 0, 0,
                          0x00, 1, 0, 0,  0, 0, 0, 0, 0x41, 0x2C, 0, 0, 0, 0, 0, 0};
  char listed[64];
  EXPECT_TRUE(iscsi_lun_listed(luns, sizeof luns, 1, listed, sizeof listed));
  EXPECT_STREQ("0, 1, 300", listed);
  EXPECT_TRUE(iscsi_lun_listed(luns, sizeof luns, 300, listed, sizeof listed));
  EXPECT_FALSE(iscsi_lun_listed(luns, sizeof luns, 2, listed, sizeof listed));
  EXPECT_FALSE(iscsi_lun_listed(luns, 16, 1, listed, sizeof listed));
  EXPECT_STREQ("0", listed);
  EXPECT_FALSE(iscsi_lun_listed(luns, 4, 0, listed, sizeof listed));
  EXPECT_STREQ("", listed);
  // More LUNs than room: all are counted, the room is filled.
  uint16_t first_two[2] = {};
  EXPECT_EQ(3u, iscsi_reported_luns(luns, sizeof luns, first_two, 2));
  EXPECT_EQ(0, first_two[0]);
  EXPECT_EQ(1, first_two[1]);
}

}  // namespace
