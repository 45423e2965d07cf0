#include "can/send_spec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "can/texts.h"
#include "can/traffic.h"

namespace kel {
namespace {

std::vector<uint8_t> HexBytes(std::string_view text, size_t capacity, bool strict) {
  std::vector<uint8_t> bytes(capacity + 4, 0xEE);  // guard bytes catch overruns
  bytes.resize(ParseHexBytes(text, bytes.data(), capacity, strict));
  return bytes;
}

TEST(ParseHexBytesTest, PairsDigitsAndSkipsEverythingElse) {
  struct Case {
    const char* text;
    size_t capacity;
    bool strict;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      {"123456789", 16, false, {0x12, 0x34, 0x56, 0x78, 0x90}},
      {"123", 8, false, {0x12, 0x30}},
      {"", 8, false, {}},
      {"xyz", 8, false, {}},
      {"  -x1y2", 8, false, {0x12}},
      {"aB:cD", 8, false, {0xAB, 0xCD}},
      {"1g2", 8, false, {0x12}},
      {"1g2", 8, true, {0x10}},
      {"12 34", 8, true, {0x12, 0x34}},
      {"0x1122", 8, false, {0x01, 0x12, 0x20}},
      {"112233445566778899", 8, false, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
      {"00112233445566778899AABBCCDDEEFF0011",
       16,
       false,
       {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE,
        0xFF}},
      {"1234", 0, false, {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.bytes, HexBytes(c.text, c.capacity, c.strict)) << c.text << " strict " << c.strict;
  }
  uint8_t bytes[4];
  EXPECT_EQ(1U, ParseHexBytes(std::string_view("12345", 2), bytes, 4, false)) << "length bounds";
}

// The fields of a SendSpec as one comparable line.
std::string Fields(const SendSpec& s) {
  std::string text = std::to_string(s.first_id);
  const auto add = [&text](const char* label, uint32_t value) {
    text += label;
    text += std::to_string(value);
  };
  add("-", s.last_id);
  if (s.ext) text += " ext";
  if (s.extio) text += " extio";
  if (s.rtr) text += " rtr";
  if (s.time) text += " time";
  if (s.count) text += " count";
  text += " len ";
  text += std::to_string(s.data_length);
  if (s.data_length > 0) {
    text += " data";
    for (int i = 0; i < s.data_length; ++i) add(" ", s.data[i]);
  }
  if (s.repeat != 0) add(" *", s.repeat);
  if (s.interval_ms != 0) add(" @", s.interval_ms);
  return text;
}

TEST(ParseSendSpecTest, ReadsEveryTokenRule) {
  struct Case {
    const char* text;
    bool ok;
    const char* fields;
  };
  const Case cases[] = {
      // identifiers and ranges
      {"0x123:1234", true, "291-291 len 2 data 18 52"},
      {"1-10:12", true, "1-10 len 1 data 18"},
      {"10-1:12", true, "10-1 len 1 data 18"},
      {"0x100-0x1FF:", true, "256-511 len -1"},
      {"  0x123 :12", true, "291-291 len 1 data 18"},
      {"'A':1", false, "0-0 len -1"},
      {"x12:34", false, "0-0 len -1"},
      {"0x10:x12:34", false, "16-16 len -1"},
      {"1:2:3", true, "2-2 len 1 data 48"},
      {"CAFE:1", true, "0-0 len 1 data 16"},
      // option keywords, by prefix and without regard to case, before or after the id
      {"0x123:EXT:1122", true, "291-291 ext len 2 data 17 34"},
      {"ext:0x123:1122", true, "291-291 ext len 2 data 17 34"},
      {"0x123:extended:1", true, "291-291 ext len 1 data 16"},
      {"0x123:EXTIO:11", true, "291-291 extio len 1 data 17"},
      {"0x123:ExtIO:EXT:11", true, "291-291 ext extio len 1 data 17"},
      {"0x123:RTR:", true, "291-291 rtr len -1"},
      {"0x123:rtrx:", true, "291-291 rtr len -1"},
      {"0x123:TS:", true, "291-291 time len -1"},
      {"0x123:count:", true, "291-291 count len -1"},
      // payload keywords and data
      {"0x123:count*1000", true, "291-291 count len -1 *1000"},
      {"0x123:CNT", true, "291-291 count len -1"},
      {"0x123:COUNTER*2", true, "291-291 count len -1 *2"},
      {"0x123:TimeStamp*2", true, "291-291 time len -1 *2"},
      {"0x123:tsx", true, "291-291 time len -1"},
      {"0x123:", true, "291-291 len -1"},
      {"0x123:*5", true, "291-291 len 0 *5"},
      {"0x123:123", true, "291-291 len 2 data 18 48"},
      {"0x123:11-22 33", true, "291-291 len 3 data 17 34 51"},
      {"0x123:112233445566778899", true, "291-291 len 8 data 17 34 51 68 85 102 119 136"},
      {"0x123:count:44", true, "291-291 count len -1"},
      // count and interval: each is read over the rest of the text
      {"0x123:count*1000@10ms", true, "291-291 count len -1 *1000 @10"},
      {"0x123:count@10ms*1000", true, "291-291 count len -1 *1000 @10"},
      {"1:time*10@1s", true, "1-1 time len -1 *10 @1000"},
      {"0x123:1234*3", true, "291-291 len 2 data 18 52 *3"},
      {"0x123:1234*0x10@5", true, "291-291 len 2 data 18 52 *261 @5"},
      {"0x123:1234@0.25s", true, "291-291 len 2 data 18 52 @250"},
      {"0x123:1234@forever", true, "291-291 len 2 data 18 52 @2147483647"},
      {"0x123:1234@-5", true, "291-291 len 2 data 18 52"},
      {"0x123:1234*", true, "291-291 len 2 data 18 52"},
      {"0x123:1234*x", true, "291-291 len 2 data 18 52"},
      {"", true, "0-0 len -1"},
  };
  for (const Case& c : cases) {
    SendSpec spec;
    EXPECT_EQ(c.ok, ParseSendSpec(c.text, spec)) << c.text;
    EXPECT_EQ(c.fields, Fields(spec)) << c.text;
  }
}

TEST(ParseSendSpecTest, KeepsAtMostTheCapacityOfData) {
  SendSpec spec;
  ParseSendSpec("1:11223344", spec, 2);
  EXPECT_EQ("1-1 len 2 data 17 34", Fields(spec));
  SendSpec big;
  ParseSendSpec("1:112233445566778899", big, 100);
  EXPECT_EQ(8, big.data_length) << "never past the data field";
}

FrameBytes FrameOf(const char* text) {
  SendSpec spec;
  ParseSendSpec(text, spec);
  return BuildFrame(spec);
}

TEST(BuildFrameTest, ComposesIdentifierSecondWordAndData) {
  struct Case {
    const char* text;
    FrameBytes frame;
  };
  const Case cases[] = {
      {"0x123:1234", {0x23, 0x01, 0, 0, 2, 0, 0, 0, 0x12, 0x34, 0, 0, 0, 0, 0, 0}},
      {"0x123:EXT:1122", {0x23, 0x01, 0, 0, 2, 0x80, 0, 0, 0x11, 0x22, 0, 0, 0, 0, 0, 0}},
      {"0x123:RTR:", {0x23, 0x01, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"0x123:EXTIO:5", {0x23, 0x01, 0, 0, 1, 0, 0, 1, 0x50, 0, 0, 0, 0, 0, 0, 0}},
      {"0x1ABCDEF:EXT:RTR:EXTIO:", {0xEF, 0xCD, 0xAB, 0x01, 0, 0x80, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"1:count*5", {1, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"1:time", {1, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"1:count:1122", {1, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"1:1122:count", {0x62, 0x04, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"0x123:", {0x23, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"1:1122334455667788",
       {1, 0, 0, 0, 8, 0, 0, 0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
  };
  for (const Case& c : cases) EXPECT_EQ(c.frame, FrameOf(c.text)) << c.text;
}

TEST(SendSpecTest, RawArgumentsAndTotals) {
  EXPECT_TRUE(IsRawArgument("123456789"));
  EXPECT_TRUE(IsRawArgument("0x123 45"));
  EXPECT_FALSE(IsRawArgument("0x123:"));
  EXPECT_FALSE(IsRawArgument("12@1s"));
  EXPECT_FALSE(IsRawArgument("12*3"));

  struct Case {
    const char* text;
    uint32_t total;
  };
  const Case cases[] = {
      {"0x123:12", 1},          {"1-10:12", 10},       {"1-10:12*3", 30}, {"5-5:count*0", 1},
      {"10-1:12", 0xFFFFFFF8U}, {"0-0xFFFFFFFF:1", 0},  // wraps, as the unsigned arithmetic of the
                                                        // lines does
  };
  for (const Case& c : cases) {
    SendSpec spec;
    ParseSendSpec(c.text, spec);
    EXPECT_EQ(c.total, TotalMessages(spec)) << c.text;
  }
}

// A walk as text: "id:payload " for each message, "| " after each repetition.
struct WalkRecord {
  std::string text;
  std::vector<uint32_t> payloads;
};

WalkRecord Walk(const char* text, size_t stop_after = SIZE_MAX) {
  SendSpec spec;
  ParseSendSpec(text, spec);
  WalkRecord record;
  const auto visit = [&](const FrameBytes& frame) {
    record.text += std::to_string(FrameWord(frame.data(), 0));
    record.text += ":";
    record.text += std::to_string(FrameWord(frame.data(), 2));
    record.text += " ";
    record.payloads.push_back(FrameWord(frame.data(), 2));
    return record.payloads.size() < stop_after;
  };
  ForEachMessage(spec, visit, [&record] { record.text += "| "; });
  return record;
}

TEST(ForEachMessageTest, VisitsIdentifiersWithinRepetitionsInOrder) {
  struct Case {
    const char* spec;
    size_t stop_after;
    const char* walk;
  };
  const Case cases[] = {
      {"1-3:count*2", SIZE_MAX, "1:0 2:0 3:0 | 1:1 2:1 3:1 | "},
      {"7:1234*2", SIZE_MAX, "7:13330 | 7:13330 | "},  // data 12 34 is the word 0x3412
      {"1-3:count*2", 2, "1:0 2:0 "},                  // a failed visit ends the walk
      {"10-1:12*3", SIZE_MAX, "| | | "},               // nothing to send, every repetition ends
      {"0xFFFFFFFE-0xFFFFFFFF:", SIZE_MAX, "4294967294:0 4294967295:0 | "},
  };
  for (const Case& c : cases) EXPECT_EQ(c.walk, Walk(c.spec, c.stop_after).text) << c.spec;
}

TEST(ForEachMessageTest, TimePayloadsCountMillisecondsSinceTheStart) {
  const std::vector<uint32_t> payloads = Walk("1:time*3@20").payloads;
  ASSERT_EQ(3U, payloads.size());
  EXPECT_LT(payloads[0], 20U);
  EXPECT_GE(payloads[1], payloads[0] + 20);
  EXPECT_GE(payloads[2], payloads[1] + 20);
}

TEST(ProgressLineTest, PrintsFirstThenAtMostOnceASecond) {
  uint32_t done = 0;
  ProgressLine line(text::kSendingProgress, 10, done);
  ::testing::internal::CaptureStdout();
  line.Update();  // nothing done yet: every update prints, deferred or not
  line.Update(true);
  done = 3;
  line.Update();
  done = 5;
  line.Update();  // within the second
  platform::SleepMs(1000);
  line.Update(true);  // deferred: the clock is not read
  line.Update();
  EXPECT_EQ(
      "Sending CAN data: 0 / 10 @ 0 msg/s\n"
      "Sending CAN data: 0 / 10 @ 0 msg/s\n"
      "Sending CAN data: 3 / 10 @ 3 msg/s\n"
      "Sending CAN data: 5 / 10 @ 2 msg/s\n",
      ::testing::internal::GetCapturedStdout());
}

}  // namespace
}  // namespace kel
