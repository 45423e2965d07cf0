#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kel {

/// The acceptance filter of one CAN channel as the CAN_FILTER frames carry it.
///   channel word:     bits 8-15 CAN channel
///   mask word:        bits 0-28 AM (29-bit form), bits 18-28 AM (11-bit form), bit 29 MIDE
///   arbitration word: bits 0-28 AR (29-bit form), bits 18-28 AR (11-bit form), bit 29 IDE,
///                     bits 30-31 PRI
/// IDE chooses the form of both AM and AR. An identifier x matches when
/// (x AND AM) = (AR AND AM).
struct FilterWords {
  uint32_t channel_word = 0;
  uint32_t mask = 0;
  uint32_t arbitration = 0;

  bool Extended() const { return (arbitration >> 29 & 1) != 0; }
  uint32_t Channel() const { return channel_word >> 8 & 0xFF; }
  uint32_t Mide() const { return mask >> 29 & 1; }
  uint32_t Pri() const { return arbitration >> 30; }
  /// AM and AR in the form that IDE selects.
  uint32_t Am() const { return Extended() ? mask & kId29 : mask >> 18 & kId11; }
  uint32_t Ar() const { return Extended() ? arbitration & kId29 : arbitration >> 18 & kId11; }
  /// The highest identifier of the selected form: 0x7FF or 0x1FFFFFFF.
  uint32_t LastId() const { return Extended() ? kId29 : kId11; }

  static constexpr uint32_t kId11 = 0x7FF;
  static constexpr uint32_t kId29 = 0x1FFFFFFF;
};

/// The filter as `filt` prints it:
///   "CAN=0, MIDE=0, AM=0x7FE, PRI=2, IDE=0, AR=0x100\n"            (IDE 0)
///   "CAN=2, MIDE=1, AM=0x1FFF0000, PRI=2, IDE=1, AR=0x00120000\n"  (IDE 1)
std::string FilterText(const FilterWords& filter);

/// True when AM and AR are both zero in the selected form: `filt tst` finds no filter.
bool FilterCleared(const FilterWords& filter);
/// True when AM and AR are both non-zero in the selected form: `filt add` and `filt del`
/// start from it.
bool FilterInUse(const FilterWords& filter);

/// The smallest single mask/arbitration pair that covers a set of identifiers, built one
/// identifier at a time.
struct FilterCover {
  uint32_t width = 0;  ///< identifier bits needed by the widest identifier
  uint32_t ar = 0;
  uint32_t am = 0;
};

/// Adds `id` to `cover`: the first identifier sets every mask bit, each further one clears
/// the mask bits in which it differs from the arbitration. Returns the number of
/// identifiers the resulting mask matches, 2 to the power of its zero bits.
///   {} + 0x100 + 0x101 -> AM 0xFFFFFFFE, AR 0x100, width 9, returns 2
uint64_t AddToCover(FilterCover& cover, uint32_t id);

/// True when `id` matches `cover`'s pair. An empty cover matches every identifier.
inline bool CoverMatches(const FilterCover& cover, uint32_t id) {
  return (id & cover.am) == (cover.ar & cover.am);
}

/// The cover that `filt add` starts from: the filter read when it is in use (width 11 or
/// 29, AR and AM in the selected form), else an empty cover.
FilterCover CoverOf(const FilterWords& filter);

/// The words that hold `cover` on `channel`, starting from the filter read: the channel
/// replaced, IDE 1 when the cover needs more than 11 bits, and AM and AR put into the
/// selected form's bits. Every other bit (PRI, MIDE, bits outside the form) stays.
FilterWords WithCover(const FilterWords& read, const FilterCover& cover, uint32_t channel);

/// The cover of every identifier that `filter` matches and `removed` does not, found by
/// walking the whole identifier space of the filter's form. An unset filter (see
/// FilterInUse) gives an empty cover.
FilterCover CoverWithout(const FilterWords& filter, const FilterCover& removed);

/// The words of `filt set <items>`: items `name=value` separated by blanks or commas,
/// names CAN/PORT/CANID, MIDE, AM, PRI, IDE, AR without regard to case, values read by
/// ParseValue. Starts from the filter read, with CAN = `channel` and PRI = 2; without an
/// IDE item, IDE is 1 when AR or AM is 0x800 or more. False for an unknown name or an item
/// without '='.
///   "AR=0x800" -> IDE 1, AR 0x800;  "IDE=0,AR=0x800" -> IDE 0, AR 0x000
bool ParseFilterSet(std::string_view items, const FilterWords& read, uint32_t channel,
                    FilterWords& result);

/// Adds the identifiers of a list (items separated by blanks or commas, each an identifier
/// or a range "a-b", read by ParseValue; a range written high to low adds nothing) to
/// `cover`. Returns the number of items.
size_t AddListToCover(std::string_view items, FilterCover& cover);

/// Lists every identifier that `filter` matches, as `filt tst` prints them: "0x%X " each,
/// "\n  " after every 16th, and a closing "\n" when the count is not a multiple of 32.
/// The text goes to `write` in chunks. Returns the number of matches.
uint32_t ListMatches(const FilterWords& filter, const std::function<void(std::string_view)>& write);

/// Calls `on_match(x)` for every x from 0 to `last` with (x AND am) = (ar AND am), in
/// order. Every identifier is visited: a block of them is counted first with a compare
/// the compiler can vectorise, and only a block with a match is walked one by one.
template <typename OnMatch>
void ForEachMatch(uint32_t am, uint32_t ar, uint32_t last, OnMatch&& on_match) {
  constexpr uint32_t kBlock = 256;
  const uint32_t want = ar & am;
  uint64_t base = 0;
  // The last block below 2^32 goes one by one below, so that first + kBlock never wraps.
  for (; base + kBlock - 1 <= last && base + kBlock < (uint64_t{1} << 32); base += kBlock) {
    const uint32_t first = static_cast<uint32_t>(base);
    // The identifier itself counts up (not an offset added to the block's first), which
    // keeps the vectorised loop at one add per four identifiers.
    uint32_t hits = 0;
    for (uint32_t x = first; x < first + kBlock; ++x) hits += (x & am) == want ? 1 : 0;
    if (hits == 0) continue;
    for (uint32_t k = 0; k < kBlock; ++k) {
      if (((first + k) & am) == want) on_match(first + k);
    }
  }
  for (; base <= last; ++base) {
    if ((static_cast<uint32_t>(base) & am) == want) on_match(static_cast<uint32_t>(base));
  }
}

}  // namespace kel
