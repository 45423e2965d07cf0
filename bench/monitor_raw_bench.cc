// The baseline of bench/monitor_bench.sh and the flood it reads.
//
//   monitor_raw_bench blast PORT N   N CAN frames (256 identifiers, DLC 8), many per send():
//                                    the flood the monitors watch
//   monitor_raw_bench rows PORT      reads frames until the board closes the connection and
//                                    writes each as the monitor's row, made with snprintf,
//                                    to standard output in 64 KiB blocks
//
// Exits 0 when the work was done, 1 otherwise.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/parse.h"
#include "device/frame.h"
#include "flood.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace kel {
namespace {

constexpr uint32_t kFirstId = 0x100;
constexpr uint32_t kIdSpan = 256;
constexpr size_t kBlock = 64 * 1024;
constexpr size_t kMaxRow = 1024;

int Blast(uint16_t port, uint32_t count) {
  const platform::Socket socket = bench::ConnectLocal(port);
  bench::Pump(socket, bench::FrameBlock(kFirstId, kIdSpan), count, 0);
  return 0;
}

// One row as `mon` shows a CAN frame: time, Type, Ch, ID, DLC, data.
size_t FormatRow(char* out, uint32_t ms, const uint8_t* f) {
  const uint8_t dlc = f[4];
  const uint8_t info = f[5];
  int n = std::snprintf(out, kMaxRow, "%10u %c%c%c %3u %08X %-3u ", ms,
                        (info & 0x80) != 0 ? 'x' : '-', f[6] != 0 ? 'r' : '-',
                        f[7] != 0 ? 's' : '-', info & 0x03U, FrameWord(f, 0), dlc);
  for (unsigned i = 0; i < dlc; ++i) {
    n += std::snprintf(out + n, kMaxRow - static_cast<size_t>(n), "%02X ", i < 8 ? f[8 + i] : 0);
  }
  out[n++] = '\n';
  return static_cast<size_t>(n);
}

int Rows(uint16_t port) {
  const platform::Socket socket = bench::ConnectLocal(port);
  std::vector<uint8_t> buffer(64 * 1024);
  std::vector<char> block(kBlock + kMaxRow);
  size_t used = 0;
  size_t have = 0;
  const uint64_t start = platform::MonotonicMs();
  while (true) {
    const platform::IoResult got =
        platform::Receive(socket, buffer.data() + have, buffer.size() - have);
    if (got.status != platform::IoStatus::kOk) break;
    have += got.bytes;
    const auto ms = static_cast<uint32_t>(platform::MonotonicMs() - start);
    size_t pos = 0;
    for (; have - pos >= kFrameSize; pos += kFrameSize) {
      used += FormatRow(block.data() + used, ms, buffer.data() + pos);
      if (used >= kBlock) {
        std::fwrite(block.data(), 1, used, stdout);
        used = 0;
      }
    }
    std::memmove(buffer.data(), buffer.data() + pos, have - pos);
    have -= pos;
  }
  std::fwrite(block.data(), 1, used, stdout);
  std::fflush(stdout);
  return 0;
}

}  // namespace
}  // namespace kel

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  kel::platform::SocketLibrary sockets;
  if (mode == "blast" && argc == 4) {
    return kel::Blast(static_cast<uint16_t>(kel::ParseValue(argv[2])), kel::ParseValue(argv[3]));
  }
  if (mode == "rows" && argc == 3)
    return kel::Rows(static_cast<uint16_t>(kel::ParseValue(argv[2])));
  std::fprintf(stderr, "usage: monitor_raw_bench blast PORT N | rows PORT\n");
  return 1;
}
