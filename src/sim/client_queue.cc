// The queue of each connection, and the board's rules for full queues: a connection that
// reads slowly holds its bus back (nothing is lost); one that reads nothing loses the frames
// for it alone, and in the end its connection, while every other client is served on.

#include "sim/client_queue.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "sim/loop.h"

namespace kel::sim {

uint8_t* ClientQueue::AppendSlowly(size_t n, uint64_t now_ms) {
  if (state_ == QueueState::kNotReading && Size() >= limits_.full_bytes) {
    ++lost_;
    return nullptr;
  }
  // Nothing was owed before: the connection cannot have failed to read it.
  if (Size() == 0) progress_ms_ = now_ms;
  if (tail_ + n > data_.size()) data_.resize(std::max(2 * data_.size(), tail_ + n));
  uint8_t* const room = data_.data() + tail_;
  tail_ += n;
  return room;
}

void ClientQueue::Consume(size_t n, uint64_t now_ms) {
  if (n > 0) progress_ms_ = now_ms;
  head_ += n;
  if (head_ == tail_) {
    head_ = tail_ = 0;
  } else if (head_ >= kReadChunk && head_ * 2 >= tail_) {
    std::memmove(data_.data(), data_.data() + head_, tail_ - head_);
    tail_ -= head_;
    head_ = 0;
  }
}

bool ClientQueue::Update(uint64_t now_ms) {
  QueueState next = state_;
  if (Size() < limits_.relieved_bytes) {
    next = QueueState::kFlowing;
  } else if (state_ == QueueState::kFlowing && Size() > limits_.full_bytes) {
    next = QueueState::kFull;
  }
  // A queue that stays full counts as read only while its connection takes bytes; once it
  // has not for stall_ms, it is not read until it has caught up (below relieved_bytes).
  if (next == QueueState::kFull && IdleMs(now_ms) >= limits_.stall_ms) {
    next = QueueState::kNotReading;
  }
  const bool changed = next != state_;
  state_ = next;
  return changed;
}

bool ClientQueue::Expired(uint64_t now_ms) const {
  return state_ == QueueState::kNotReading && IdleMs(now_ms) >= limits_.close_ms;
}

uint64_t ClientQueue::NextDeadlineMs() const {
  switch (state_) {
    case QueueState::kFull: return progress_ms_ + limits_.stall_ms;
    case QueueState::kNotReading: return progress_ms_ + limits_.close_ms;
    case QueueState::kFlowing: break;
  }
  return 0;
}

void Simulator::Loop::UpdateCongestion(Client& c) {
  const QueueState before = c.out.State();
  if (c.out.Update(now_ms_)) {
    if (c.out.State() == QueueState::kNotReading) {
      Note(c, "took nothing for %" PRIu64 " ms: frames for it are lost", c.out.IdleMs(now_ms_));
    } else if (before == QueueState::kNotReading) {
      Note(c, "reads again, %" PRIu64 " frames lost", c.out.Lost());
    }
  }
  // A trace tap loses copies rather than holding a bus back.
  const bool holds = c.out.State() == QueueState::kFull && !taps_.Contains(c);
  if (holds != c.congested) {
    c.congested = holds;
    bus_congested_[static_cast<size_t>(c.bus)] += holds ? 1 : -1;
  }
  if (c.out.State() != QueueState::kFlowing && !c.watched) {
    c.watched = true;
    watched_.emplace_back(c.slot, c.serial);
  }
}

void Simulator::Loop::CheckQueues() {
  size_t kept = 0;
  for (size_t i = 0; i < watched_.size(); ++i) {
    const auto [slot, serial] = watched_[i];
    Client* c = clients_[slot].get();
    if (c == nullptr || c->dead || c->serial != serial) continue;
    UpdateCongestion(*c);
    if (c->out.Expired(now_ms_)) {
      Note(*c, "closed after %" PRIu64 " ms without reading, %" PRIu64 " frames lost",
           c->out.IdleMs(now_ms_), c->out.Lost());
      board_.CountClosedNotReading();
      Close(*c);
      continue;
    }
    if (c->out.State() == QueueState::kFlowing) {
      c->watched = false;
      continue;
    }
    watched_[kept++] = watched_[i];
  }
  watched_.resize(kept);
}

uint64_t Simulator::Loop::NextQueueDeadlineMs() const {
  uint64_t next = 0;
  for (const auto& [slot, serial] : watched_) {
    const Client* c = clients_[slot].get();
    if (c == nullptr || c->dead || c->serial != serial) continue;
    const uint64_t due = c->out.NextDeadlineMs();
    if (due != 0 && (next == 0 || due < next)) next = due;
  }
  return next;
}

void Simulator::Loop::Note(const Client& c, const char* format, ...) const {
  if (!config_.notes) return;
  char line[200];
  const int n = std::snprintf(line, sizeof line, "kelsim: channel %d connection %" PRIu64 " ",
                              c.channel, c.serial);
  va_list args;
  va_start(args, format);
  std::vsnprintf(line + n, sizeof line - static_cast<size_t>(n), format, args);
  va_end(args);
  config_.notes(line);
}

}  // namespace kel::sim
