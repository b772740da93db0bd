#include "vtape/log_pages.h"

#include <cstring>

namespace {

// TapeAlert 14h (clean now) also sets the cleaning-required parameter of 0Ch.
constexpr unsigned kCleanNowFlag = 0x14;

struct PageBuilder {
  uint8_t* page;
  unsigned length;
  uint16_t first_parameter;
};

void add_parameter(PageBuilder* b, uint16_t code, uint64_t value, unsigned value_length) {
  if (code < b->first_parameter) return;
  uint8_t* p = b->page + b->length;
  p[0] = static_cast<uint8_t>(code >> 8);
  p[1] = static_cast<uint8_t>(code);
  p[2] = 0x00;  // binary counter, no thresholds
  p[3] = static_cast<uint8_t>(value_length);
  for (unsigned i = 0; i < value_length; ++i) {
    p[4 + i] = static_cast<uint8_t>(value >> (8 * (value_length - 1 - i)));
  }
  b->length += 4 + value_length;
}

// `hundredths` of a percent of `amount`.
uint64_t percent_of(uint64_t amount, uint32_t hundredths) { return amount * hundredths / 10000; }

// Pages 02h and 03h: the recovered-error rate applies to the records and
// bytes of the direction, deterministically.
void error_counter_page(PageBuilder* b, uint64_t records, uint64_t bytes, uint32_t percent,
                        uint64_t failures) {
  uint64_t corrected_records = percent_of(records, percent);
  uint64_t corrected_kb = percent_of(bytes, percent) / 1024;
  add_parameter(b, 0x0000, corrected_records, 4);
  add_parameter(b, 0x0001, 0, 4);
  add_parameter(b, 0x0002, corrected_kb, 4);
  add_parameter(b, 0x0003, corrected_kb, 4);
  add_parameter(b, 0x0004, corrected_records, 4);
  add_parameter(b, 0x0005, bytes, 8);
  add_parameter(b, 0x0006, failures, 4);
}

uint64_t ratio_x100(uint64_t host, uint64_t tape) {
  if (tape == 0) return 0;
  uint64_t ratio = host * 100 / tape;
  return ratio > 0xFFFF ? 0xFFFF : ratio;
}

}  // namespace

unsigned build_log_page(const VirtualDrive& drive, uint8_t page_code, uint16_t first_parameter,
                        uint8_t* page) {
  std::memset(page, 0, kLogPageCapacity);
  PageBuilder b{page, 4, first_parameter};
  const DriveCounters& c = drive.counters;
  if (page_code != 0x00 && drive.description.log_page_missing[page_code & 0x3F]) return 0;
  switch (page_code) {
    case 0x00: {
      static const uint8_t kPages[] = {0x00, 0x02, 0x03, 0x0C, 0x17, 0x2E, 0x32};
      for (uint8_t code : kPages) {
        if (!drive.description.log_page_missing[code]) page[b.length++] = code;
      }
      break;
    }
    case 0x02:
      error_counter_page(&b, c.records_written, c.host_bytes_written,
                         drive.description.rewrite_percent, c.write_failures);
      break;
    case 0x03:
      error_counter_page(&b, c.records_read, c.host_bytes_read, drive.description.corrected_percent,
                         c.read_failures);
      break;
    case 0x0C:
      add_parameter(&b, 0x0000, c.host_bytes_written, 8);
      add_parameter(&b, 0x0001, c.tape_bytes_written, 8);
      add_parameter(&b, 0x0002, c.tape_bytes_read, 8);
      add_parameter(&b, 0x0003, c.host_bytes_read, 8);
      add_parameter(&b, 0x0100, (drive.tapealert_flags >> (kCleanNowFlag - 1)) & 1, 1);
      break;
    case 0x17: {
      const uint64_t write_retries = percent_of(c.records_written, drive.description.rewrite_percent);
      const uint64_t read_retries = percent_of(c.records_read, drive.description.corrected_percent);
      add_parameter(&b, 0x0001, drive.loads, 4);
      add_parameter(&b, 0x0002, c.records_written, 8);
      add_parameter(&b, 0x0003, write_retries, 8);
      add_parameter(&b, 0x0004, c.write_failures, 4);
      add_parameter(&b, 0x0007, c.records_read, 8);
      add_parameter(&b, 0x0008, read_retries, 8);
      add_parameter(&b, 0x0009, c.read_failures, 4);
      add_parameter(&b, 0x0010, c.tape_bytes_written / 1048576, 8);
      add_parameter(&b, 0x0011, c.tape_bytes_read / 1048576, 8);
      break;
    }
    case 0x2E:
      for (uint16_t flag = 1; flag <= 64; ++flag) {
        add_parameter(&b, flag, (drive.tapealert_flags >> (flag - 1)) & 1, 1);
      }
      break;
    case 0x32:
      add_parameter(&b, 0x0000, (c.host_bytes_written / 1024) & 0xFFFFFFFF, 4);
      add_parameter(&b, 0x0001, (c.tape_bytes_written / 1024) & 0xFFFFFFFF, 4);
      add_parameter(&b, 0x0002, (c.host_bytes_read / 1024) & 0xFFFFFFFF, 4);
      add_parameter(&b, 0x0003, (c.tape_bytes_read / 1024) & 0xFFFFFFFF, 4);
      add_parameter(&b, 0x0004, ratio_x100(c.host_bytes_written, c.tape_bytes_written), 2);
      add_parameter(&b, 0x0005, ratio_x100(c.host_bytes_read, c.tape_bytes_read), 2);
      break;
    default:
      return 0;
  }
  page[0] = page_code;
  page[2] = static_cast<uint8_t>((b.length - 4) >> 8);
  page[3] = static_cast<uint8_t>(b.length - 4);
  return b.length;
}
