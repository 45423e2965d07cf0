// The board's thread and what it reports unasked: measurement sets streamed to the
// connections that asked for them, and the copies of other connections' traffic for the
// remote trace's taps.

#include "device/command_codes.h"
#include "sim/loop.h"

namespace kel::sim {

void Simulator::Loop::StartOrEndStreams(Client& c, const uint8_t* frame) {
  const uint32_t command = FrameWord(frame, 0);
  if (command == code::kGetMeas) {
    measurements_.Request(c.serial, c.slot, FrameWord(frame, 1), now_ms_);
  } else if (command == code::kInternal && FrameWord(frame, 2) == internal::kStartTrace) {
    taps_.Set(c, FrameWord(frame, 3) != 0);
  }
}

void Simulator::Loop::SendMeasurements() {
  measurements_.FireDue(now_ms_, [this](uint64_t serial, size_t slot) {
    Client* c = slot < clients_.size() ? clients_[slot].get() : nullptr;
    if (c == nullptr || c->dead || c->serial != serial) return false;
    const Answers set = board_.Measurements();
    for (size_t i = 0; i < set.count; ++i) Deliver(*c, set.frames[i].data());
    return true;
  });
}

void Simulator::Loop::Tap(const Client& about, const uint8_t* frame) {
  board_.CountLost(taps_.Copy(about, frame, now_ms_, [this](Client& tap) { MarkDirty(tap); }));
}

}  // namespace kel::sim
