#include "drive_status/log_parameters.h"

int walk_log_page(const uint8_t* data, uint32_t size, LogPage* page) {
  page->count = 0;
  page->cut_short = false;
  page->repeated_codes = false;
  if (data == nullptr || size < 4) {
    page->page_code = 0;
    page->page_length = 0;
    page->end = 0;
    return -1;
  }
  page->page_code = data[0] & 0x3F;
  page->page_length = (static_cast<uint32_t>(data[2]) << 8) | data[3];
  page->end = page->page_length + 4 < size ? page->page_length + 4 : size;
  if (page->page_length + 4 > size) page->cut_short = true;
  uint32_t at = 4;
  while (at < page->end) {
    if (page->end - at < 4) {
      page->cut_short = true;
      break;
    }
    const uint8_t* p = data + at;
    LogParameter parameter{static_cast<uint16_t>((p[0] << 8) | p[1]), p[2], p[3], at + 4};
    if (parameter.length > page->end - at - 4) {
      page->cut_short = true;
      break;
    }
    at += 4u + parameter.length;
    if (find_log_parameter(*page, parameter.code) != nullptr) {
      page->repeated_codes = true;
      continue;
    }
    if (page->count == kMaxLogParameters) {
      page->cut_short = true;
      break;
    }
    page->parameters[page->count++] = parameter;
  }
  return 0;
}

const LogParameter* find_log_parameter(const LogPage& page, uint16_t code) {
  for (unsigned i = 0; i < page.count; ++i) {
    if (page.parameters[i].code == code) return &page.parameters[i];
  }
  return nullptr;
}

int log_counter(const LogPage& page, const uint8_t* data, uint16_t code, uint64_t* value) {
  const LogParameter* parameter = find_log_parameter(page, code);
  if (parameter == nullptr || parameter->length == 0 || parameter->length > 8) return -1;
  uint64_t result = 0;
  for (unsigned i = 0; i < parameter->length; ++i) result = (result << 8) | data[parameter->offset + i];
  *value = result;
  return 0;
}

void supported_log_pages(const LogPage& page, const uint8_t* data, bool listed[64]) {
  for (unsigned code = 0; code < 64; ++code) listed[code] = false;
  for (uint32_t at = 4; at < page.end; ++at) listed[data[at] & 0x3F] = true;
}
