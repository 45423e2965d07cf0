#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/socket.h"
#include "sim/client_queue.h"

namespace kel::sim {

/// One connection to a board channel, as the board's thread keeps it.
struct Client {
  platform::Socket socket;
  uint64_t serial = 0;  ///< unique per connection: delayed answers find their connection by it
  size_t slot = 0;      ///< index in the client table, and the poller token
  int channel = 0;
  int bus = 0;
  std::vector<uint8_t> in = std::vector<uint8_t>(kReadChunk);
  size_t in_size = 0;  ///< bytes held in `in`: whole frames not yet handled and a partial one
  ClientQueue out;
  uint64_t bytes_sent = 0;
  uint32_t interest = 0;         ///< the poller events asked for now
  bool dirty = false;            ///< listed for the next flush
  bool congested = false;        ///< its full queue holds its bus (counted per bus)
  bool watched = false;          ///< its queue is full: listed for the queue timers
  bool read_closed = false;      ///< the client sends no more
  bool waiting_for_bus = false;  ///< pacing holds its next CAN frame
  bool dead = false;             ///< closed; the slot is freed at the end of the wake-up
};

}  // namespace kel::sim
