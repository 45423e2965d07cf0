#include "can/can_filter.h"

#include <bit>
#include <cstdio>

#include "can/texts.h"
#include "core/parse.h"

namespace kel {
namespace {

constexpr uint32_t kBit29 = 1U << 29;
constexpr uint32_t kForm11 = FilterWords::kId11 << 18;
constexpr uint32_t kDefaultPri = 2;
constexpr size_t kItemSize = 128;

// Takes the next item of a list off `items`, with all the separators behind it; empty at
// the end of the list.
std::string NextItem(std::string_view& items) {
  while (!items.empty()) {
    std::string item = SplitWord(items, kListSeparators, kItemSize, items.size());
    if (!item.empty()) return item;
  }
  return std::string();
}

// The values `filt set` edits, in the form the user writes them.
struct FilterFields {
  uint32_t can = 0;
  uint32_t mide = 0;
  uint32_t am = 0;
  uint32_t pri = kDefaultPri;
  uint32_t ide = 0;
  uint32_t ar = 0;
  bool ide_given = false;
};

bool SetField(std::string_view name, uint32_t value, FilterFields& fields) {
  if (EqualsNoCase(name, "CAN") || EqualsNoCase(name, "PORT") || EqualsNoCase(name, "CANID")) {
    fields.can = value;
  } else if (EqualsNoCase(name, "MIDE")) {
    fields.mide = value;
  } else if (EqualsNoCase(name, "AM")) {
    fields.am = value;
  } else if (EqualsNoCase(name, "PRI")) {
    fields.pri = value;
  } else if (EqualsNoCase(name, "IDE")) {
    fields.ide = value;
    fields.ide_given = true;
  } else if (EqualsNoCase(name, "AR")) {
    fields.ar = value;
  } else {
    return false;
  }
  return true;
}

// The words of the fields; the fields combine with XOR, as the board's tools always have.
FilterWords ComposeWords(const FilterFields& f) {
  FilterWords words;
  words.channel_word = (f.can & 0xFF) << 8;
  words.arbitration = f.pri << 30 ^ f.ide << 29 ^
                      (f.ide != 0 ? f.ar & FilterWords::kId29 : (f.ar & FilterWords::kId11) << 18);
  words.mask =
      (f.ide != 0 ? f.am & FilterWords::kId29 : (f.am & FilterWords::kId11) << 18) ^ f.mide << 29;
  return words;
}

// Reads "a" or "a-b" into an inclusive range.
void ParseRange(std::string_view item, uint32_t& first, uint32_t& last) {
  const size_t dash = item.find('-');
  first = last = ParseValue(item.substr(0, dash));
  if (dash != std::string_view::npos) last = ParseValue(item.substr(dash + 1));
}

}  // namespace

std::string FilterText(const FilterWords& filter) {
  char line[128];
  const char* format = filter.Extended()
                           ? "CAN=%u, MIDE=%u, AM=0x%08X, PRI=%u, IDE=%u, AR=0x%08X\n"
                           : "CAN=%u, MIDE=%u, AM=0x%03X, PRI=%u, IDE=%u, AR=0x%03X\n";
  std::snprintf(line, sizeof line, format, filter.Channel(), filter.Mide(), filter.Am(),
                filter.Pri(), filter.Extended() ? 1U : 0U, filter.Ar());
  return line;
}

bool FilterCleared(const FilterWords& filter) { return filter.Am() == 0 && filter.Ar() == 0; }

bool FilterInUse(const FilterWords& filter) { return filter.Am() != 0 && filter.Ar() != 0; }

uint64_t AddToCover(FilterCover& cover, uint32_t id) {
  cover.am = (cover.ar != 0 || cover.am != 0) ? cover.am & ~(cover.ar ^ id) : 0xFFFFFFFFU;
  cover.ar = cover.am & id;
  cover.width = std::max<uint32_t>(cover.width, id == 0 ? 1 : std::bit_width(id));
  return uint64_t{1} << std::popcount(~cover.am);
}

FilterCover CoverOf(const FilterWords& filter) {
  if (!FilterInUse(filter)) return FilterCover{};
  return FilterCover{filter.Extended() ? 29U : 11U, filter.Ar(), filter.Am()};
}

FilterWords WithCover(const FilterWords& read, const FilterCover& cover, uint32_t channel) {
  FilterWords words = read;
  words.channel_word = (read.channel_word & ~0xFF00U) | (channel & 0xFF) << 8;
  const bool extended = cover.width > 11;
  words.arbitration = (read.arbitration & ~kBit29) | (extended ? kBit29 : 0);
  if (extended) {
    words.mask = (words.mask & ~FilterWords::kId29) | (cover.am & FilterWords::kId29);
    words.arbitration = (words.arbitration & ~FilterWords::kId29) | (cover.ar & FilterWords::kId29);
  } else {
    words.mask = (words.mask & ~kForm11) | (cover.am << 18 & kForm11);
    words.arbitration = (words.arbitration & ~kForm11) | (cover.ar << 18 & kForm11);
  }
  return words;
}

FilterCover CoverWithout(const FilterWords& filter, const FilterCover& removed) {
  FilterCover kept;
  if (!FilterInUse(filter)) return kept;
  ForEachMatch(filter.Am(), filter.Ar(), filter.LastId(), [&](uint32_t x) {
    if (!CoverMatches(removed, x)) AddToCover(kept, x);
  });
  return kept;
}

bool ParseFilterSet(std::string_view items, const FilterWords& read, uint32_t channel,
                    FilterWords& result) {
  FilterFields fields;
  fields.can = channel;
  fields.mide = read.Mide();
  fields.ide = read.Extended() ? 1 : 0;
  fields.am = read.Am();
  fields.ar = read.Ar();
  while (true) {
    const std::string item = NextItem(items);
    if (item.empty()) break;
    const size_t equals = item.find('=');
    if (equals == std::string::npos) return false;
    if (!SetField(std::string_view(item).substr(0, equals),
                  ParseValue(std::string_view(item).substr(equals + 1)), fields)) {
      return false;
    }
  }
  if (!fields.ide_given) fields.ide = (fields.ar >= 0x800 || fields.am >= 0x800) ? 1 : 0;
  result = ComposeWords(fields);
  return true;
}

size_t AddListToCover(std::string_view items, FilterCover& cover) {
  size_t count = 0;
  while (true) {
    const std::string item = NextItem(items);
    if (item.empty()) return count;
    ++count;
    uint32_t first = 0;
    uint32_t last = 0;
    ParseRange(item, first, last);
    for (uint64_t id = first; id <= last; ++id) AddToCover(cover, static_cast<uint32_t>(id));
  }
}

uint32_t ListMatches(const FilterWords& filter,
                     const std::function<void(std::string_view)>& write) {
  // Matches are formatted into a buffer that goes out when nearly full, not one write each.
  constexpr size_t kChunk = 64 * 1024;
  constexpr size_t kRoomPerMatch = 32;
  std::string chunk;
  chunk.reserve(kChunk);
  uint32_t matches = 0;
  ForEachMatch(filter.Am(), filter.Ar(), filter.LastId(), [&](uint32_t x) {
    char item[16];
    const int n = std::snprintf(item, sizeof item, text::kFilterMatch, x);
    chunk.append(item, static_cast<size_t>(n));
    if (++matches % 16 == 0) chunk.append(text::kFilterMatchBreak);
    if (chunk.size() > kChunk - kRoomPerMatch) {
      write(chunk);
      chunk.clear();
    }
  });
  if (matches % 32 != 0) chunk.append(text::kFilterListEnd);
  if (!chunk.empty()) write(chunk);
  return matches;
}

}  // namespace kel
