#include "sim/board.h"

#include <algorithm>

#include "device/command_codes.h"

namespace kel::sim {
namespace {

// Output pins are 1 to 14; the other bits of a pin mask name nothing on the board.
constexpr uint16_t kPinBits = 0x7FFE;

constexpr uint32_t kIdeBit = 1U << 29;   // arbitration word: 29-bit form
constexpr uint32_t kMideBit = 1U << 29;  // mask word: compare the identifier form too
constexpr uint32_t kMask29 = 0x1FFFFFFF;
constexpr uint32_t kMask11 = 0x7FF;
constexpr int kShift11 = 18;

constexpr uint32_t kEventEscDown = 1U << 0;
constexpr uint32_t kEventShutdown = 1U << 1;
constexpr uint32_t kEventEscUp = 1U << 2;
constexpr uint32_t kUnknownInternal = 0xFFFFFFFF;

// The simulated load: an output pin n that is on draws 100 + n mA; the supply rails are
// 12 V, 5 V and 3.3 V.
constexpr uint32_t kLoadBaseMa = 100;
constexpr std::array<uint32_t, 3> kRailsMv{12000, 5000, 3300};

void Add(Answers* answers, uint32_t code, uint32_t v1, uint32_t v2, uint32_t v3) {
  answers->frames[answers->count++] = EncodeCommand(CommandFrame{code, v1, v2, v3});
}

}  // namespace

uint32_t BoardState::Clients() const {
  uint32_t total = 0;
  for (const ChannelState& c : channels) total += c.clients;
  return total;
}

bool FilterPasses(uint32_t mask_word, uint32_t arbitration_word, uint32_t id, bool extended) {
  const bool ide = (arbitration_word & kIdeBit) != 0;
  const uint32_t am = ide ? (mask_word & kMask29) : ((mask_word >> kShift11) & kMask11);
  const uint32_t ar =
      ide ? (arbitration_word & kMask29) : ((arbitration_word >> kShift11) & kMask11);
  if (am == 0 && ar == 0) return true;
  if ((mask_word & kMideBit) != 0 && extended != ide) return false;
  return (id & am) == (ar & am);
}

uint32_t BitRate(int baud_index) {
  static constexpr std::array<uint32_t, 6> kRates{0, 100000, 125000, 250000, 500000, 1000000};
  return baud_index >= 1 && baud_index <= 5 ? kRates[static_cast<size_t>(baud_index)] : 0;
}

uint64_t FrameTimeNs(const uint8_t* frame, int baud_index) {
  const uint32_t info = FrameWord(frame, 1);
  const bool extended = (info & kInfoExtended) != 0;
  const bool remote = (info & kInfoRemote) != 0;
  const uint64_t data_bytes = remote ? 0 : std::min<uint32_t>(info & 0xFF, 8);
  // Start, identifier, control, CRC, acknowledge and end fields, and inter-frame space.
  const uint64_t bits = (extended ? 67 : 47) + 8 * data_bytes;
  const uint32_t rate = BitRate(baud_index);
  return rate == 0 ? 0 : bits * 1000000000ULL / rate;
}

Board::Board(const Wiring& wiring, uint64_t start_ms) : start_ms_(start_ms) {
  // Bus numbers become the lowest channel on each bus, so they index bus_frames_.
  for (int ch = 0; ch < kChannelCount; ++ch) {
    int bus = ch;
    for (int other = 0; other < ch; ++other) {
      if (wiring[static_cast<size_t>(other)] == wiring[static_cast<size_t>(ch)]) {
        bus = other;
        break;
      }
    }
    wiring_[static_cast<size_t>(ch)] = bus;
  }
  for (int ch = 0; ch < kChannelCount; ++ch) {
    for (int other = 0; other < kChannelCount; ++other) {
      if (other != ch && BusOf(other) == BusOf(ch)) {
        peers_[static_cast<size_t>(ch)] |= static_cast<uint8_t>(1U << other);
      }
    }
  }
}

void Board::PowerOnReset(uint64_t now_ms) {
  // Field by field, so that whatever else the board keeps (such as what it has played)
  // outlives the reset.
  state_.outputs = 0;
  state_.debug = 0;
  state_.events = 0;
  state_.trace_started = false;
  state_.frames_from_clients = state_.frames_to_clients = state_.frames_filtered = 0;
  state_.frames_lost = state_.slow_clients_closed = 0;
  for (ChannelState& c : state_.channels) {
    const uint32_t clients = c.clients;
    c = ChannelState();
    c.clients = clients;
  }
  bus_frames_.fill(0);
  start_ms_ = now_ms;
}

bool Board::SilenceBuzzer(uint64_t now_ms) {
  if (!state_.buzzer.current.SoundsAt(now_ms)) return false;
  TakeTone(&state_.buzzer, Tone{0, 0, 0, now_ms});
  return true;
}

void Board::ClientConnected(int channel) { ++Channel(channel).clients; }

void Board::ClientDisconnected(int channel) {
  if (Channel(channel).clients > 0) --Channel(channel).clients;
}

void Board::SetDropEvery(uint32_t n) {
  if (n != drop_every_) bus_frames_.fill(0);
  drop_every_ = n;
}

Answers Board::HandleCommand(int channel, const uint8_t* frame, uint64_t now_ms) {
  const CommandFrame request = DecodeCommand(frame);
  ChannelState& own = Channel(channel);
  Answers answers;
  switch (request.command) {
    case code::kSetOut:
      state_.outputs |= static_cast<uint16_t>(request.value1 >> 16) & kPinBits;
      break;
    case code::kClrOut:
      state_.outputs &= static_cast<uint16_t>(~((request.value1 >> 16) & kPinBits));
      break;
    case code::kToggleOut:
      state_.outputs ^= static_cast<uint16_t>(request.value1 >> 16) & kPinBits;
      break;
    case code::kOutputs: Add(&answers, code::kOutputs, uint32_t{state_.outputs} << 16, 0, 0); break;
    case code::kGetMeas: answers = Measurements(); break;
    case code::kGetStatus:
      Add(&answers, code::kGetStatus, state_.events, state_.Clients(),
          static_cast<uint32_t>(now_ms - start_ms_));
      break;
    case code::kStatus1:
      Add(&answers, code::kStatus1, static_cast<uint32_t>(state_.frames_from_clients),
          static_cast<uint32_t>(state_.frames_to_clients),
          static_cast<uint32_t>(state_.frames_filtered + state_.frames_lost));
      break;
    case code::kStatus2:
      Add(&answers, code::kStatus2, static_cast<uint32_t>(state_.frames_lost),
          static_cast<uint32_t>(state_.slow_clients_closed), 0);
      break;
    case code::kStatus3:
      Add(&answers, code::kStatus3, uint32_t{state_.outputs} << 16, state_.events, 0);
      break;
    case code::kStatus4:
      Add(&answers, code::kStatus4, uint32_t{OverCurrentNow()} << 16, 0, 0);
      break;
    case code::kClrEvents: state_.events = 0; break;
    case code::kReset:
      for (ChannelState& c : state_.channels) {
        c.transmit_errors = c.receive_errors = 0;
        c.frames_received = c.frames_transmitted = 0;
      }
      break;
    case code::kSetBaud:
      if (!baud_ignored_ && BitRate(static_cast<int>(request.value2)) != 0) {
        own.baud_index = static_cast<int>(request.value2);
      }
      break;
    case code::kGetBaud:
      Add(&answers, code::kBaudrate, 0, static_cast<uint32_t>(own.baud_index), 0);
      break;
    case code::kCanFilterWrite: {
      const uint32_t target = (request.value1 >> 8) & 0xFF;
      if (target < kChannelCount) {
        ChannelState& c = Channel(static_cast<int>(target));
        c.filter_mask = request.value2;
        c.filter_arbitration = request.value3;
      }
      break;
    }
    case code::kCanFilterRead:
      Add(&answers, code::kCanFilterRead, static_cast<uint32_t>(channel) << 8, own.filter_mask,
          own.filter_arbitration);
      break;
    case code::kNecnt:
      Add(&answers, code::kNecnt, own.transmit_errors, own.receive_errors, 0);
      break;
    case code::kNfcr:
      Add(&answers, code::kNfcr, own.frames_received, own.frames_transmitted, 0);
      break;
    case code::kNsr:
      Add(&answers, code::kNsr, PortStatusBits(own.transmit_errors),
          static_cast<uint32_t>(own.baud_index), 0);
      break;
    case code::kInternal:
      Add(&answers, code::kInternal, 0, request.value2, Internal(request.value2, request.value3));
      break;
    case code::kBuzzer: TakeTone(&state_.buzzer, ToneOfFrame(frame, now_ms)); break;
    default:
      // LED_CTRL and every code the board does not know: nothing to answer.
      break;
  }
  return answers;
}

uint32_t Board::Internal(uint32_t command, uint32_t value) {
  switch (command) {
    case internal::kReadDebug: return state_.debug;
    case internal::kWriteDebug: state_.debug = value != 0 ? 1 : 0; return state_.debug;
    case internal::kFirmwareVersion: return firmware_version_;
    case internal::kServiceVersion: return kServiceVersion;
    case internal::kStartTrace:
      // The connection's tap is the loop's; the board only answers whether it runs.
      if (value == 0) return 0;
      state_.trace_started = true;
      return 1;
    case code::kEscDown: state_.events |= kEventEscDown; return 0;
    case code::kShutdown: state_.events |= kEventShutdown; return 0;
    case code::kEscUp: state_.events |= kEventEscUp; return 0;
    default: return kUnknownInternal;
  }
}

Answers Board::Measurements() const {
  static constexpr std::array<uint32_t, 3> kCurrentCodes{code::kMeasure1, code::kMeasure2,
                                                         code::kMeasure3};
  Answers answers;
  const uint16_t overcurrent = OverCurrentNow();
  for (size_t frame = 0; frame < kCurrentCodes.size(); ++frame) {
    std::array<uint32_t, 3> ma{};
    for (size_t i = 0; i < ma.size(); ++i) {
      const uint32_t pin = static_cast<uint32_t>(frame * 3 + i + 1);
      if ((overcurrent >> pin & 1U) != 0) {
        ma[i] = kOverCurrentMa;
      } else if ((state_.outputs >> pin & 1U) != 0) {
        ma[i] = kLoadBaseMa + pin;
      }
    }
    Add(&answers, kCurrentCodes[frame], ma[0], ma[1], ma[2]);
  }
  Add(&answers, code::kMeasure4, kRailsMv[0], kRailsMv[1], kRailsMv[2]);
  return answers;
}

}  // namespace kel::sim
