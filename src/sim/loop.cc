// The board's thread: one poller over the listening ports and every connection; whole
// frames are handled where they lie in each connection's input, and answers and traffic go
// out through each connection's queue.

#include "sim/loop.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "platform/socket_options.h"

namespace kel::sim {
namespace {

using platform::IoStatus;
using platform::Socket;

// With pacing, a bus may run this far ahead of real time, so that timer granularity does
// not slow it below its bit rate.
constexpr uint64_t kPaceWindowNs = 2'000'000;
constexpr size_t kMaxEvents = 128;
constexpr int kMaxAcceptsPerWake = 64;
// Input thrown away before a deliberate close, so the close is orderly, not a reset.
constexpr size_t kMaxDrainBytes = 1024 * 1024;

}  // namespace

void Simulator::Loop::Run() {
  std::array<platform::PollEvent, kMaxEvents> events;
  while (true) {
    const int n = poller_.Wait(events, NextTimeoutMs());
    std::lock_guard lock(mutex_);
    if (stopping_) break;
    active_faults_ = faults_;
    board_.SetBaudIgnored(active_faults_.baud_ignored);
    board_.SetDropEvery(active_faults_.drop_every);
    board_.SetOverCurrentPins(active_faults_.overcurrent_pins);
    now_ms_ = platform::MonotonicMs();
    now_ns_ = platform::MonotonicNs();
    for (int i = 0; i < n; ++i) Dispatch(events[static_cast<size_t>(i)]);
    FireTimers();
    CheckQueues();
    // Flushing can close connections but never lists new ones, so the list is stable.
    for (const size_t slot : dirty_) {
      Client* c = clients_[slot].get();
      if (c == nullptr || c->dead) continue;
      c->dirty = false;
      Flush(*c);
    }
    dirty_.clear();
    ReapDead();
    if (n < 0) platform::SleepMs(1);  // the poller failed; do not spin
    if (waiters_ > 0) wake_waiters_.notify_all();
  }
  std::lock_guard lock(mutex_);
  CloseAll();
  ReapDead();
}

int Simulator::Loop::NextTimeoutMs() const {
  int64_t timeout = -1;
  const uint64_t now_ms = platform::MonotonicMs();
  if (!delayed_.Empty()) {
    const uint64_t due = delayed_.NextDueMs();
    timeout = due > now_ms ? static_cast<int64_t>(due - now_ms) : 0;
  }
  if (const uint64_t due = serial_ != nullptr ? serial_->NextDueMs() : 0; due != 0) {
    const int64_t ms = due > now_ms ? static_cast<int64_t>(due - now_ms) : 0;
    timeout = timeout < 0 ? ms : std::min(timeout, ms);
  }
  if (!measurements_.Empty()) {
    const uint64_t due = measurements_.NextDueMs();
    const int64_t ms = due > now_ms ? static_cast<int64_t>(due - now_ms) : 0;
    timeout = timeout < 0 ? ms : std::min(timeout, ms);
  }
  const uint64_t now_ns = platform::MonotonicNs();
  for (size_t bus = 0; bus < bus_waiters_.size(); ++bus) {
    if (bus_waiters_[bus].empty() || BusHeld(static_cast<int>(bus))) continue;
    const uint64_t due_ns = bus_free_ns_[bus] - std::min(bus_free_ns_[bus], kPaceWindowNs);
    const int64_t ms =
        due_ns > now_ns ? static_cast<int64_t>((due_ns - now_ns + 999'999) / 1'000'000) : 0;
    timeout = timeout < 0 ? ms : std::min(timeout, ms);
  }
  if (const uint64_t due = NextQueueDeadlineMs(); due != 0) {
    const int64_t ms = due > now_ms ? static_cast<int64_t>(due - now_ms) : 0;
    timeout = timeout < 0 ? ms : std::min(timeout, ms);
  }
  return static_cast<int>(std::min<int64_t>(timeout, 60'000));
}

void Simulator::Loop::Dispatch(const platform::PollEvent& event) {
  if (event.token == kControllerToken) {
    if (serial_ != nullptr) serial_->OnEvent(event, now_ms_);
    return;
  }
  if (event.token >= kListenerToken) {
    AcceptAll(static_cast<int>(event.token - kListenerToken));
    return;
  }
  if (event.token >= clients_.size()) return;
  Client* c = clients_[event.token].get();
  if (c == nullptr || c->dead) return;
  if (event.writable) Flush(*c);
  if (c->dead) return;
  if (event.readable && ReadingEnabled(*c)) ReadFrom(*c);
  if (c->dead) return;
  // An error or hang-up on a connection that is not being read would be reported again and
  // again; a connection that is read finds out by its receive.
  if (event.failed && !(event.readable && ReadingEnabled(*c))) Close(*c);
}

void Simulator::Loop::AcceptAll(int channel) {
  const Socket& listener = listeners_[static_cast<size_t>(channel)];
  for (int i = 0; i < kMaxAcceptsPerWake; ++i) {
    Socket socket = platform::Accept(listener);
    if (!socket.Valid()) return;
    if (!platform::SetNonBlocking(socket, true)) continue;
    platform::SetNoDelay(socket);
    size_t slot = clients_.size();
    if (!free_slots_.empty()) {
      slot = free_slots_.back();
      free_slots_.pop_back();
    } else {
      clients_.emplace_back();
    }
    auto client = std::make_unique<Client>();
    client->socket = std::move(socket);
    client->serial = next_serial_++;
    client->slot = slot;
    client->channel = channel;
    client->bus = board_.BusOf(channel);
    client->out.SetLimits(config_.queue);
    client->interest = ReadingEnabled(*client) ? platform::kPollRead : 0;
    if (!poller_.Add(client->socket, client->interest, slot)) {
      free_slots_.push_back(slot);
      continue;
    }
    Client& c = *client;
    clients_[slot] = std::move(client);
    members_[static_cast<size_t>(channel)].push_back(&c);
    board_.ClientConnected(channel);
    if (active_faults_.close_after_frames && CloseLimitBytes(active_faults_) == 0)
      CloseOnPurpose(c);
  }
}

void Simulator::Loop::ReadFrom(Client& c) {
  const platform::IoResult r =
      platform::Receive(c.socket, c.in.data() + c.in_size, c.in.size() - c.in_size);
  switch (r.status) {
    case IoStatus::kOk:
      c.in_size += r.bytes;
      Process(c);
      UpdateInterest(c);
      break;
    case IoStatus::kWouldBlock: break;
    case IoStatus::kClosed:
      // The client will send no more; what it is owed still goes out before the close. A
      // partial frame at the end is never completed and is dropped.
      c.read_closed = true;
      UpdateInterest(c);
      FinishIfDone(c);
      break;
    case IoStatus::kError: Close(c); break;
  }
}

void Simulator::Loop::Process(Client& c) {
  size_t pos = 0;
  uint64_t taken = 0;
  std::vector<FrameBytes>* record =
      config_.record_frames ? &recorded_[static_cast<size_t>(c.channel)] : nullptr;
  while (c.in_size - pos >= kFrameSize && !c.dead) {
    const uint8_t* frame = c.in.data() + pos;
    const bool command = IsCommandFrame(frame);
    // A full queue on the bus, or pacing, holds CAN frames back; commands go on.
    if (!command && (BusHeld(c.bus) || (config_.pace && !TakeBus(c, frame)))) {
      c.waiting_for_bus = true;
      bus_waiters_[static_cast<size_t>(c.bus)].push_back(c.slot);
      break;
    }
    ++taken;
    if (!taps_.Empty()) Tap(c, frame);
    if (record != nullptr) {
      FrameBytes copy;
      std::memcpy(copy.data(), frame, kFrameSize);
      record->push_back(copy);
    }
    if (command) {
      HandleCommand(c, frame);
    } else {
      HandleCan(c, frame);
    }
    pos += kFrameSize;
  }
  board_.CountFromClients(taken);
  if (pos > 0) {
    std::memmove(c.in.data(), c.in.data() + pos, c.in_size - pos);
    c.in_size -= pos;
  }
}

void Simulator::Loop::HandleCommand(Client& c, const uint8_t* frame) {
  StartOrEndStreams(c, frame);
  const Answers answers = board_.HandleCommand(c.channel, frame, now_ms_);
  if (config_.on_tone && FrameWord(frame, 0) == code::kBuzzer) {
    config_.on_tone(board_.State().buzzer.current);
  }
  if (answers.count == 0) return;
  const Faults& f = active_faults_;
  if (f.delayed_code != 0 && FrameWord(frame, 0) == f.delayed_code) {
    if (f.answer_delay_ms < 0) return;
    delayed_.Add(now_ms_ + static_cast<uint64_t>(f.answer_delay_ms), c.serial, c.slot, answers);
    return;
  }
  SendAnswers(c, answers);
}

void Simulator::Loop::SendAnswers(Client& c, const Answers& answers) {
  for (size_t i = 0; i < answers.count; ++i) {
    for (uint32_t k = 0; k < active_faults_.noise_before_answer; ++k) {
      Deliver(c, NoiseFrame(k, c.channel).data());
    }
    Deliver(c, answers.frames[i].data());
  }
}

bool Simulator::Loop::TakeBus(const Client& c, const uint8_t* frame) {
  // A frame nobody can acknowledge never occupies the bus.
  if (!board_.HasPeer(c.channel)) return true;
  uint64_t& free_ns = bus_free_ns_[static_cast<size_t>(c.bus)];
  if (free_ns > now_ns_ + kPaceWindowNs) return false;
  const int baud = board_.State().channels[static_cast<size_t>(c.channel)].baud_index;
  free_ns = std::max(free_ns, now_ns_) + FrameTimeNs(frame, baud);
  return true;
}

void Simulator::Loop::HandleCan(Client& c, const uint8_t* frame) {
  const Transmission t = board_.Transmit(c.channel, frame);
  if (!t.transmitted) return;
  for (int r = 0; r < kChannelCount; ++r) {
    if ((t.deliver_to & (1U << r)) == 0) continue;
    for (Client* d : members_[static_cast<size_t>(r)]) {
      uint8_t* out = d->out.Append(kFrameSize, now_ms_);
      if (out == nullptr) {
        board_.CountLost(1);
        continue;
      }
      std::memcpy(out, frame, kFrameSize);
      // Info word bits 8-9, the channel, are the low bits of byte 5.
      out[5] = static_cast<uint8_t>((out[5] & ~0x03) | r);
      board_.CountToClients(1);
      MarkDirty(*d);
      if (!taps_.Empty()) Tap(*d, out);
    }
  }
  if (t.echo) {
    FrameBytes echo;
    std::memcpy(echo.data(), frame, kFrameSize);
    SetFrameWord(echo.data(), 1, FrameWord(frame, 1) | kInfoEcho);
    Deliver(c, echo.data());
  }
}

void Simulator::Loop::Deliver(Client& c, const uint8_t* frame) {
  uint8_t* out = c.out.Append(kFrameSize, now_ms_);
  if (out == nullptr) {
    board_.CountLost(1);
    return;
  }
  std::memcpy(out, frame, kFrameSize);
  board_.CountToClients(1);
  MarkDirty(c);
  if (!taps_.Empty()) Tap(c, frame);
}

void Simulator::Loop::MarkDirty(Client& c) {
  if (c.dirty) return;
  c.dirty = true;
  dirty_.push_back(c.slot);
}

void Simulator::Loop::Flush(Client& c) {
  const uint64_t limit = CloseLimitBytes(active_faults_);
  while (c.out.Size() > 0 && c.bytes_sent < limit) {
    size_t n = active_faults_.split_bytes ? 1 : c.out.Size();
    n = static_cast<size_t>(std::min<uint64_t>(n, limit - c.bytes_sent));
    const platform::IoResult r = platform::Send(c.socket, c.out.Data(), n);
    if (r.status == IoStatus::kWouldBlock) break;
    if (r.status != IoStatus::kOk) {
      Close(c);
      return;
    }
    c.out.Consume(r.bytes, now_ms_);
    c.bytes_sent += r.bytes;
  }
  if (c.bytes_sent >= limit) {
    CloseOnPurpose(c);
    return;
  }
  UpdateCongestion(c);
  UpdateInterest(c);
  FinishIfDone(c);
}

bool Simulator::Loop::ReadingEnabled(const Client& c) const {
  return !c.read_closed && !c.waiting_for_bus;
}

void Simulator::Loop::UpdateInterest(Client& c) {
  if (c.dead) return;
  const uint32_t want =
      (ReadingEnabled(c) ? platform::kPollRead : 0) | (c.out.Size() > 0 ? platform::kPollWrite : 0);
  if (want == c.interest) return;
  if (poller_.Modify(c.socket, want, c.slot)) {
    c.interest = want;
  } else {
    Close(c);
  }
}

void Simulator::Loop::FinishIfDone(Client& c) {
  if (c.read_closed && !c.dead && c.out.Size() == 0 && !c.waiting_for_bus) Close(c);
}

void Simulator::Loop::CloseOnPurpose(Client& c) {
  // Unread input would turn the close into a reset, which may discard what was sent; take
  // what is there first so that the client sees every byte, then the end.
  std::array<uint8_t, 4096> sink;
  size_t drained = 0;
  while (drained < kMaxDrainBytes) {
    const platform::IoResult r = platform::Receive(c.socket, sink.data(), sink.size());
    if (r.status != IoStatus::kOk) break;
    drained += r.bytes;
  }
  Close(c);
}

void Simulator::Loop::Close(Client& c) {
  if (c.dead) return;
  c.dead = true;
  poller_.Remove(c.socket);
  c.socket.Close();
  board_.ClientDisconnected(c.channel);
  taps_.Remove(c);
  auto& members = members_[static_cast<size_t>(c.channel)];
  members.erase(std::remove(members.begin(), members.end(), &c), members.end());
  if (c.congested) {
    c.congested = false;
    --bus_congested_[static_cast<size_t>(c.bus)];
  }
  dead_.push_back(c.slot);
}

void Simulator::Loop::FireTimers() {
  if (serial_ != nullptr) serial_->FireDue(now_ms_);
  delayed_.FireDue(now_ms_, [this](uint64_t serial, size_t slot, const Answers& answers) {
    Client* c = clients_[slot].get();
    if (c != nullptr && !c->dead && c->serial == serial) SendAnswers(*c, answers);
  });
  if (!measurements_.Empty()) SendMeasurements();
  for (size_t bus = 0; bus < bus_waiters_.size(); ++bus) {
    if (bus_waiters_[bus].empty() || BusHeld(static_cast<int>(bus)) ||
        bus_free_ns_[bus] > now_ns_ + kPaceWindowNs) {
      continue;
    }
    std::vector<size_t> waiting;
    waiting.swap(bus_waiters_[bus]);
    for (const size_t slot : waiting) {
      Client* c = clients_[slot].get();
      if (c == nullptr || c->dead) continue;
      c->waiting_for_bus = false;
      Process(*c);
      UpdateInterest(*c);
      FinishIfDone(*c);
    }
  }
}

void Simulator::Loop::ReapDead() {
  for (const size_t slot : dead_) {
    clients_[slot].reset();
    free_slots_.push_back(slot);
  }
  dead_.clear();
}

void Simulator::Loop::CloseAll() {
  for (auto& c : clients_) {
    if (c != nullptr && !c->dead) Close(*c);
  }
}

void Simulator::Loop::PowerOnReset() {
  // The power goes: every connection ends, and the board starts as it does when switched on.
  CloseAll();
  board_.PowerOnReset(now_ms_);
  // The buzzer goes quiet with the power; what it played stays in its history.
  if (board_.SilenceBuzzer(now_ms_) && config_.on_tone) {
    config_.on_tone(board_.State().buzzer.current);
  }
}

}  // namespace kel::sim
