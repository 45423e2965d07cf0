#include "sim/options.h"

#include <cstdint>
#include <string_view>

namespace kel::sim {
namespace {

constexpr const char* kUsage =
    "usage: kelsim [options]\n"
    "The virtual KEL board: CAN channels 0-3 served over TCP at base port + channel.\n"
    "\n"
    "options:\n"
    "  --port N                base port (default 27015); 0 picks four free ports\n"
    "  --bind ADDR             address to listen on (default 127.0.0.1; 0.0.0.0 for all)\n"
    "  --wire GROUPS           channels that share a bus, e.g. 0-2,1-3 (the default),\n"
    "                          0-1-2-3 (one bus) or none (every channel alone)\n"
    "  --pace                  let each bus carry frames no faster than its bit rate\n"
    "  --serial                serve the board controller's serial line on a\n"
    "                          pseudo-terminal (its path is printed at start)\n"
    "  --serial-link PATH      with --serial: make PATH a symbolic link to it\n"
    "  --verbose               print a line for every tone the buzzer is given and\n"
    "                          for each client that stops reading\n"
    "  --buzzer-wav FILE       write what the buzzer plays into FILE (WAV, 16-bit mono)\n"
    "  --firmware X.Y.Z        the firmware version the board reports (default 1.0.0)\n"
    "  --help                  show this text\n"
    "\n"
    "faults:\n"
    "  --noise N               send N unrelated frames before each answer\n"
    "  --delay-answer CODE:MS  answer command CODE (e.g. 0x81010005) MS ms late\n"
    "  --drop-answer CODE      never answer command CODE\n"
    "  --split-bytes           send every frame to clients one byte at a time\n"
    "  --drop-every N          lose every Nth CAN frame on each bus\n"
    "  --close-after N         close each connection after N frames sent to it\n"
    "  --close-mid-frame       with --close-after: send half of the next frame first\n"
    "  --ignore-set-baud       take SET_BAUD but keep the bit rate\n"
    "  --overcurrent PINS      output pins (e.g. 8,10) that draw 2500 mA when on\n"
    "\n"
    "It runs until SIGINT (Ctrl+C) or SIGTERM.\n";

// A number that fits in 32 bits: decimal, or hexadecimal after 0x.
std::optional<uint32_t> ParseNumber(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    int digit = -1;
    if (c >= '0' && c <= '9') digit = c - '0';
    if (base == 16 && c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    if (digit < 0) return std::nullopt;
    value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    if (value > UINT32_MAX) return std::nullopt;
  }
  return static_cast<uint32_t>(value);
}

// Reads a list of output pins 1-14 separated by ',' as a pin mask (bit n = pin n).
std::optional<uint16_t> ParsePins(std::string_view text) {
  uint16_t mask = 0;
  while (true) {
    const size_t comma = text.find(',');
    const std::optional<uint32_t> pin = ParseNumber(text.substr(0, comma));
    if (!pin || *pin < 1 || *pin > 14) return std::nullopt;
    mask = static_cast<uint16_t>(mask | 1U << *pin);
    if (comma == std::string_view::npos) return mask;
    text.remove_prefix(comma + 1);
  }
}

// Reads a command code: bit 31 set, as every command word has.
std::optional<uint32_t> ParseCode(std::string_view text) {
  const std::optional<uint32_t> code = ParseNumber(text);
  if (!code || (*code & 0x80000000U) == 0) return std::nullopt;
  return code;
}

}  // namespace

std::optional<ProgramOptions> ParseOptions(const std::vector<std::string>& args,
                                           std::string* error) {
  ProgramOptions options;
  Config& config = options.config;
  Faults& faults = config.faults;
  auto fail = [&](const std::string& reason) {
    *error = reason;
    return std::nullopt;
  };
  for (size_t i = 0; i < args.size(); ++i) {
    std::string_view name = args[i];
    std::optional<std::string_view> inline_value;
    if (const size_t eq = name.find('='); name.starts_with("--") && eq != std::string::npos) {
      inline_value = name.substr(eq + 1);
      name = name.substr(0, eq);
    }
    const std::string option(name);
    // The value of an option that takes one.
    auto value = [&]() -> std::optional<std::string_view> {
      if (inline_value) return inline_value;
      if (i + 1 < args.size()) return std::string_view(args[++i]);
      return std::nullopt;
    };
    auto flag = [&](bool* target) {
      if (inline_value) return false;
      *target = true;
      return true;
    };
    auto number = [&](const char* what) -> std::optional<uint32_t> {
      const std::optional<std::string_view> text = value();
      if (!text) {
        *error = option + " needs " + what;
        return std::nullopt;
      }
      const std::optional<uint32_t> n = ParseNumber(*text);
      if (!n) *error = option + " needs " + what + ", not '" + std::string(*text) + "'";
      return n;
    };

    if (option == "--help" || option == "-h") {
      if (!flag(&options.help)) return fail(option + " takes no value");
    } else if (option == "--port") {
      const std::optional<uint32_t> port = number("a port number 0-65532");
      if (!port) return std::nullopt;
      if (*port > 65532)
        return fail("--port needs a port number 0-65532, not " + std::to_string(*port));
      config.base_port = static_cast<uint16_t>(*port);
    } else if (option == "--bind") {
      const std::optional<std::string_view> text = value();
      if (!text || !ParseIpv4(*text)) {
        return fail("--bind needs an IPv4 address such as 127.0.0.1, not '" +
                    std::string(text.value_or("")) + "'");
      }
      config.bind_address = std::string(*text);
    } else if (option == "--wire") {
      const std::optional<std::string_view> text = value();
      const std::optional<Wiring> wiring = text ? ParseWiring(*text) : std::nullopt;
      if (!wiring) {
        return fail("--wire needs groups of channels 0-3 such as 0-2,1-3, not '" +
                    std::string(text.value_or("")) + "'");
      }
      config.wiring = *wiring;
    } else if (option == "--pace") {
      if (!flag(&config.pace)) return fail(option + " takes no value");
    } else if (option == "--serial") {
      if (!flag(&options.serial)) return fail(option + " takes no value");
    } else if (option == "--serial-link") {
      const std::optional<std::string_view> text = value();
      if (!text || text->empty()) return fail("--serial-link needs a path");
      options.serial_link = std::string(*text);
    } else if (option == "--verbose") {
      if (!flag(&options.verbose)) return fail(option + " takes no value");
    } else if (option == "--buzzer-wav") {
      const std::optional<std::string_view> text = value();
      if (!text || text->empty()) return fail("--buzzer-wav needs a file name");
      options.buzzer_wav = std::string(*text);
    } else if (option == "--firmware") {
      const std::optional<std::string_view> text = value();
      const std::optional<uint32_t> version = text ? ParseVersion(*text) : std::nullopt;
      if (!version) {
        return fail("--firmware needs a version X.Y.Z such as 1.2.3, not '" +
                    std::string(text.value_or("")) + "'");
      }
      config.firmware_version = *version;
    } else if (option == "--overcurrent") {
      const std::optional<std::string_view> text = value();
      const std::optional<uint16_t> pins = text ? ParsePins(*text) : std::nullopt;
      if (!pins) {
        return fail("--overcurrent needs output pins 1-14 such as 8,10, not '" +
                    std::string(text.value_or("")) + "'");
      }
      faults.overcurrent_pins = *pins;
    } else if (option == "--noise") {
      const std::optional<uint32_t> n = number("a count of frames");
      if (!n) return std::nullopt;
      faults.noise_before_answer = *n;
    } else if (option == "--delay-answer") {
      const std::optional<std::string_view> text = value();
      const size_t colon = text ? text->find(':') : std::string_view::npos;
      std::optional<uint32_t> code;
      std::optional<uint32_t> ms;
      if (colon != std::string_view::npos) {
        code = ParseCode(text->substr(0, colon));
        ms = ParseNumber(text->substr(colon + 1));
      }
      if (!code || !ms || *ms > INT32_MAX) {
        return fail("--delay-answer needs CODE:MS such as 0x81010005:2000, not '" +
                    std::string(text.value_or("")) + "'");
      }
      faults.delayed_code = *code;
      faults.answer_delay_ms = static_cast<int32_t>(*ms);
    } else if (option == "--drop-answer") {
      const std::optional<std::string_view> text = value();
      const std::optional<uint32_t> code = text ? ParseCode(*text) : std::nullopt;
      if (!code) {
        return fail("--drop-answer needs a command code such as 0x81010005, not '" +
                    std::string(text.value_or("")) + "'");
      }
      faults.delayed_code = *code;
      faults.answer_delay_ms = -1;
    } else if (option == "--split-bytes") {
      if (!flag(&faults.split_bytes)) return fail(option + " takes no value");
    } else if (option == "--drop-every") {
      const std::optional<uint32_t> n = number("a count of frames");
      if (!n) return std::nullopt;
      faults.drop_every = *n;
    } else if (option == "--close-after") {
      const std::optional<uint32_t> n = number("a count of frames");
      if (!n) return std::nullopt;
      faults.close_after_frames = *n;
    } else if (option == "--close-mid-frame") {
      if (!flag(&faults.close_mid_frame)) return fail(option + " takes no value");
    } else if (option == "--ignore-set-baud") {
      if (!flag(&faults.baud_ignored)) return fail(option + " takes no value");
    } else {
      return fail("unknown option '" + std::string(args[i]) + "'");
    }
  }
  if (faults.close_mid_frame && !faults.close_after_frames) {
    return fail("--close-mid-frame needs --close-after");
  }
  if (!options.serial_link.empty() && !options.serial) return fail("--serial-link needs --serial");
  return options;
}

std::string UsageText() { return kUsage; }

}  // namespace kel::sim
