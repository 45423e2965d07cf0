#include "can/can_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel {
namespace {

constexpr uint32_t kPri2 = 0x80000000;  // PRI 2 in the arbitration word
constexpr uint32_t kIde = 1U << 29;

TEST(FilterTextTest, PrintsTheFormThatIdeSelects) {
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x7FE, PRI=2, IDE=0, AR=0x100\n",
            FilterText({0x200, 0x1FF80000, 0x84000000}));
  EXPECT_EQ("CAN=2, MIDE=1, AM=0x1FFF0000, PRI=2, IDE=1, AR=0x00120000\n",
            FilterText({0x200, 0x3FFF0000, 0xA0120000}));
  EXPECT_EQ("CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n", FilterText({}));
  // Bits outside the selected form do not show; the channel is bits 8-15 only.
  EXPECT_EQ("CAN=255, MIDE=0, AM=0x001, PRI=3, IDE=0, AR=0x7FF\n",
            FilterText({0x1FFFF, 0x0007FFFF | 1U << 18, 0xDFFFFFFF & ~kIde}));
}

TEST(FilterTextTest, SetAndClearedDependOnTheSelectedForm) {
  struct Case {
    FilterWords words;
    bool cleared;
    bool in_use;
  };
  const Case cases[] = {
      {{0, 0, 0}, true, false},
      {{0, 0, kPri2}, true, false},
      {{0, 0x0003FFFF, 0x0003FFFF}, true, false},  // only bits outside the 11-bit form
      {{0, 0x1FF80000, 0}, false, false},          // AM without AR
      {{0, 0x1FF80000, 0x84000000}, false, true},
      {{0, 0x1FFFFFFF, kIde | 5}, false, true},
      {{0, 0x1FFFFFFF, kIde}, false, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.cleared, FilterCleared(c.words)) << FilterText(c.words);
    EXPECT_EQ(c.in_use, FilterInUse(c.words)) << FilterText(c.words);
  }
}

TEST(FilterCoverTest, EachIdentifierClearsTheMaskBitsItDiffersIn) {
  struct Case {
    std::vector<uint32_t> ids;
    FilterCover cover;
    uint64_t matched;
  };
  const Case cases[] = {
      {{0x100, 0x101}, {9, 0x100, 0xFFFFFFFE}, 2},
      {{0x100, 0x103}, {9, 0x100, 0xFFFFFFFC}, 4},
      {{0}, {1, 0, 0xFFFFFFFF}, 1},
      {{0, 1}, {1, 0, 0xFFFFFFFE}, 2},
      {{0x10, 0x20, 0x30}, {6, 0, 0xFFFFFFCF}, 4},
      {{0x7FF}, {11, 0x7FF, 0xFFFFFFFF}, 1},
      {{0x800}, {12, 0x800, 0xFFFFFFFF}, 1},
      {{0x1FFFFFFF, 0x1FFFFFFE}, {29, 0x1FFFFFFE, 0xFFFFFFFE}, 2},
  };
  for (const Case& c : cases) {
    FilterCover cover;
    uint64_t matched = 0;
    for (uint32_t id : c.ids) matched = AddToCover(cover, id);
    EXPECT_EQ(c.cover.width, cover.width) << c.ids.size() << " ids from " << c.ids[0];
    EXPECT_EQ(c.cover.ar, cover.ar) << c.ids[0];
    EXPECT_EQ(c.cover.am, cover.am) << c.ids[0];
    EXPECT_EQ(c.matched, matched) << c.ids[0];
    for (uint32_t id : c.ids) EXPECT_TRUE(CoverMatches(cover, id)) << id;
  }
  FilterCover opposite;
  AddToCover(opposite, 0);
  EXPECT_EQ(uint64_t{1} << 32, AddToCover(opposite, 0xFFFFFFFF)) << "every bit differs";
  EXPECT_EQ(0U, opposite.am);
  EXPECT_TRUE(CoverMatches(FilterCover{}, 0x1234)) << "an empty cover matches everything";
}

TEST(FilterCoverTest, CoversGoIntoTheFormTheirWidthNeeds) {
  const FilterWords cleared{0x300, 0, kPri2};
  FilterCover two;
  AddToCover(two, 0x100);
  AddToCover(two, 0x101);
  const FilterWords standard = WithCover(cleared, two, 2);
  EXPECT_EQ(0x200U, standard.channel_word) << "the channel given, not the one read";
  EXPECT_EQ(0x1FF80000U, standard.mask);
  EXPECT_EQ(0x84000000U, standard.arbitration);

  FilterCover wide = two;
  AddToCover(wide, 0x12345);
  const FilterWords extended = WithCover(standard, wide, 2);
  EXPECT_TRUE(extended.Extended());
  EXPECT_EQ(wide.am & 0x1FFFFFFF, extended.Am());
  EXPECT_EQ(wide.ar, extended.Ar());
  EXPECT_EQ(2U, extended.Pri());

  // MIDE, PRI and the bits outside the 11-bit form stay as read.
  const FilterWords odd{0x12345, kIde | 0x20000003, 0x40000001 | kIde};
  const FilterWords back = WithCover(odd, two, 1);
  EXPECT_EQ(0x10145U, back.channel_word);
  EXPECT_EQ(0x20000003U | 0x1FF80000U, back.mask);
  EXPECT_EQ(0x40000001U | 0x04000000U, back.arbitration);

  EXPECT_EQ(0U, CoverOf(cleared).width) << "an unset filter starts an empty cover";
  const FilterCover seeded = CoverOf(standard);
  EXPECT_EQ(11U, seeded.width);
  EXPECT_EQ(0x7FEU, seeded.am);
  EXPECT_EQ(0x100U, seeded.ar);
  EXPECT_EQ(29U, CoverOf(extended).width);
}

TEST(FilterCoverTest, DeletingRecomputesTheCoverOfWhatRemains) {
  const FilterWords four{0, 0x7FC << 18, kPri2 | 0x100 << 18};  // 0x100-0x103
  struct Case {
    std::vector<uint32_t> removed;
    FilterCover kept;
  };
  const Case cases[] = {
      {{0x102, 0x103}, {9, 0x100, 0xFFFFFFFE}},
      {{0x103}, {9, 0x100, 0xFFFFFFFC}},  // a single pair cannot leave the middle out
      {{0x100, 0x101, 0x102, 0x103}, {0, 0, 0}},
      {{0x200}, {9, 0x100, 0xFFFFFFFC}},
  };
  for (const Case& c : cases) {
    FilterCover removed;
    for (uint32_t id : c.removed) AddToCover(removed, id);
    const FilterCover kept = CoverWithout(four, removed);
    EXPECT_EQ(c.kept.width, kept.width) << c.removed.back();
    EXPECT_EQ(c.kept.am, kept.am) << c.removed.back();
    EXPECT_EQ(c.kept.ar, kept.ar) << c.removed.back();
  }
  FilterCover removed;
  AddToCover(removed, 0x100);
  EXPECT_EQ(0U, CoverWithout(FilterWords{0, 0, kPri2}, removed).am) << "nothing to keep";
}

TEST(FilterSetTest, ItemsEditTheWordsReadAndIdeFollowsTheValues) {
  const FilterWords cleared{0, 0, 0};
  const FilterWords extended{0x100, 0x3FFF0000, 0xA0120000};
  struct Case {
    const char* items;
    FilterWords read;
    bool ok;
    FilterWords written;
  };
  const Case cases[] = {
      {"AR=0x800", cleared, true, {0x200, 0, 0xA0000800}},
      {"IDE=0,AR=0x800", cleared, true, {0x200, 0, kPri2}},
      {"am=0x7FE ar=0x100", cleared, true, {0x200, 0x1FF80000, 0x84000000}},
      {"Mide=1, AM=0x7FF", cleared, true, {0x200, 0x3FFC0000, kPri2}},
      {"PRI=1", cleared, true, {0x200, 0, 0x40000000}},
      {"CAN=3", cleared, true, {0x300, 0, kPri2}},
      {"PORT=1", cleared, true, {0x100, 0, kPri2}},
      {"CANID=0x1FF", cleared, true, {0xFF00, 0, kPri2}},
      {"IDE=1,AR=0x100,AM=0x7FF", cleared, true, {0x200, 0x7FF, 0xA0000100}},
      {"", extended, true, {0x200, 0x3FFF0000, 0xA0120000}},
      {"AR=0x100", extended, true, {0x200, 0x3FFF0000, 0xA0000100}},
      {"AM=0x7FF,AR=0x100", extended, true, {0x200, 0x3FFC0000, 0x84000000}},
      {"XYZ=1", cleared, false, {}},
      {"AR=1,AM", cleared, false, {}},
  };
  for (const Case& c : cases) {
    FilterWords written{1, 1, 1};
    EXPECT_EQ(c.ok, ParseFilterSet(c.items, c.read, 2, written)) << c.items;
    if (!c.ok) continue;
    EXPECT_EQ(c.written.channel_word, written.channel_word) << c.items;
    EXPECT_EQ(c.written.mask, written.mask) << c.items;
    EXPECT_EQ(c.written.arbitration, written.arbitration) << c.items;
  }
}

TEST(FilterListTest, AddsIdentifiersAndRanges) {
  struct Case {
    const char* items;
    size_t count;
    FilterCover cover;
  };
  const Case cases[] = {
      {"0x100,0x101", 2, {9, 0x100, 0xFFFFFFFE}}, {" ,0x100 , 0x101,", 2, {9, 0x100, 0xFFFFFFFE}},
      {"0x100-0x103", 1, {9, 0x100, 0xFFFFFFFC}}, {"0x103-0x100", 1, {0, 0, 0}},
      {"256;257", 2, {9, 0x100, 0xFFFFFFFE}},     {"", 0, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    FilterCover cover;
    EXPECT_EQ(c.count, AddListToCover(c.items, cover)) << c.items;
    EXPECT_EQ(c.cover.width, cover.width) << c.items;
    EXPECT_EQ(c.cover.am, cover.am) << c.items;
    EXPECT_EQ(c.cover.ar, cover.ar) << c.items;
  }
}

std::string Listing(const FilterWords& filter, uint32_t* matches = nullptr) {
  std::string text;
  const uint32_t n = ListMatches(filter, [&text](std::string_view chunk) { text += chunk; });
  if (matches != nullptr) *matches = n;
  return text;
}

// The listing of `count` identifiers from `first`, built the long way.
std::string Expected(uint32_t first, uint32_t count) {
  std::string text;
  for (uint32_t i = 0; i < count; ++i) {
    char item[16];
    std::snprintf(item, sizeof item, "0x%X ", first + i);
    text += item;
    if ((i + 1) % 16 == 0) text += "\n  ";
  }
  if (count % 32 != 0) text += "\n";
  return text;
}

TEST(FilterListTest, ListingBreaksEverySixteenAndClosesOnThirtyTwos) {
  struct Case {
    uint32_t am;
    uint32_t count;
  };
  for (const Case& c :
       {Case{0x7FE, 2}, Case{0x7F0, 16}, Case{0x7E0, 32}, Case{0x7C0, 64}, Case{0x7FF, 1}}) {
    uint32_t matches = 0;
    EXPECT_EQ(Expected(0x100, c.count), Listing({0, c.am << 18, kPri2 | 0x100 << 18}, &matches))
        << c.count;
    EXPECT_EQ(c.count, matches);
  }
  EXPECT_EQ("0x100 0x101 \n", Listing({0, 0x7FE << 18, kPri2 | 0x100 << 18}));
  uint32_t matches = 0;
  const std::string extended = Listing({0, 0x1FFFFFFF & ~0x11U, kIde | 0x1ABCDE00}, &matches);
  EXPECT_EQ(4U, matches) << "the whole 29-bit space is walked";
  EXPECT_EQ("0x1ABCDE00 0x1ABCDE01 0x1ABCDE10 0x1ABCDE11 \n", extended);
}

TEST(FilterListTest, BlockWalksSeeWhatAPlainLoopSees) {
  std::vector<uint32_t> fast;
  std::vector<uint32_t> slow;
  struct Case {
    uint32_t am;
    uint32_t ar;
    uint32_t last;
  };
  for (const Case& c : {Case{0x7FE, 0x100, 0x7FF}, Case{0x0F0, 0x0A0, 1000}, Case{0, 0, 300},
                        Case{0xFFFFFFFF, 5, 4}, Case{1, 1, 0}, Case{0x300, 0x200, 0x1FFF}}) {
    fast.clear();
    slow.clear();
    ForEachMatch(c.am, c.ar, c.last, [&](uint32_t x) { fast.push_back(x); });
    for (uint32_t x = 0; x <= c.last; ++x) {
      if ((x & c.am) == (c.ar & c.am)) slow.push_back(x);
    }
    EXPECT_EQ(slow, fast) << c.am << " " << c.ar << " " << c.last;
  }
}

}  // namespace
}  // namespace kel
