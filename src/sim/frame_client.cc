#include "sim/frame_client.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/clock.h"
#include "platform/socket_options.h"

namespace kel::sim {

bool FrameClient::Connect(const platform::SocketAddress& to) {
  socket_ = platform::NewTcpSocket();
  pending_.clear();
  head_ = 0;
  peer_closed_ = false;
  if (!socket_.Valid() || !platform::ConnectBlocking(socket_, to)) {
    socket_.Close();
    return false;
  }
  return true;
}

bool FrameClient::SendBytes(const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  size_t sent = 0;
  while (sent < size) {
    const platform::IoResult r = platform::Send(socket_, bytes + sent, size - sent);
    if (r.status == platform::IoStatus::kOk) {
      sent += r.bytes;
    } else if (r.status == platform::IoStatus::kWouldBlock) {
      platform::WaitWritable(socket_, 100);
    } else {
      return false;
    }
  }
  return true;
}

bool FrameClient::Fill(int timeout_ms) {
  if (peer_closed_ || !socket_.Valid()) return false;
  if (platform::WaitReadable(socket_, std::max(timeout_ms, 0)) != platform::WaitStatus::kReadable) {
    return false;
  }
  std::array<uint8_t, 16384> buffer;
  const platform::IoResult r = platform::Receive(socket_, buffer.data(), buffer.size());
  if (r.status == platform::IoStatus::kOk) {
    // Drop the bytes already taken before adding more.
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
    pending_.insert(pending_.end(), buffer.begin(), buffer.begin() + r.bytes);
    return r.bytes > 0;
  }
  if (r.status == platform::IoStatus::kClosed || r.status == platform::IoStatus::kError) {
    peer_closed_ = true;
  }
  return false;
}

std::optional<FrameBytes> FrameClient::Receive(int timeout_ms) {
  const uint64_t start = platform::MonotonicMs();
  while (Pending() < kFrameSize) {
    const uint64_t spent = platform::MonotonicMs() - start;
    if (peer_closed_ || spent >= static_cast<uint64_t>(timeout_ms)) return std::nullopt;
    Fill(static_cast<int>(static_cast<uint64_t>(timeout_ms) - spent));
  }
  FrameBytes frame;
  std::memcpy(frame.data(), pending_.data() + head_, kFrameSize);
  head_ += kFrameSize;
  if (head_ == pending_.size()) {
    pending_.clear();
    head_ = 0;
  }
  return frame;
}

std::optional<FrameBytes> FrameClient::ReceiveAnswer(uint32_t code, int timeout_ms) {
  const uint64_t start = platform::MonotonicMs();
  while (true) {
    const uint64_t spent = platform::MonotonicMs() - start;
    if (spent >= static_cast<uint64_t>(timeout_ms)) return std::nullopt;
    const std::optional<FrameBytes> frame =
        Receive(static_cast<int>(static_cast<uint64_t>(timeout_ms) - spent));
    if (!frame) return std::nullopt;
    if (FrameWord(frame->data(), 0) == code) return frame;
  }
}

std::vector<uint8_t> FrameClient::ReceiveAll(int timeout_ms) {
  const uint64_t start = platform::MonotonicMs();
  while (!peer_closed_) {
    const uint64_t spent = platform::MonotonicMs() - start;
    if (spent >= static_cast<uint64_t>(timeout_ms)) break;
    Fill(static_cast<int>(static_cast<uint64_t>(timeout_ms) - spent));
  }
  std::vector<uint8_t> all(pending_.begin() + static_cast<std::ptrdiff_t>(head_), pending_.end());
  pending_.clear();
  head_ = 0;
  return all;
}

void FrameClient::Abort() { platform::AbortConnection(socket_); }

void FrameClient::ShutdownSend() { platform::ShutdownSend(socket_); }

}  // namespace kel::sim
