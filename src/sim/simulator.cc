#include "sim/simulator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "platform/poller.h"
#include "platform/socket_options.h"

namespace kel::sim {
namespace {

using platform::IoStatus;
using platform::Socket;

// Bytes taken from one connection per receive; whole frames are handled straight from it.
constexpr size_t kReadChunk = 64 * 1024;
// Lossless back-pressure: when a connection has this much waiting to go out, the board stops
// reading from every connection of its bus until it is down to kRelievedBytes.
constexpr size_t kCongestedBytes = 1024 * 1024;
constexpr size_t kRelievedBytes = 256 * 1024;
// With pacing, a bus may run this far ahead of real time, so that timer granularity does
// not slow it below its bit rate.
constexpr uint64_t kPaceWindowNs = 2'000'000;
// Random base ports are picked below the usual ephemeral range of outgoing connections.
constexpr uint16_t kPickLow = 20000;
constexpr uint16_t kPickHigh = 32000;
constexpr int kPickAttempts = 200;
constexpr int kBacklog = 128;
constexpr size_t kMaxEvents = 128;
constexpr int kMaxAcceptsPerWake = 64;
// Input thrown away before a deliberate close, so the close is orderly, not a reset.
constexpr size_t kMaxDrainBytes = 1024 * 1024;

constexpr uint64_t kListenerToken = uint64_t{1} << 62;  // + channel

// The unrelated frames sent before answers: a CAN data frame and an ESC_UP event, in turn.
constexpr uint32_t kNoiseId = 0x7FF;
constexpr uint8_t kNoiseData = 0xA5;

FrameBytes NoiseFrame(uint32_t index, int channel) {
  if (index % 2 == 1) return EncodeCommand(CommandFrame{code::kEscUp, 0, 0, 0});
  CanDataFrame frame;
  frame.id = kNoiseId;
  frame.SetInfoWord(8 | static_cast<uint32_t>(channel) << 8);
  frame.data.fill(kNoiseData);
  return EncodeCanData(frame);
}

// Bytes waiting to go to one connection. Appends go to the back, sends take from the front.
class OutQueue {
 public:
  size_t Size() const { return data_.size() - head_; }
  const uint8_t* Data() const { return data_.data() + head_; }

  uint8_t* Append(size_t n) {
    const size_t old = data_.size();
    data_.resize(old + n);
    return data_.data() + old;
  }

  void Consume(size_t n) {
    head_ += n;
    if (head_ == data_.size()) {
      data_.clear();
      head_ = 0;
    } else if (head_ >= kReadChunk && head_ * 2 >= data_.size()) {
      data_.erase(data_.begin(), data_.begin() + static_cast<std::ptrdiff_t>(head_));
      head_ = 0;
    }
  }

 private:
  std::vector<uint8_t> data_;
  size_t head_ = 0;
};

struct Client {
  Socket socket;
  uint64_t serial = 0;  // unique per connection: delayed answers find their connection by it
  size_t slot = 0;      // index in the client table, and the poller token
  int channel = 0;
  int bus = 0;
  std::vector<uint8_t> in = std::vector<uint8_t>(kReadChunk);
  size_t in_size = 0;  // bytes held in `in`, whole frames not yet handled and a partial one
  OutQueue out;
  uint64_t bytes_sent = 0;
  uint32_t interest = 0;
  bool dirty = false;      // listed for the next flush
  bool congested = false;  // counted in its bus's congestion
  bool read_closed = false;
  bool waiting_for_bus = false;  // pacing holds its next CAN frame
  bool dead = false;
};

struct DelayedAnswers {
  uint64_t serial = 0;
  size_t slot = 0;
  Answers answers;
};

}  // namespace

// Everything the board's thread works with. The thread holds `mutex_` while it handles the
// events of one wake-up; the public methods take it to read or change shared state.
class Simulator::Loop {
 public:
  explicit Loop(Config config)
      : config_(std::move(config)),
        board_(config_.wiring, platform::MonotonicMs()),
        faults_(config_.faults),
        active_faults_(config_.faults) {}

  ~Loop() { Stop(); }

  bool Start();
  void Stop();

  const Config& config() const { return config_; }
  const std::string& error() const { return error_; }
  uint16_t base_port() const { return base_port_; }
  uint32_t ip() const { return ip_; }

  BoardState State() const {
    std::lock_guard lock(mutex_);
    return board_.State();
  }

  bool WaitForState(const std::function<bool(const BoardState&)>& done, int timeout_ms) const {
    std::unique_lock lock(mutex_);
    return WaitLocked(lock, timeout_ms, [&] { return done(board_.State()); });
  }

  std::vector<FrameBytes> ReceivedFrames(int channel) const {
    std::lock_guard lock(mutex_);
    return recorded_[static_cast<size_t>(channel)];
  }

  bool WaitForReceivedFrames(int channel, size_t count, int timeout_ms) const {
    std::unique_lock lock(mutex_);
    return WaitLocked(lock, timeout_ms,
                      [&] { return recorded_[static_cast<size_t>(channel)].size() >= count; });
  }

  void ClearReceivedFrames() {
    std::lock_guard lock(mutex_);
    for (auto& frames : recorded_) frames.clear();
  }

  void SetFaults(const Faults& faults) {
    std::lock_guard lock(mutex_);
    faults_ = faults;
  }

  Faults CurrentFaults() const {
    std::lock_guard lock(mutex_);
    return faults_;
  }

 private:
  template <typename Predicate>
  bool WaitLocked(std::unique_lock<std::mutex>& lock, int timeout_ms, Predicate done) const {
    ++waiters_;
    const bool met = wake_waiters_.wait_for(lock, std::chrono::milliseconds(timeout_ms), done);
    --waiters_;
    return met;
  }

  bool BindAll(uint16_t base);
  void Run();
  int NextTimeoutMs() const;
  void Dispatch(const platform::PollEvent& event);
  void AcceptAll(int channel);
  void ReadFrom(Client& c);
  void Process(Client& c);
  void HandleCommand(Client& c, const uint8_t* frame);
  void HandleCan(Client& c, const uint8_t* frame);
  bool TakeBus(const Client& c, const uint8_t* frame);
  void SendAnswers(Client& c, const Answers& answers);
  void Deliver(Client& c, const uint8_t* frame);
  void MarkDirty(Client& c);
  void Flush(Client& c);
  uint64_t CloseLimit() const;
  void UpdateCongestion(Client& c);
  void RefreshBus(int bus);
  bool ReadingEnabled(const Client& c) const;
  void UpdateInterest(Client& c);
  void FinishIfDone(Client& c);
  void CloseOnPurpose(Client& c);
  void Close(Client& c);
  void FireTimers();
  void ReapDead();

  const Config config_;
  std::string error_;
  uint32_t ip_ = 0;
  uint16_t base_port_ = 0;
  bool started_ = false;
  std::thread thread_;

  // Shared with the public methods, under mutex_.
  mutable std::mutex mutex_;
  mutable std::condition_variable wake_waiters_;
  mutable int waiters_ = 0;
  bool stopping_ = false;
  Board board_;
  std::array<std::vector<FrameBytes>, kChannelCount> recorded_;
  Faults faults_;

  // The serving thread's own.
  platform::Poller poller_;
  std::array<Socket, kChannelCount> listeners_;
  std::vector<std::unique_ptr<Client>> clients_;  // by slot
  std::vector<size_t> free_slots_;
  std::array<std::vector<Client*>, kChannelCount> members_;     // connections per channel
  std::array<int, kChannelCount> bus_congested_{};              // congested connections per bus
  std::array<uint64_t, kChannelCount> bus_free_ns_{};           // pacing: when each bus is free
  std::array<std::vector<size_t>, kChannelCount> bus_waiters_;  // pacing: slots held per bus
  std::multimap<uint64_t, DelayedAnswers> delayed_;             // by due time in ms
  std::vector<size_t> dirty_;
  std::vector<size_t> dead_;
  Faults active_faults_;  // faults_ as of this wake-up
  uint64_t next_serial_ = 1;
  uint64_t now_ms_ = 0;
  uint64_t now_ns_ = 0;
};

bool Simulator::Loop::Start() {
  if (started_) {
    error_ = "the board was started before";
    return false;
  }
  started_ = true;
  const std::optional<uint32_t> ip = ParseIpv4(config_.bind_address);
  if (!ip) {
    error_ = "not an IPv4 address: '" + config_.bind_address + "'";
    return false;
  }
  ip_ = *ip;
  if (!poller_.Valid()) {
    error_ = "the system refused an event poller";
    return false;
  }
  if (config_.base_port > 65535 - (kChannelCount - 1)) {
    error_ = "base port " + std::to_string(config_.base_port) + " leaves no room for 4 ports";
    return false;
  }
  if (config_.base_port != 0) {
    if (!BindAll(config_.base_port)) return false;
  } else {
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> pick(kPickLow, kPickHigh);
    bool bound = false;
    for (int attempt = 0; attempt < kPickAttempts && !bound; ++attempt) {
      bound = BindAll(static_cast<uint16_t>(pick(random)));
    }
    if (!bound) {
      error_ = "found no four consecutive free ports on " + config_.bind_address;
      return false;
    }
  }
  for (int ch = 0; ch < kChannelCount; ++ch) {
    const Socket& listener = listeners_[static_cast<size_t>(ch)];
    if (!platform::SetNonBlocking(listener, true) ||
        !poller_.Add(listener, platform::kPollRead, kListenerToken + static_cast<uint64_t>(ch))) {
      error_ = "cannot watch the listening ports";
      for (Socket& s : listeners_) s.Close();
      return false;
    }
  }
  thread_ = std::thread([this] { Run(); });
  return true;
}

bool Simulator::Loop::BindAll(uint16_t base) {
  for (int ch = 0; ch < kChannelCount; ++ch) {
    const uint16_t port = static_cast<uint16_t>(base + ch);
    Socket listener = platform::ListenTcp(platform::SocketAddress{ip_, port}, kBacklog);
    if (!listener.Valid()) {
      for (Socket& s : listeners_) s.Close();
      error_ = "cannot listen on " + config_.bind_address + " port " + std::to_string(port) +
               " (in use, or the address is not this host's)";
      return false;
    }
    listeners_[static_cast<size_t>(ch)] = std::move(listener);
  }
  base_port_ = base;
  error_.clear();
  return true;
}

void Simulator::Loop::Stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
  }
  poller_.Wake();
  // The thread blocks only in the poller, which the wake-up ends, so the join is short. It
  // is never detached: the thread works on this object.
  if (thread_.joinable()) thread_.join();
  for (Socket& s : listeners_) s.Close();
  std::lock_guard lock(mutex_);
  wake_waiters_.notify_all();
}

void Simulator::Loop::Run() {
  std::array<platform::PollEvent, kMaxEvents> events;
  while (true) {
    const int n = poller_.Wait(events, NextTimeoutMs());
    std::lock_guard lock(mutex_);
    if (stopping_) break;
    active_faults_ = faults_;
    board_.SetBaudIgnored(active_faults_.baud_ignored);
    board_.SetDropEvery(active_faults_.drop_every);
    now_ms_ = platform::MonotonicMs();
    now_ns_ = platform::MonotonicNs();
    for (int i = 0; i < n; ++i) Dispatch(events[static_cast<size_t>(i)]);
    FireTimers();
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
  for (auto& c : clients_) {
    if (c != nullptr && !c->dead) Close(*c);
  }
  ReapDead();
}

int Simulator::Loop::NextTimeoutMs() const {
  int64_t timeout = -1;
  const uint64_t now_ms = platform::MonotonicMs();
  if (!delayed_.empty()) {
    const uint64_t due = delayed_.begin()->first;
    timeout = due > now_ms ? static_cast<int64_t>(due - now_ms) : 0;
  }
  const uint64_t now_ns = platform::MonotonicNs();
  for (size_t bus = 0; bus < bus_waiters_.size(); ++bus) {
    if (bus_waiters_[bus].empty()) continue;
    const uint64_t due_ns = bus_free_ns_[bus] - std::min(bus_free_ns_[bus], kPaceWindowNs);
    const int64_t ms =
        due_ns > now_ns ? static_cast<int64_t>((due_ns - now_ns + 999'999) / 1'000'000) : 0;
    timeout = timeout < 0 ? ms : std::min(timeout, ms);
  }
  return static_cast<int>(std::min<int64_t>(timeout, 60'000));
}

void Simulator::Loop::Dispatch(const platform::PollEvent& event) {
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
    client->interest = ReadingEnabled(*client) ? platform::kPollRead : 0;
    if (!poller_.Add(client->socket, client->interest, slot)) {
      free_slots_.push_back(slot);
      continue;
    }
    Client& c = *client;
    clients_[slot] = std::move(client);
    members_[static_cast<size_t>(channel)].push_back(&c);
    board_.ClientConnected(channel);
    if (active_faults_.close_after_frames && CloseLimit() == 0) CloseOnPurpose(c);
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
    if (!command && config_.pace && !TakeBus(c, frame)) {
      c.waiting_for_bus = true;
      bus_waiters_[static_cast<size_t>(c.bus)].push_back(c.slot);
      break;
    }
    ++taken;
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
  const Answers answers = board_.HandleCommand(c.channel, frame, now_ms_);
  if (answers.count == 0) return;
  const Faults& f = active_faults_;
  if (f.delayed_code != 0 && FrameWord(frame, 0) == f.delayed_code) {
    if (f.answer_delay_ms < 0) return;
    delayed_.emplace(now_ms_ + static_cast<uint64_t>(f.answer_delay_ms),
                     DelayedAnswers{c.serial, c.slot, answers});
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
      uint8_t* out = d->out.Append(kFrameSize);
      std::memcpy(out, frame, kFrameSize);
      // Info word bits 8-9, the channel, are the low bits of byte 5.
      out[5] = static_cast<uint8_t>((out[5] & ~0x03) | r);
      board_.CountToClients(1);
      MarkDirty(*d);
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
  std::memcpy(c.out.Append(kFrameSize), frame, kFrameSize);
  board_.CountToClients(1);
  MarkDirty(c);
}

void Simulator::Loop::MarkDirty(Client& c) {
  if (c.dirty) return;
  c.dirty = true;
  dirty_.push_back(c.slot);
}

uint64_t Simulator::Loop::CloseLimit() const {
  const Faults& f = active_faults_;
  if (!f.close_after_frames) return UINT64_MAX;
  return uint64_t{*f.close_after_frames} * kFrameSize + (f.close_mid_frame ? kFrameSize / 2 : 0);
}

void Simulator::Loop::Flush(Client& c) {
  const uint64_t limit = CloseLimit();
  while (c.out.Size() > 0 && c.bytes_sent < limit) {
    size_t n = active_faults_.split_bytes ? 1 : c.out.Size();
    n = static_cast<size_t>(std::min<uint64_t>(n, limit - c.bytes_sent));
    const platform::IoResult r = platform::Send(c.socket, c.out.Data(), n);
    if (r.status == IoStatus::kWouldBlock) break;
    if (r.status != IoStatus::kOk) {
      Close(c);
      return;
    }
    c.out.Consume(r.bytes);
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

void Simulator::Loop::UpdateCongestion(Client& c) {
  int& count = bus_congested_[static_cast<size_t>(c.bus)];
  const size_t pending = c.out.Size();
  if (!c.congested && pending > kCongestedBytes) {
    c.congested = true;
    if (++count == 1) RefreshBus(c.bus);
  } else if (c.congested && pending < kRelievedBytes) {
    c.congested = false;
    if (--count == 0) RefreshBus(c.bus);
  }
}

void Simulator::Loop::RefreshBus(int bus) {
  for (int ch = 0; ch < kChannelCount; ++ch) {
    if (board_.BusOf(ch) != bus) continue;
    for (Client* d : members_[static_cast<size_t>(ch)]) UpdateInterest(*d);
  }
}

bool Simulator::Loop::ReadingEnabled(const Client& c) const {
  return !c.read_closed && !c.waiting_for_bus && bus_congested_[static_cast<size_t>(c.bus)] == 0;
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
  auto& members = members_[static_cast<size_t>(c.channel)];
  members.erase(std::remove(members.begin(), members.end(), &c), members.end());
  if (c.congested) {
    c.congested = false;
    if (--bus_congested_[static_cast<size_t>(c.bus)] == 0) RefreshBus(c.bus);
  }
  dead_.push_back(c.slot);
}

void Simulator::Loop::FireTimers() {
  while (!delayed_.empty() && delayed_.begin()->first <= now_ms_) {
    const DelayedAnswers due = delayed_.begin()->second;
    delayed_.erase(delayed_.begin());
    Client* c = clients_[due.slot].get();
    if (c != nullptr && !c->dead && c->serial == due.serial) SendAnswers(*c, due.answers);
  }
  for (size_t bus = 0; bus < bus_waiters_.size(); ++bus) {
    if (bus_waiters_[bus].empty() || bus_free_ns_[bus] > now_ns_ + kPaceWindowNs) continue;
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

Simulator::Simulator(Config config) : loop_(std::make_unique<Loop>(std::move(config))) {}

Simulator::~Simulator() { Stop(); }

bool Simulator::Start() { return loop_->Start(); }

void Simulator::Stop() { loop_->Stop(); }

const std::string& Simulator::Error() const { return loop_->error(); }

uint16_t Simulator::BasePort() const { return loop_->base_port(); }

platform::SocketAddress Simulator::Address(int channel) const {
  return platform::SocketAddress{loop_->ip(), Port(channel)};
}

BoardState Simulator::State() const { return loop_->State(); }

bool Simulator::WaitForState(const std::function<bool(const BoardState&)>& done,
                             int timeout_ms) const {
  return loop_->WaitForState(done, timeout_ms);
}

std::vector<FrameBytes> Simulator::ReceivedFrames(int channel) const {
  return loop_->ReceivedFrames(channel);
}

bool Simulator::WaitForReceivedFrames(int channel, size_t count, int timeout_ms) const {
  return loop_->WaitForReceivedFrames(channel, count, timeout_ms);
}

void Simulator::ClearReceivedFrames() { loop_->ClearReceivedFrames(); }

void Simulator::SetFaults(const Faults& faults) { loop_->SetFaults(faults); }

Faults Simulator::CurrentFaults() const { return loop_->CurrentFaults(); }

}  // namespace kel::sim
