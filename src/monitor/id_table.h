#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "device/frame.h"

namespace kel {

/// What `mon ids` keeps of one identifier.
struct IdRow {
  uint32_t key = 0;        ///< the identifier; bit 31 set for an extended one
  uint64_t count = 0;      ///< frames seen; 0 marks a free place in the table
  uint32_t last_ms = 0;    ///< when the last frame came
  uint32_t period_ms = 0;  ///< time between the last two frames (0 after the first)
  FrameBytes last{};       ///< the last frame
};

/// The per-identifier table of `mon ids`: an open-addressing hash table keyed by the
/// identifier and its extended bit, so that folding a frame in costs a multiply, a compare
/// and a copy. It holds at most `max_ids` identifiers; frames of further identifiers are
/// only counted (Others), so a flood of random identifiers cannot exhaust memory.
class IdTable {
 public:
  explicit IdTable(size_t max_ids = kMaxIds);

  /// Counts one CAN data frame that came at `now_ms`.
  void Fold(const uint8_t* frame, uint32_t now_ms) {
    const uint32_t key = FrameWord(frame, 0) | (uint32_t{frame[5]} & 0x80U) << 24;
    for (size_t i = Slot(key);; i = (i + 1) & mask_) {
      IdRow& row = rows_[i];
      if (row.count == 0) {
        Insert(i, key, frame, now_ms);
        return;
      }
      if (row.key == key) {
        ++row.count;
        row.period_ms = now_ms - row.last_ms;
        row.last_ms = now_ms;
        std::memcpy(row.last.data(), frame, kFrameSize);
        return;
      }
    }
  }

  size_t Size() const { return size_; }
  /// Frames of identifiers that found no room.
  uint64_t Others() const { return others_; }
  /// The identifiers in order: standard before extended, each by number.
  std::vector<const IdRow*> Sorted() const;

  static constexpr size_t kMaxIds = 65536;

 private:
  size_t Slot(uint32_t key) const { return (key * 0x9E3779B1U) >> shift_ & mask_; }
  void Insert(size_t slot, uint32_t key, const uint8_t* frame, uint32_t now_ms);

  std::vector<IdRow> rows_;
  size_t mask_ = 0;
  unsigned shift_ = 0;
  size_t size_ = 0;
  size_t max_ids_;
  uint64_t others_ = 0;
};

/// The table's header line and one row:
///   "ID       Type      Count Period ms DLC Data\n"
///   "%08X %-4s %10llu %9u %-3u %s\n" (identifier, Type, count, period, DLC, data as in the
///   monitor's CAN table)
extern const char* const kIdTableHeader;
std::string IdRowText(const IdRow& row);

}  // namespace kel
