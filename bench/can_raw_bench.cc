// The baselines of bench/can_traffic_bench.sh: the least work that moves the same frames,
// written as plain loops over the socket layer, and the helpers the script needs to set a
// benchmark up.
//
//   can_raw_bench send PORT N      N counter frames (id 0x123, DLC 4), one send() each
//   can_raw_bench blast PORT N     the same frames, many per send(): a feeder for receivers
//   can_raw_bench recv PORT N      reads N counter frames and checks each
//   can_raw_bench ping PORT N      N echo round trips, one frame at a time
//   can_raw_bench int PORT N       N `int 0` transactions on one connection: a blocking
//                                  send of the command, a blocking read of the answer
//   can_raw_bench intconn PORT N   the same with a connection of its own per transaction,
//                                  as kelcmd opens one per command line
//   can_raw_bench filter AM AR     lists the identifiers 0 to 2^29-1 that match, as filt tst:
//                                  counts each block of 256 with the same compare, prints
//                                  the matches of the blocks that have any
//   can_raw_bench clients PORT N   waits until the board counts N clients besides this one
//
// Exits 0 when the work was done, 1 otherwise.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/parse.h"
#include "device/command_codes.h"
#include "device/frame.h"
#include "flood.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace kel {
namespace {

constexpr uint32_t kId = 0x123;
constexpr uint32_t kInfo = 4;  // DLC 4
constexpr uint32_t kInfoChecked = 0x00FF80FF;

FrameBytes CounterFrame(uint32_t value, uint32_t info = kInfo) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, kId);
  SetFrameWord(frame.data(), 1, info);
  SetFrameWord(frame.data(), 2, value);
  return frame;
}

bool SendAll(const platform::Socket& socket, const uint8_t* data, size_t size) {
  while (size > 0) {
    const platform::IoResult r = platform::Send(socket, data, size);
    if (r.status != platform::IoStatus::kOk) return false;
    data += r.bytes;
    size -= r.bytes;
  }
  return true;
}

// Fills `frame` from a blocking socket.
bool ReadFrame(const platform::Socket& socket, uint8_t* frame) {
  size_t got = 0;
  while (got < kFrameSize) {
    const platform::IoResult r = platform::Receive(socket, frame + got, kFrameSize - got);
    if (r.status != platform::IoStatus::kOk) return false;
    got += r.bytes;
  }
  return true;
}

int Send(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  for (uint32_t r = 0; r < count; ++r) {
    const FrameBytes frame = CounterFrame(r);
    if (!SendAll(socket, frame.data(), frame.size())) return 1;
  }
  return 0;
}

int Blast(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  constexpr uint32_t kBatch = 4096;
  std::vector<uint8_t> batch(kBatch * kFrameSize);
  for (uint32_t r = 0; r < count;) {
    const uint32_t n = std::min(kBatch, count - r);
    for (uint32_t i = 0; i < n; ++i) {
      const FrameBytes frame = CounterFrame(r + i);
      std::memcpy(batch.data() + i * kFrameSize, frame.data(), kFrameSize);
    }
    if (!SendAll(socket, batch.data(), n * kFrameSize)) return 1;
    r += n;
  }
  return 0;
}

int Receive(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  std::vector<uint8_t> buffer(64 * 1024);
  size_t have = 0;
  for (uint32_t r = 0; r < count;) {
    const platform::IoResult got =
        platform::Receive(socket, buffer.data() + have, buffer.size() - have);
    if (got.status != platform::IoStatus::kOk) return 1;
    have += got.bytes;
    size_t pos = 0;
    for (; have - pos >= kFrameSize && r < count; pos += kFrameSize) {
      const uint8_t* frame = buffer.data() + pos;
      if (FrameWord(frame, 0) != kId || ((FrameWord(frame, 1) ^ kInfo) & kInfoChecked) != 0) {
        continue;
      }
      if (FrameWord(frame, 2) != r) return 1;
      ++r;
    }
    std::memmove(buffer.data(), buffer.data() + pos, have - pos);
    have -= pos;
  }
  return 0;
}

int Ping(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  for (uint32_t r = 0; r < count; ++r) {
    const FrameBytes frame = CounterFrame(r, kInfo | kInfoEchoRequest);
    if (!SendAll(socket, frame.data(), frame.size())) return 1;
    FrameBytes echo;
    do {
      if (!ReadFrame(socket, echo.data())) return 1;
    } while ((FrameWord(echo.data(), 1) & kInfoEcho) == 0 || FrameWord(echo.data(), 2) != r);
  }
  return 0;
}

// Sends the `int 0` command and reads frames up to its answer; false when the link fails.
bool Transaction(const platform::Socket& socket) {
  const FrameBytes request = EncodeCommand(CommandFrame{code::kInternal, 0, 0, 0});
  if (!SendAll(socket, request.data(), request.size())) return false;
  uint8_t answer[kFrameSize];
  do {
    if (!ReadFrame(socket, answer)) return false;
  } while (FrameWord(answer, 0) != code::kInternal);
  return true;
}

int Transactions(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  for (uint32_t r = 0; r < count; ++r) {
    if (!Transaction(socket)) return 1;
  }
  return 0;
}

int ConnectedTransactions(uint16_t port, uint32_t count) {
  for (uint32_t r = 0; r < count; ++r) {
    if (!Transaction(bench::ConnectLocal(port))) return 1;
  }
  return 0;
}

int Filter(uint32_t am, uint32_t ar) {
  // Output in 64 KiB blocks, as kelcmd writes its listing.
  static char out[64 * 1024];
  std::setvbuf(stdout, out, _IOFBF, sizeof out);
  const uint32_t want = ar & am;
  uint32_t matches = 0;
  for (uint32_t block = 0; block <= 0x1FFFFFFF - 255; block += 256) {
    uint32_t hits = 0;
    for (uint32_t x = block; x < block + 256; ++x) hits += (x & am) == want ? 1 : 0;
    if (hits == 0) continue;
    for (uint32_t x = block; x < block + 256; ++x) {
      if ((x & am) != want) continue;
      std::printf("0x%X ", x);
      if (++matches % 16 == 0) std::fputs("\n  ", stdout);
    }
  }
  if (matches % 32 != 0) std::fputs("\n", stdout);
  std::printf("Total %u CAN ID matches\n", matches);
  return 0;
}

int Clients(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  const uint64_t start = platform::MonotonicMs();
  while (platform::MonotonicMs() - start < 30000) {
    const FrameBytes request = EncodeCommand(CommandFrame{code::kGetStatus, 0, 0, 0});
    if (!SendAll(socket, request.data(), request.size())) return 1;
    FrameBytes answer;
    do {
      if (!ReadFrame(socket, answer.data())) return 1;
    } while (FrameWord(answer.data(), 0) != code::kGetStatus);
    if (FrameWord(answer.data(), 2) >= count + 1) return 0;
    platform::SleepMs(5);
  }
  return 1;
}

}  // namespace
}  // namespace kel

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr,
                 "usage: can_raw_bench send|blast|recv|ping|int|intconn|clients PORT N\n"
                 "       can_raw_bench filter AM AR\n");
    return 1;
  }
  const std::string mode = argv[1];
  const uint32_t a = kel::ParseValue(argv[2]);
  const uint32_t b = kel::ParseValue(argv[3]);
  const auto port = static_cast<uint16_t>(a);
  kel::platform::SocketLibrary sockets;
  if (mode == "send") return kel::Send(port, b);
  if (mode == "blast") return kel::Blast(port, b);
  if (mode == "recv") return kel::Receive(port, b);
  if (mode == "ping") return kel::Ping(port, b);
  if (mode == "int") return kel::Transactions(port, b);
  if (mode == "intconn") return kel::ConnectedTransactions(port, b);
  if (mode == "clients") return kel::Clients(port, b);
  if (mode == "filter") return kel::Filter(a, b);
  return 1;
}
