#include "sim/simulator.h"

#include <random>

#include "platform/socket_options.h"
#include "sim/loop.h"

namespace kel::sim {
namespace {

// Random base ports are picked below the usual ephemeral range of outgoing connections.
constexpr uint16_t kPickLow = 20000;
constexpr uint16_t kPickHigh = 32000;
constexpr int kPickAttempts = 200;
constexpr int kBacklog = 128;

}  // namespace

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
    const platform::Socket& listener = listeners_[static_cast<size_t>(ch)];
    if (!platform::SetNonBlocking(listener, true) ||
        !poller_.Add(listener, platform::kPollRead, kListenerToken + static_cast<uint64_t>(ch))) {
      error_ = "cannot watch the listening ports";
      for (platform::Socket& s : listeners_) s.Close();
      return false;
    }
  }
  thread_ = std::thread([this] { Run(); });
  return true;
}

bool Simulator::Loop::BindAll(uint16_t base) {
  for (int ch = 0; ch < kChannelCount; ++ch) {
    const uint16_t port = static_cast<uint16_t>(base + ch);
    platform::Socket listener = platform::ListenTcp(platform::SocketAddress{ip_, port}, kBacklog);
    if (!listener.Valid()) {
      for (platform::Socket& s : listeners_) s.Close();
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

std::string Simulator::Loop::StartSerial(const std::string& link) {
  std::lock_guard lock(mutex_);
  if (!thread_.joinable() || stopping_) {
    error_ = "the board does not run";
    return {};
  }
  if (serial_ != nullptr) {
    error_ = "the controller's line was opened before";
    return {};
  }
  SerialController::Hooks hooks;
  hooks.outputs = [this] { return board_.State().outputs; };
  hooks.power_on_reset = [this] { PowerOnReset(); };
  auto serial = std::make_unique<SerialController>(poller_, kControllerToken, std::move(hooks));
  if (!serial->Open(link, &error_)) return {};
  serial_ = std::move(serial);
  return serial_->Path();
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
  for (platform::Socket& s : listeners_) s.Close();
  serial_.reset();
  std::lock_guard lock(mutex_);
  wake_waiters_.notify_all();
}

Simulator::Simulator(Config config) : loop_(std::make_unique<Loop>(std::move(config))) {}

Simulator::~Simulator() { Stop(); }

bool Simulator::Start() { return loop_->Start(); }

void Simulator::Stop() { loop_->Stop(); }

std::string Simulator::StartSerial(const std::string& link) { return loop_->StartSerial(link); }

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
