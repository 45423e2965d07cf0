#include "monitor/id_table.h"

#include <algorithm>
#include <cstdio>

#include "device/frame_text.h"

namespace kel {
namespace {

constexpr unsigned kInitialBits = 8;

}  // namespace

const char* const kIdTableHeader = "ID       Type      Count Period ms DLC Data\n";

IdTable::IdTable(size_t max_ids)
    : rows_(size_t{1} << kInitialBits),
      mask_((size_t{1} << kInitialBits) - 1),
      shift_(32 - kInitialBits),
      max_ids_(max_ids) {}

void IdTable::Insert(size_t slot, uint32_t key, const uint8_t* frame, uint32_t now_ms) {
  if (size_ >= max_ids_) {
    ++others_;
    return;
  }
  if ((size_ + 1) * 2 > rows_.size()) {
    // Keep the table at most half full, so that probes stay short.
    std::vector<IdRow> old(rows_.size() * 2);
    old.swap(rows_);
    mask_ = rows_.size() - 1;
    --shift_;
    for (const IdRow& row : old) {
      if (row.count == 0) continue;
      size_t i = Slot(row.key);
      while (rows_[i].count != 0) i = (i + 1) & mask_;
      rows_[i] = row;
    }
    slot = Slot(key);
    while (rows_[slot].count != 0) slot = (slot + 1) & mask_;
  }
  IdRow& row = rows_[slot];
  row.key = key;
  row.count = 1;
  row.last_ms = now_ms;
  row.period_ms = 0;
  std::memcpy(row.last.data(), frame, kFrameSize);
  ++size_;
}

std::vector<const IdRow*> IdTable::Sorted() const {
  std::vector<const IdRow*> sorted;
  sorted.reserve(size_);
  for (const IdRow& row : rows_) {
    if (row.count != 0) sorted.push_back(&row);
  }
  std::sort(sorted.begin(), sorted.end(),
            [](const IdRow* a, const IdRow* b) { return a->key < b->key; });
  return sorted;
}

std::string IdRowText(const IdRow& row) {
  const MonitorColumns columns = MonitorColumnsOf(row.last.data());
  char text[1024];
  std::snprintf(text, sizeof text, "%08X %-4s %10llu %9u %-3u %s\n", row.key & 0x7FFFFFFFU,
                columns.type.c_str(), static_cast<unsigned long long>(row.count), row.period_ms,
                columns.dlc, columns.data.c_str());
  return text;
}

}  // namespace kel
