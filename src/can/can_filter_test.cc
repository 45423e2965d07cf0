#include "can/can_filter.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

// The list of `filt add`: the first identifier sets every mask bit, each further one clears
// the bits it differs in; the width is that of the widest identifier.
TEST(FilterListTest, EachIdentifierClearsTheMaskBitsItDiffersIn) {
  struct Case {
    const char* items;
    size_t count;
    FilterCover cover;  // width, ar, am
  };
  const Case cases[] = {
      {"0x100,0x101", 2, {9, 0x100, 0xFFFFFFFE}},
      {" ,0x100 , 256,", 2, {9, 0x100, 0xFFFFFFFF}},
      {"0x100-0x103", 1, {9, 0x100, 0xFFFFFFFC}},
      {"0x103-0x100", 1, {0, 0, 0}},  // a range written high to low adds nothing
      {"0x10 0x20 0x30", 3, {6, 0, 0xFFFFFFCF}},
      {"0", 1, {1, 0, 0xFFFFFFFF}},
      {"0x7FF,0x800", 2, {12, 0, 0xFFFFF000}},
      {"0x1FFFFFFF-0x1FFFFFFF", 1, {29, 0x1FFFFFFF, 0xFFFFFFFF}},
      {"", 0, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    FilterCover cover;
    EXPECT_EQ(c.count, AddListToCover(c.items, cover)) << c.items;
    EXPECT_EQ(c.cover.width, cover.width) << c.items;
    EXPECT_EQ(c.cover.ar, cover.ar) << c.items;
    EXPECT_EQ(c.cover.am, cover.am) << c.items;
  }
}

}  // namespace
}  // namespace kel
