#include "device/device_link.h"

#include <algorithm>
#include <cstring>

#include "config/settings.h"
#include "core/console.h"
#include "core/parse.h"
#include "device/frame_text.h"
#include "platform/clock.h"
#include "platform/socket_options.h"

namespace kel {
namespace {

constexpr size_t kReceiveChunk = 64 * 1024;
constexpr int kDefaultTransactMs = 5000;
constexpr int kTransactSliceMs = 1000;
// A full send buffer makes a non-blocking send wait for room; a board that takes nothing
// for this long counts as a failed send.
constexpr int kSendRoomMs = 5000;

}  // namespace

DeviceLink& Device() {
  static DeviceLink link;
  return link;
}

DeviceLink::DeviceLink() : debug_socket_(&CurrentSettings().debug_socket), buffer_(kReceiveChunk) {}

bool DeviceLink::Connect(const std::string& address, int tcp_port) {
  if (socket_.Valid()) return true;
  broken_ = false;
  buffer_.Clear();
  platform::Socket socket = platform::NewTcpSocket();
  if (!socket.Valid()) return false;
  const platform::SocketAddress to{InetAddr(address), static_cast<uint16_t>(tcp_port)};
  if (!platform::ConnectBlocking(socket, to) || !platform::SetNonBlocking(socket, true)) {
    return false;
  }
  socket_ = std::move(socket);
  return true;
}

void DeviceLink::Disconnect() {
  if (socket_.Valid()) {
    platform::ShutdownSend(socket_);
    closer_.Add(std::move(socket_), platform::MonotonicMs());
  }
  broken_ = false;
  buffer_.Clear();
}

void DeviceLink::MarkBroken() {
  broken_ = true;
  buffer_.Clear();
}

bool DeviceLink::SendFrame(const uint8_t* frame) {
  if (!socket_.Valid()) return false;
  size_t sent = 0;
  while (sent < kFrameSize) {
    const platform::IoResult r = platform::Send(socket_, frame + sent, kFrameSize - sent);
    if (r.status == platform::IoStatus::kOk) {
      sent += r.bytes;
    } else if (r.status != platform::IoStatus::kWouldBlock || !WaitForRoom()) {
      return false;
    }
  }
  return true;
}

bool DeviceLink::WaitForRoom() {
  const uint64_t start = NowMs();
  while (true) {
    const uint64_t waited = NowMs() - start;
    if (waited >= kSendRoomMs) return false;
    const int limit = static_cast<int>(kSendRoomMs - waited);
    switch (platform::WaitWritableOrReadable(socket_, limit)) {
      case platform::SendWaitStatus::kWritable: return true;
      case platform::SendWaitStatus::kReadable:
        TakeWaitingInput();
        if (broken_) return false;
        break;
      case platform::SendWaitStatus::kTimeout: break;
      case platform::SendWaitStatus::kError: return false;
    }
  }
}

void DeviceLink::TakeWaitingInput() {
  // Full of frames nobody asked for: they go, a partial one stays.
  buffer_.DropFramesIfFull();
  const std::span<uint8_t> space = buffer_.Space();
  const platform::IoResult r = platform::Receive(socket_, space.data(), space.size());
  if (r.status == platform::IoStatus::kOk) {
    buffer_.Added(r.bytes);
  } else if (r.status != platform::IoStatus::kWouldBlock) {
    MarkBroken();
  }
}

bool DeviceLink::SendCommand(uint32_t command, uint32_t value1, uint32_t value2, uint32_t value3) {
  const FrameBytes frame =
      EncodeCommand(CommandFrame{command | 0x80000000U, value1, value2, value3});
  if (*debug_socket_) ConsoleWrite(SendingCommandText(frame.data()));
  return SendFrame(frame.data());
}

bool DeviceLink::SendCanData(const uint8_t* data, size_t length) {
  FrameBytes frame{};
  const uint8_t* whole = frame.data();
  if (data != nullptr && length >= kFrameSize) {
    whole = data;  // a whole frame goes out as it is, without a copy
  } else if (data != nullptr) {
    std::memcpy(frame.data(), data, length);
  }
  if (*debug_socket_) ConsoleWrite(SendingDataText(whole));
  return SendFrame(whole);
}

bool DeviceLink::ReceiveFrameWaiting(uint8_t* frame, int timeout_ms) {
  if (!FillToFrame(timeout_ms)) {
    std::memset(frame, 0, kFrameSize);
    return false;
  }
  std::memcpy(frame, buffer_.TakeFrameInPlace(), kFrameSize);
  if (*debug_socket_) ConsoleWrite(ReceivedText(frame));
  return true;
}

std::span<const uint8_t> DeviceLink::NextFramesWaiting(int timeout_ms) {
  if (!FillToFrame(timeout_ms)) return {};
  if (!*debug_socket_) return buffer_.TakeFramesInPlace();
  const uint8_t* const frame = buffer_.TakeFrameInPlace();
  ConsoleWrite(ReceivedText(frame));
  return {frame, kFrameSize};
}

bool DeviceLink::FillToFrame(int timeout_ms) {
  if (!socket_.Valid() || broken_) return false;
  while (!buffer_.HasFrame()) {
    const std::span<uint8_t> space = buffer_.Space();
    const platform::IoResult r = platform::Receive(socket_, space.data(), space.size());
    if (r.status == platform::IoStatus::kOk) {
      buffer_.Added(r.bytes);
      continue;
    }
    if (r.status != platform::IoStatus::kWouldBlock) {
      MarkBroken();
      return false;
    }
    const platform::WaitStatus w = platform::WaitReadable(socket_, timeout_ms);
    if (w == platform::WaitStatus::kTimeout) {
      buffer_.Clear();  // a frame cut off by the limit is dropped whole
      return false;
    }
    if (w != platform::WaitStatus::kReadable) {
      MarkBroken();
      return false;
    }
  }
  return true;
}

bool DeviceLink::Transact(uint8_t* answer, int timeout_ms, uint32_t command, uint32_t answer_code,
                          uint32_t value1, uint32_t value2, uint32_t value3) {
  if (!SendCommand(command, value1, value2, value3)) return false;
  const uint64_t limit = timeout_ms > 0 ? static_cast<uint64_t>(timeout_ms) : kDefaultTransactMs;
  const uint64_t start = NowMs();
  while (true) {
    if (ReceiveFrame(answer, kTransactSliceMs)) {
      if (FrameWord(answer, 0) == answer_code) return true;
    } else {
      if (broken_) return false;
      ConsoleWrite(".");
    }
    if (NowMs() - start >= limit) return false;
  }
}

}  // namespace kel
