#include "flood.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "core/parse.h"
#include "device/frame.h"
#include "platform/poller.h"

namespace kel::bench {

std::vector<uint8_t> FrameBlock(uint32_t first_id, uint32_t id_span) {
  std::vector<uint8_t> block(kBlockFrames * kFrameSize);
  for (size_t i = 0; i < kBlockFrames; ++i) {
    CanDataFrame frame;
    frame.id = first_id + static_cast<uint32_t>(i % id_span);
    frame.dlc = 8;
    frame.data = {1, 2, 3, 4, 5, 6, 7, static_cast<uint8_t>(i)};
    const FrameBytes bytes = EncodeCanData(frame);
    std::copy(bytes.begin(), bytes.end(),
              block.begin() + static_cast<std::ptrdiff_t>(i * kFrameSize));
  }
  return block;
}

platform::Socket ConnectLocal(uint16_t port) {
  platform::Socket socket = platform::NewTcpSocket();
  if (!socket.Valid() || !platform::ConnectBlocking(socket, {InetAddr("127.0.0.1"), port})) {
    std::fprintf(stderr, "cannot connect to port %u\n", port);
    std::exit(1);
  }
  return socket;
}

void Pump(const platform::Socket& socket, const std::vector<uint8_t>& block, size_t frames,
          size_t expect_frames) {
  platform::Poller poller;
  const size_t to_send = frames * kFrameSize;
  const size_t to_receive = expect_frames * kFrameSize;
  size_t sent = 0;
  size_t received = 0;
  uint32_t interest =
      (to_send > 0 ? platform::kPollWrite : 0) | (to_receive > 0 ? platform::kPollRead : 0);
  poller.Add(socket, interest, 0);
  std::vector<uint8_t> sink(256 * 1024);
  std::array<platform::PollEvent, 1> events;
  while (sent < to_send || received < to_receive) {
    if (poller.Wait(events, 1000) <= 0) continue;
    if (events[0].writable && sent < to_send) {
      const size_t offset = sent % block.size();
      const size_t n = std::min(block.size() - offset, to_send - sent);
      const platform::IoResult r = platform::Send(socket, block.data() + offset, n);
      if (r.status == platform::IoStatus::kOk) sent += r.bytes;
      if (r.status == platform::IoStatus::kError) return;
      if (sent == to_send) {
        interest &= ~platform::kPollWrite;
        poller.Modify(socket, interest, 0);
      }
    }
    if (events[0].readable) {
      const platform::IoResult r = platform::Receive(socket, sink.data(), sink.size());
      if (r.status == platform::IoStatus::kOk) received += r.bytes;
      if (r.status == platform::IoStatus::kClosed || r.status == platform::IoStatus::kError) {
        return;
      }
    }
  }
}

}  // namespace kel::bench
