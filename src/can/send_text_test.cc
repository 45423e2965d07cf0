#include "can/send_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace kel {
namespace {

TEST(ParseHexBytesTest, PairsDigitsHighNibbleFirstAndSkipsTheRest) {
  struct Case {
    const char* text;
    size_t capacity;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      {"123456789", 16, {0x12, 0x34, 0x56, 0x78, 0x90}},
      {"123", 8, {0x12, 0x30}},
      {"  -x1y2", 8, {0x12}},
      {"aB:cD", 8, {0xAB, 0xCD}},
      {"112233", 2, {0x11, 0x22}},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> bytes(16);
    bytes.resize(ParseHexBytes(c.text, bytes.data(), c.capacity, false));
    EXPECT_EQ(c.bytes, bytes) << c.text;
  }
}

// The fields of a SendSpec as one line: ids, options, "*repeat @interval", data length and
// data bytes.
std::string Fields(const SendSpec& s) {
  char text[160];
  int n = std::snprintf(text, sizeof text, "%X-%X%s%s%s%s%s *%u @%u len %d", s.first_id, s.last_id,
                        s.ext ? " ext" : "", s.extio ? " extio" : "", s.rtr ? " rtr" : "",
                        s.time ? " time" : "", s.count ? " count" : "", s.repeat, s.interval_ms,
                        s.data_length);
  for (int i = 0; i < s.data_length; ++i) {
    n += std::snprintf(text + n, sizeof text - static_cast<size_t>(n), " %02X", s.data[i]);
  }
  return text;
}

TEST(ParseSendSpecTest, ReadsEveryTokenRule) {
  struct Case {
    const char* text;
    bool ok;
    const char* fields;
  };
  const Case cases[] = {
      // identifiers: hexadecimal or decimal, single or a range (kept as written)
      {"0x123:1234", true, "123-123 *0 @0 len 2 12 34"},
      {"  1-10 :12", true, "1-A *0 @0 len 1 12"},
      {"10-1:12", true, "A-1 *0 @0 len 1 12"},
      // a bad identifier stops parsing; what was parsed stays
      {"x12:34", false, "0-0 *0 @0 len -1"},
      {"0x10:EXT:x12:34", false, "10-10 ext *0 @0 len -1"},
      // option keywords by prefix, any case, before or after the identifier
      {"ext:0x123:1122", true, "123-123 ext *0 @0 len 2 11 22"},
      {"0x123:Extended:1", true, "123-123 ext *0 @0 len 1 10"},
      {"0x123:ExtIO:11", true, "123-123 extio *0 @0 len 1 11"},
      {"0x123:rtrx:", true, "123-123 rtr *0 @0 len -1"},
      {"0x123:TS:", true, "123-123 time *0 @0 len -1"},
      {"0x123:count:44", true, "123-123 count *0 @0 len -1"},
      // payload keywords; a payload keyword leaves no data
      {"0x123:CNT", true, "123-123 count *0 @0 len -1"},
      {"0x123:COUNTER*2", true, "123-123 count *2 @0 len -1"},
      {"0x123:TimeStamp*2", true, "123-123 time *2 @0 len -1"},
      // data: no field, an empty field, skipped characters, at most 8 bytes
      {"0x123:", true, "123-123 *0 @0 len -1"},
      {"0x123:*5", true, "123-123 *5 @0 len 0"},
      {"0x123:11-22 33", true, "123-123 *0 @0 len 3 11 22 33"},
      {"0x123:112233445566778899", true, "123-123 *0 @0 len 8 11 22 33 44 55 66 77 88"},
      // count and interval, each read over the rest of the text
      {"0x123:count*1000@10ms", true, "123-123 count *1000 @10 len -1"},
      {"0x123:count@10ms*1000", true, "123-123 count *1000 @10 len -1"},
      {"1:time*10@1s", true, "1-1 time *10 @1000 len -1"},
      {"0x123:1234*0x10@5", true, "123-123 *261 @5 len 2 12 34"},
  };
  for (const Case& c : cases) {
    SendSpec spec;
    EXPECT_EQ(c.ok, ParseSendSpec(c.text, spec)) << c.text;
    EXPECT_EQ(c.fields, Fields(spec)) << c.text;
  }
}

}  // namespace
}  // namespace kel
