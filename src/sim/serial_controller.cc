// The board controller's serial line: requests in, answers out, and the power-on reset.

#include "sim/serial_controller.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace kel::sim {
namespace {

// After the terminal failed (a hang-up or an error), it is watched again this much later,
// so that a terminal that keeps failing costs a wake-up now and then, not a busy loop.
constexpr uint64_t kRewatchMs = 250;
constexpr size_t kReadChunk = 512;
// Reads per wake-up, so that a flood of requests does not starve the board's connections.
constexpr int kMaxReadsPerWake = 16;

}  // namespace

SerialController::SerialController(platform::Poller& poller, uint64_t token, Hooks hooks)
    : poller_(poller), token_(token), hooks_(std::move(hooks)) {}

SerialController::~SerialController() {
  if (watched_) poller_.RemoveHandle(terminal_.Handle());
}

bool SerialController::Open(const std::string& link, std::string* error) {
  if (!terminal_.Open() || (!link.empty() && !terminal_.Link(link))) {
    *error = terminal_.Error();
    terminal_.Close();
    return false;
  }
  if (!poller_.AddHandle(terminal_.Handle(), platform::kPollRead, token_)) {
    *error = "cannot watch the controller's terminal";
    terminal_.Close();
    return false;
  }
  watched_ = true;
  return true;
}

void SerialController::OnEvent(const platform::PollEvent& event, uint64_t now_ms) {
  if (!watched_) return;
  bool got_bytes = false;
  if (event.readable) {
    std::array<char, kReadChunk> chunk;
    std::vector<ReceivedLine> requests;
    for (int i = 0; i < kMaxReadsPerWake; ++i) {
      const platform::SerialResult r = terminal_.Read(chunk.data(), chunk.size());
      if (r.status == platform::SerialStatus::kTimeout) break;
      if (r.status == platform::SerialStatus::kGone) {
        Unwatch(now_ms);
        return;
      }
      got_bytes = true;
      splitter_.Feed(std::string_view(chunk.data(), r.bytes), requests);
    }
    for (const ReceivedLine& request : requests) Answer(request, now_ms);
  }
  // A hang-up or error is reported on every wait until it is dealt with; with nothing to
  // read it would wake the board for ever.
  if (event.failed && !got_bytes) Unwatch(now_ms);
}

uint64_t SerialController::NextDueMs() const {
  if (boot_due_ms_ == 0 || rewatch_due_ms_ == 0) return std::max(boot_due_ms_, rewatch_due_ms_);
  return std::min(boot_due_ms_, rewatch_due_ms_);
}

void SerialController::FireDue(uint64_t now_ms) {
  if (rewatch_due_ms_ != 0 && rewatch_due_ms_ <= now_ms) {
    rewatch_due_ms_ = 0;
    watched_ = poller_.AddHandle(terminal_.Handle(), platform::kPollRead, token_);
    if (!watched_) rewatch_due_ms_ = now_ms + kRewatchMs;
  }
  if (boot_due_ms_ != 0 && boot_due_ms_ <= now_ms) {
    boot_due_ms_ = 0;
    Send(std::string("BOOT,") + kControllerVersion);
  }
}

void SerialController::Answer(const ReceivedLine& request, uint64_t now_ms) {
  const ParsedLine line = ParseReceived(request, false);
  switch (line.fault) {
    case LineFault::kNone: break;
    case LineFault::kBadChecksum: Send("ERR,2,checksum"); return;
    default: Send("ERR,3,bad line"); return;
  }
  const std::string_view command = line.Command();
  if (command == "VER") {
    Send(std::string("VER,") + kControllerName + "," + kControllerVersion);
  } else if (command == "POR") {
    Send("POR,OK");
    hooks_.power_on_reset();
    boot_due_ms_ = now_ms + kBootDelayMs;
  } else if (command == "OUT") {
    char body[32];
    std::snprintf(body, sizeof body, "OUT,0x%04X", static_cast<unsigned>(hooks_.outputs()));
    Send(body);
  } else if (command == "ECHO") {
    // The request's own body, its fields as they came.
    const size_t star = request.text.find('*');
    Send(std::string_view(request.text).substr(1, star == std::string::npos ? star : star - 1));
  } else if (command != "ERR") {
    // An error line is not a request: answering it could start an endless exchange of
    // errors with whatever sent it.
    Send("ERR,1,unknown command");
  }
}

void SerialController::Send(std::string_view body) {
  const std::string line = FramedLine(body);
  size_t sent = 0;
  while (sent < line.size()) {
    const platform::SerialResult r = terminal_.Write(line.data() + sent, line.size() - sent);
    if (r.status != platform::SerialStatus::kOk) return;  // the rest is lost
    sent += r.bytes;
  }
}

void SerialController::Unwatch(uint64_t now_ms) {
  if (watched_) poller_.RemoveHandle(terminal_.Handle());
  watched_ = false;
  rewatch_due_ms_ = now_ms + kRewatchMs;
}

}  // namespace kel::sim
