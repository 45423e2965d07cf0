#include "support/fake_board.h"

namespace kel::testing {

FakeBoard::FakeBoard(Script script) : script_(std::move(script)) {
  listener_ = platform::ListenTcp(platform::SocketAddress{0x0100007F, 0}, 16);
  port_ = platform::LocalAddress(listener_).port;
  thread_ = std::thread([this] {
    while (!stop_) {
      if (platform::WaitReadable(listener_, 50) != platform::WaitStatus::kReadable) continue;
      platform::Socket client = platform::Accept(listener_);
      if (!client.Valid()) continue;
      ++accepted_;
      script_(client);
    }
  });
}

FakeBoard::~FakeBoard() {
  stop_ = true;
  thread_.join();
}

bool FakeBoard::ReadFrame(platform::Socket& client, FrameBytes& frame, int timeout_ms) {
  size_t have = 0;
  while (have < frame.size()) {
    if (platform::WaitReadable(client, timeout_ms) != platform::WaitStatus::kReadable) return false;
    const platform::IoResult r =
        platform::Receive(client, frame.data() + have, frame.size() - have);
    if (r.status != platform::IoStatus::kOk) return false;
    have += r.bytes;
  }
  return true;
}

void FakeBoard::Write(platform::Socket& client, const uint8_t* bytes, size_t size) {
  size_t sent = 0;
  while (sent < size) {
    const platform::IoResult r = platform::Send(client, bytes + sent, size - sent);
    if (r.status != platform::IoStatus::kOk) return;
    sent += r.bytes;
  }
}

}  // namespace kel::testing
