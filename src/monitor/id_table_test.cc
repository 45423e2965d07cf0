#include "monitor/id_table.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

FrameBytes Data(uint32_t id, uint8_t byte, bool extended = false) {
  CanDataFrame frame;
  frame.id = id;
  frame.dlc = 1;
  frame.info = extended ? 0x80 : 0;
  frame.data[0] = byte;
  return EncodeCanData(frame);
}

TEST(IdTableTest, CountsPeriodAndLastDataPerIdentifierAndForm) {
  IdTable table;
  table.Fold(Data(0x123, 1).data(), 10);
  table.Fold(Data(0x123, 1, true).data(), 12);  // the same number as an extended id
  table.Fold(Data(0x7FF, 5).data(), 15);
  table.Fold(Data(0x123, 2).data(), 35);
  table.Fold(Data(0x123, 3).data(), 40);
  const std::vector<const IdRow*> rows = table.Sorted();
  ASSERT_EQ(3U, rows.size());
  EXPECT_EQ("00000123 ---           3         5 1   03 \n", IdRowText(*rows[0]));
  EXPECT_EQ("000007FF ---           1         0 1   05 \n", IdRowText(*rows[1]));
  EXPECT_EQ("00000123 x--           1         0 1   01 \n", IdRowText(*rows[2]));
}

TEST(IdTableTest, KeepsEveryIdentifierAcrossGrowthAndOnlyCountsThosePastItsLimit) {
  IdTable table(1000);
  for (int round = 0; round < 2; ++round) {
    for (uint32_t id = 0; id < 1200; ++id) table.Fold(Data(id * 7919, 0).data(), 0);
  }
  EXPECT_EQ(1000U, table.Size());
  EXPECT_EQ(400U, table.Others());
  uint64_t counted = 0;
  for (const IdRow* row : table.Sorted()) counted += row->count;
  EXPECT_EQ(2000U, counted);
}

}  // namespace
}  // namespace kel
