#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "device/frame.h"
#include "sim/buzzer.h"
#include "sim/status_words.h"

namespace kel::sim {

inline constexpr int kChannelCount = 4;

/// Which channels share a CAN bus: the bus number of each channel. Channels with the same
/// number are cabled together; a channel with a number of its own is alone on its bus.
using Wiring = std::array<int, kChannelCount>;

/// Channels 0 and 2 on one bus, 1 and 3 on another, as two boards cabled port to port.
inline constexpr Wiring kDefaultWiring{0, 1, 0, 1};

/// The bit-rate index every channel starts with (3 = 250 kbaud).
inline constexpr int kDefaultBaudIndex = 3;

/// One CAN channel of the board.
struct ChannelState {
  int baud_index = kDefaultBaudIndex;  ///< 1-5
  uint32_t filter_mask = 0;            ///< acceptance filter, mask word as written
  uint32_t filter_arbitration = 0;     ///< acceptance filter, arbitration word as written
  uint32_t transmit_errors = 0;        ///< frames nobody acknowledged or the bus lost
  uint32_t receive_errors = 0;
  uint32_t frames_received = 0;     ///< transmissions of other channels on the bus
  uint32_t frames_transmitted = 0;  ///< transmissions of this channel's clients
  uint32_t clients = 0;             ///< connections to this channel now
};

/// Everything the board keeps, as a copy that tests and the program may read.
struct BoardState {
  uint16_t outputs = 0;  ///< bit n is output pin n (pins 1 to 14)
  uint32_t debug = 0;    ///< the internal debug state, 0 or 1
  uint32_t events = 0;   ///< bit 0 escape down, bit 1 shut-down, bit 2 escape up
  bool trace_started = false;
  uint64_t frames_from_clients = 0;  ///< whole frames read from every connection
  uint64_t frames_to_clients = 0;    ///< frames queued to connections (answers, traffic)
  uint64_t frames_filtered = 0;      ///< deliveries refused by the acceptance filters
  uint64_t frames_lost = 0;          ///< frames lost to full client queues
  uint64_t slow_clients_closed = 0;  ///< connections closed for not reading
  std::array<ChannelState, kChannelCount> channels{};
  BuzzerState buzzer;  ///< the current tone and the last BUZZER frames

  uint32_t Clients() const;
};

/// The answers to one command: none, one, or (for GET_MEAS) four frames.
struct Answers {
  std::array<FrameBytes, 4> frames{};
  size_t count = 0;
};

/// What the bus did with one CAN data frame.
struct Transmission {
  bool transmitted = false;  ///< another channel acknowledged it
  uint8_t deliver_to = 0;    ///< bit r set: channel r received it and its filter passed it
  bool echo = false;         ///< transmitted and the sender asked for its echo
};

/// True when the acceptance filter made of `mask_word` and `arbitration_word` passes a
/// frame with identifier `id` and the given extended bit. The arbitration word's IDE bit
/// (29) chooses the 11-bit form (bits 18-28) or the 29-bit form (bits 0-28) of both words;
/// a filter whose mask and arbitration are both zero in that form passes every frame.
///   mask 0x1FF80000 (AM 0x7FE), arbitration 0x84000000 (AR 0x100): passes 0x100, 0x101
///   mask 0x1FFFFFFF, arbitration 0xA0012345 (IDE, AR 0x12345): passes 0x12345 only
///   mask 0x3FFFFFFF (MIDE too), same arbitration: passes 0x12345 only as an extended frame
bool FilterPasses(uint32_t mask_word, uint32_t arbitration_word, uint32_t id, bool extended);

/// The time one CAN data frame takes on a bus at bit-rate index `baud_index`: the bits of a
/// data or remote frame with its identifier form and DLC (at most 8 data bytes counted),
/// without stuffing bits, plus the three bits of inter-frame space.
uint64_t FrameTimeNs(const uint8_t* frame, int baud_index);

/// The bits per second of a bit-rate index 1-5; 0 for any other index.
uint32_t BitRate(int baud_index);

/// The board's logic without any connection: it answers command frames and decides where
/// CAN data frames go, keeping the state and counters that docs/protocol.md describes.
/// Every `channel` argument is 0-3. Not thread-safe; one owner drives it.
class Board {
 public:
  /// `start_ms` is the monotonic time the board started; GET_STATUS reports the time
  /// since then.
  Board(const Wiring& wiring, uint64_t start_ms);

  /// Handles one command frame (bit 31 of the first word set) from a client of `channel`
  /// at monotonic time `now_ms` and returns its answers.
  Answers HandleCommand(int channel, const uint8_t* frame, uint64_t now_ms);

  /// Puts one CAN data frame from a client of `channel` on that channel's bus.
  Transmission Transmit(int channel, const uint8_t* frame);

  /// The board as it starts when switched on, at monotonic time `now_ms`: outputs, debug
  /// state, events, trace, counters and the time since start back to zero, every channel at
  /// bit-rate index 3 with its filter unset. The connection counts stay: the caller closes
  /// the connections.
  void PowerOnReset(uint64_t now_ms);
  /// Silences a buzzer that still sounds at monotonic time `now_ms`, as a frame of zeros
  /// would. True when it sounded.
  bool SilenceBuzzer(uint64_t now_ms);

  void ClientConnected(int channel);
  void ClientDisconnected(int channel);
  void CountFromClients(uint64_t frames) { state_.frames_from_clients += frames; }
  void CountToClients(uint64_t frames) { state_.frames_to_clients += frames; }
  void CountLost(uint64_t frames) { state_.frames_lost += frames; }
  void CountClosedNotReading() { ++state_.slow_clients_closed; }

  /// Fault: SET_BAUD is taken without effect.
  void SetBaudIgnored(bool ignored) { baud_ignored_ = ignored; }
  /// Fault: every `n`th frame transmitted on a bus is lost (0: none). Restarts the count.
  void SetDropEvery(uint32_t n);
  /// Fault: the output pins of `pins` (bit n = pin n) draw too much current when on.
  void SetOverCurrentPins(uint16_t pins) { overcurrent_pins_ = pins; }
  /// The version INTERNAL 2 reports (major << 24 | minor << 16 | patch).
  void SetFirmwareVersion(uint32_t version) { firmware_version_ = version; }

  /// One measurement set: MEASURE_1..3 with the currents of pins 1-9 in mA, MEASURE_4 with
  /// the supply rails in mV.
  Answers Measurements() const;

  int BusOf(int channel) const { return wiring_[static_cast<size_t>(channel)]; }
  /// True when another channel shares `channel`'s bus.
  bool HasPeer(int channel) const { return peers_[static_cast<size_t>(channel)] != 0; }
  const BoardState& State() const { return state_; }

 private:
  ChannelState& Channel(int channel) { return state_.channels[static_cast<size_t>(channel)]; }
  uint32_t Internal(uint32_t command, uint32_t value);
  uint16_t OverCurrentNow() const { return state_.outputs & overcurrent_pins_; }

  Wiring wiring_;
  std::array<uint8_t, kChannelCount> peers_{};  // per channel, the others on its bus as bits
  uint64_t start_ms_;
  BoardState state_;
  bool baud_ignored_ = false;
  uint32_t drop_every_ = 0;
  uint16_t overcurrent_pins_ = 0;
  uint32_t firmware_version_ = kDefaultFirmwareVersion;
  std::array<uint32_t, kChannelCount> bus_frames_{};  // per bus number, for drop_every_
};

// Inline: every CAN frame routed comes through here.
inline Transmission Board::Transmit(int channel, const uint8_t* frame) {
  Transmission result;
  ChannelState& sender = Channel(channel);
  if (!HasPeer(channel)) {
    // Nobody acknowledges a frame on a bus of its own.
    ++sender.transmit_errors;
    return result;
  }
  const int bus = BusOf(channel);
  uint32_t& count = bus_frames_[static_cast<size_t>(bus)];
  ++count;
  if (drop_every_ != 0 && count % drop_every_ == 0) {
    ++sender.transmit_errors;
    return result;
  }
  result.transmitted = true;
  ++sender.frames_transmitted;
  const uint32_t id = FrameWord(frame, 0);
  const uint32_t info = FrameWord(frame, 1);
  const bool extended = (info & kInfoExtended) != 0;
  const uint8_t peers = peers_[static_cast<size_t>(channel)];
  for (int r = 0; r < kChannelCount; ++r) {
    if ((peers & (1U << r)) == 0) continue;
    ChannelState& receiver = Channel(r);
    ++receiver.frames_received;
    if (FilterPasses(receiver.filter_mask, receiver.filter_arbitration, id, extended)) {
      result.deliver_to |= static_cast<uint8_t>(1U << r);
    } else {
      ++state_.frames_filtered;
    }
  }
  result.echo = (info & kInfoEchoRequest) != 0;
  return result;
}

}  // namespace kel::sim
