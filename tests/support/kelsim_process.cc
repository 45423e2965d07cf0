#include "support/kelsim_process.h"

#include <optional>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "sim/frame_client.h"
#include "support/programs.h"

namespace kel::testing {
namespace {

constexpr uint64_t kLongMs = 60000;
constexpr uint32_t kLoopback = 0x0100007F;

}  // namespace

KelsimProcess::KelsimProcess(const std::vector<std::string>& args)
    : output_(dir_.File("kelsim.out")) {
  std::vector<std::string> argv = {KelsimPath(), "--port", "0"};
  argv.insert(argv.end(), args.begin(), args.end());
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kFile;
  options.output_path = output_;
  options.merge_stderr = true;
  if (!process_.Start(argv, options)) return;
  // The start-up line names the ports: "kelsim: board on ADDR ports A-B".
  const uint64_t start = platform::MonotonicMs();
  while (base_port_ == 0 && platform::MonotonicMs() - start < kLongMs) {
    const std::string text = Output();
    const size_t at = text.find(" ports ");
    if (at != std::string::npos && text.find('\n', at) != std::string::npos) {
      base_port_ = static_cast<uint16_t>(std::stoi(text.substr(at + 7)));
    } else {
      platform::SleepMs(20);
    }
  }
}

KelsimProcess::~KelsimProcess() {
  if (!stopped_) Stop();
}

platform::ChildExit KelsimProcess::Stop() {
  stopped_ = true;
  process_.Terminate();
  return process_.Wait(static_cast<int>(kLongMs));
}

platform::SocketAddress KelsimProcess::Address(int channel) const {
  return {kLoopback, static_cast<uint16_t>(base_port_ + channel)};
}

std::string KelsimProcess::Output() const { return ReadFile(output_); }

bool KelsimProcess::WaitForClients(uint32_t count) const {
  sim::FrameClient client;
  if (!client.Connect(Address(1))) return false;
  const uint64_t start = platform::MonotonicMs();
  while (platform::MonotonicMs() - start < kLongMs) {
    if (!client.SendCommand(code::kGetStatus)) return false;
    const std::optional<FrameBytes> status = client.ReceiveAnswer(code::kGetStatus, kLongMs);
    if (status && FrameWord(status->data(), 2) >= count + 1) return true;  // and this one
    platform::SleepMs(20);
  }
  return false;
}

}  // namespace kel::testing
