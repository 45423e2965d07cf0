#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "sim/board.h"
#include "sim/buzzer.h"
#include "sim/client_queue.h"
#include "sim/status_words.h"

namespace kel::sim {

/// The ways the virtual board misbehaves on purpose. The default is a board that behaves.
struct Faults {
  /// Unrelated frames (a CAN data frame and an ESC_UP event, taking turns) sent to a client
  /// just before each answer frame.
  uint32_t noise_before_answer = 0;
  /// Answers to requests with this command word are delayed by `answer_delay_ms`, or never
  /// sent when that is negative. 0: no answer is delayed.
  uint32_t delayed_code = 0;
  int32_t answer_delay_ms = 0;
  /// Every frame to clients goes out one byte per send.
  bool split_bytes = false;
  /// Every Nth CAN data frame transmitted on a bus is lost (0: none).
  uint32_t drop_every = 0;
  /// Each connection is closed once this many frames have been sent to it.
  std::optional<uint32_t> close_after_frames;
  /// With close_after_frames: the first half of the next frame goes out before the close.
  bool close_mid_frame = false;
  /// SET_BAUD is taken without effect; the bit rate stays.
  bool baud_ignored = false;
  /// Output pins (bit n = pin n) that draw kOverCurrentMa when on and show in STATUS_4.
  uint16_t overcurrent_pins = 0;
};

/// How a virtual board is set up.
struct Config {
  std::string bind_address = "127.0.0.1";
  /// Channel n listens at base_port + n. 0: four consecutive free ports are picked.
  uint16_t base_port = 27015;
  Wiring wiring = kDefaultWiring;
  /// Keep every frame each channel receives from clients (for tests; costs memory).
  bool record_frames = false;
  /// Hold each bus to the time its frames take at their channel's bit rate.
  bool pace = false;
  /// The firmware version INTERNAL 2 reports (major << 24 | minor << 16 | patch).
  uint32_t firmware_version = kDefaultFirmwareVersion;
  /// How much may wait for each connection, and how long it may take nothing.
  QueueLimits queue;
  /// Gets a line for each connection that stops reading, reads again or is closed for not
  /// reading (kelsim prints them with --verbose). Called on the board's thread with the
  /// board locked: it must not call the Simulator.
  std::function<void(const std::string& line)> notes;
  Faults faults;
  /// Called with every tone the buzzer is given (BUZZER frames, and the silence of a
  /// power-on reset while it sounds), on the board's thread
  /// with the board locked (it must not call the Simulator); empty: nobody listens.
  std::function<void(const Tone&)> on_tone;
};

/// The default base port of the board's service.
inline constexpr uint16_t kDefaultBasePort = 27015;

/// Reads a dotted IPv4 address of four decimal parts 0-255 ("127.0.0.1"); "localhost" is
/// 127.0.0.1. Returns the address in network byte order as it lies in memory (as
/// platform::SocketAddress keeps it), or nothing for any other text.
std::optional<uint32_t> ParseIpv4(std::string_view text);

/// Reads a wiring: groups of channels separated by ',', the channels of one group joined
/// by '-'. Each group is one bus; a channel not named is alone on its bus.
///   "0-2,1-3" -> the default; "0-1-2-3" -> one bus; "0-2" -> 1 and 3 each alone;
///   "" or "none" -> every channel alone. A channel named twice or outside 0-3 is an error.
std::optional<Wiring> ParseWiring(std::string_view text);

/// The wiring as ParseWiring reads it, lone channels left out ("0-2,1-3"; "none" when
/// every channel is alone).
std::string WiringText(const Wiring& wiring);

}  // namespace kel::sim
