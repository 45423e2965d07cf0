#include "monitor/monitor_args.h"

#include <gtest/gtest.h>

#include <vector>

namespace kel {
namespace {

constexpr uint32_t kNone = 0xFFFFFFFF;  // no value in the tables below

struct MonitorCase {
  const char* text;
  bool ok;
  MonitorMode mode = MonitorMode::kCan;
  uint32_t filter_id = kNone;
  uint32_t filter_mask = kNone;
  uint32_t interval = kNone;
  uint32_t duration = kNone;
};

TEST(ParseMonitorArgsTest, ModeFilterAndDurations) {
  using enum MonitorMode;
  const std::vector<MonitorCase> cases = {
      {"", true},
      {"CAN", true},
      {"data 2s", true, kCan, kNone, kNone, kNone, 2000},
      {"ids 0x123:0x7FF", true, kIds, 0x123, 0x7FF},
      {"123:7ff 300ms", true, kCan, 0x123, 0x7FF, kNone, 300},
      {"0x18DA00F1:1FFFFF00", true, kCan, 0x18DA00F1, 0x1FFFFF00},
      {"ids 500ms 1m", true, kIds, kNone, kNone, 500, 60000},
      {"curr 1ms 80s", true, kCurrents, kNone, kNone, 1, 80000},  // the regression test's
      {"Current", true, kCurrents},
      {"out 90s", true, kOutputs, kNone, kNone, kNone, 90000},
      {"output 50ms forever", true, kOutputs, kNone, kNone, 50, kNone},
      {"curr 1.5s", true, kCurrents, kNone, kNone, kNone, 1500},
      {"forever", true},
      // Refused: unknown words, a mode not first, filters where they mean nothing or twice,
      // too many durations, an interval for can or of 0.
      {"bogus", false},
      {"2s can", false},
      {"ids ids", false},
      {"curr 123:7FF", false},
      {"out 1:1", false},
      {"1:2 3:4", false},
      {"1s 1:2", false},
      {"123456789:1", false},
      {"12g:7FF", false},
      {":7FF", false},
      {"can 1s 2s", false},
      {"curr 1s 2s 3s", false},
      {"curr 0 1s", false},
      {"curr forever 1s", false},
      {"ids 5x", false},
      {"ms", false},
      {"1.s", false},
  };
  for (const MonitorCase& c : cases) {
    std::string_view rest = c.text;
    const std::optional<MonitorArgs> args = ParseMonitorArgs(rest);
    ASSERT_EQ(c.ok, args.has_value()) << c.text;
    if (!args) continue;
    EXPECT_EQ(c.mode, args->mode) << c.text;
    EXPECT_EQ(c.filter_id, args->filter ? args->filter->id : kNone) << c.text;
    EXPECT_EQ(c.filter_mask, args->filter ? args->filter->mask : kNone) << c.text;
    EXPECT_EQ(c.interval, args->interval_ms.value_or(kNone)) << c.text;
    EXPECT_EQ(c.duration, args->duration_ms.value_or(kNone)) << c.text;
  }
}

TEST(ParseMonitorArgsTest, TakesTheWordsOfItsOwnCommandOnly) {
  std::string_view rest = "ids 1s;out 2s";
  ASSERT_TRUE(ParseMonitorArgs(rest));
  EXPECT_EQ(";out 2s", rest);
}

TEST(IdFilterTest, ComparesTheMaskedBits) {
  const IdFilter filter{0x123, 0x7F0};
  EXPECT_TRUE(filter.Passes(0x120));
  EXPECT_TRUE(filter.Passes(0x812F)) << "bits outside the mask do not matter";
  EXPECT_FALSE(filter.Passes(0x133));
  EXPECT_TRUE((IdFilter{0x555, 0}).Passes(0x1)) << "an empty mask passes everything";
}

struct TraceCase {
  const char* text;
  bool ok;
  const char* pattern = "";
  bool ignore_case = false;
  uint32_t duration = kNone;
};

TEST(ParseTraceArgsTest, PatternCaseAndDuration) {
  const std::vector<TraceCase> cases = {
      {"", true},
      {"GET_BAUD 500ms", true, "GET_BAUD", false, 500},
      {"500ms", true, "", false, 500},
      {"i/esc", true, "esc", true},
      {"i/ 2s", true, "", true, 2000},
      {"\"12\"", true, "12", false},  // quoted: a pattern, though it reads as a duration
      {"12", true, "", false, 12},
      {"\"\\[DATA\\] .*(1/35)\" 1m", true, "\\[DATA\\] .*(1/35)", false, 60000},
      {"\"i/get baud\"", true, "get baud", true},
      {"a b", false},
      {"a 1s 2s", false},
  };
  for (const TraceCase& c : cases) {
    std::string_view rest = c.text;
    const std::optional<TraceArgs> args = ParseTraceArgs(rest);
    ASSERT_EQ(c.ok, args.has_value()) << c.text;
    if (!args) continue;
    EXPECT_EQ(c.pattern, args->pattern) << c.text;
    EXPECT_EQ(c.ignore_case, args->ignore_case) << c.text;
    EXPECT_EQ(c.duration, args->duration_ms.value_or(kNone)) << c.text;
  }
}

}  // namespace
}  // namespace kel
