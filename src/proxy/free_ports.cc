#include "proxy/free_ports.h"

#include <random>
#include <vector>

#include "platform/socket.h"

namespace kel {
namespace {

constexpr uint32_t kAnyAddress = 0;  // the proxy listens on every address
constexpr int kPickLow = 20000;
constexpr int kPickHigh = 32000;
constexpr int kAttempts = 200;

}  // namespace

uint16_t FindFreePorts(int count) {
  std::random_device seed;
  std::mt19937 random(seed());
  std::uniform_int_distribution<int> pick(kPickLow, kPickHigh - count);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int first = pick(random);
    std::vector<platform::Socket> held;  // all of them at once, released together
    for (int port = first; port < first + count; ++port) {
      platform::Socket socket = platform::ListenTcp({kAnyAddress, static_cast<uint16_t>(port)}, 1);
      if (!socket.Valid()) break;
      held.push_back(std::move(socket));
    }
    if (static_cast<int>(held.size()) == count) return static_cast<uint16_t>(first);
  }
  return 0;
}

}  // namespace kel
