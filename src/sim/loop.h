#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/poller.h"
#include "platform/socket.h"
#include "sim/board.h"
#include "sim/client.h"
#include "sim/config.h"
#include "sim/faults.h"
#include "sim/measurement_stream.h"
#include "sim/serial_controller.h"
#include "sim/simulator.h"
#include "sim/trace_tap.h"

namespace kel::sim {

/// Poller tokens at and above this one are the listening ports: token - kListenerToken is
/// the channel. Below it, a token is a connection's slot.
inline constexpr uint64_t kListenerToken = uint64_t{1} << 62;
/// The poller token of the controller's serial line.
inline constexpr uint64_t kControllerToken = kListenerToken - 1;

// Everything the board's thread works with. The thread holds `mutex_` while it handles the
// events of one wake-up; the public methods take it to read or change shared state.
class Simulator::Loop {
 public:
  explicit Loop(Config config)
      : config_(std::move(config)),
        board_(config_.wiring, platform::MonotonicMs()),
        faults_(config_.faults),
        active_faults_(config_.faults) {
    board_.SetFirmwareVersion(config_.firmware_version);
  }

  ~Loop() { Stop(); }

  bool Start();
  void Stop();
  /// Opens the controller's serial line (sim/serial_controller.h); its path, or empty with
  /// error() saying why.
  std::string StartSerial(const std::string& link);

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
  void Tap(const Client& about, const uint8_t* frame);
  void StartOrEndStreams(Client& c, const uint8_t* frame);
  void SendMeasurements();
  void MarkDirty(Client& c);
  void Flush(Client& c);
  // The queue rules (client_queue.cc): a full queue of a connection that reads holds its
  // bus; one that does not read loses frames and, at last, its connection.
  void UpdateCongestion(Client& c);
  void CheckQueues();
  uint64_t NextQueueDeadlineMs() const;
  // Hands "kelsim: channel C connection N " and the formatted text to Config::notes.
  void Note(const Client& c, const char* format, ...) const __attribute__((format(printf, 3, 4)));
  bool BusHeld(int bus) const { return bus_congested_[static_cast<size_t>(bus)] > 0; }
  bool ReadingEnabled(const Client& c) const;
  void UpdateInterest(Client& c);
  void FinishIfDone(Client& c);
  void CloseOnPurpose(Client& c);
  void Close(Client& c);
  void FireTimers();
  void ReapDead();
  void CloseAll();
  void PowerOnReset();

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
  std::unique_ptr<SerialController> serial_;  // declared after the poller: goes first
  std::array<platform::Socket, kChannelCount> listeners_;
  std::vector<std::unique_ptr<Client>> clients_;  // by slot
  std::vector<size_t> free_slots_;
  std::array<std::vector<Client*>, kChannelCount> members_;     // connections per channel
  std::array<int, kChannelCount> bus_congested_{};              // full queues that hold each bus
  std::vector<std::pair<size_t, uint64_t>> watched_;            // slot, serial: full queues
  std::array<uint64_t, kChannelCount> bus_free_ns_{};           // pacing: when each bus is free
  std::array<std::vector<size_t>, kChannelCount> bus_waiters_;  // pacing: slots held per bus
  DelayedAnswers delayed_;
  MeasurementStreams measurements_;
  TraceTaps taps_;
  std::vector<size_t> dirty_;
  std::vector<size_t> dead_;
  Faults active_faults_;  // faults_ as of this wake-up
  uint64_t next_serial_ = 1;
  uint64_t now_ms_ = 0;
  uint64_t now_ns_ = 0;
};

}  // namespace kel::sim
