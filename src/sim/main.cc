// kelsim: the virtual KEL board as a program. It serves until SIGINT or SIGTERM.

#include <cstdio>
#include <string>
#include <vector>

#include "platform/console.h"
#include "platform/signals.h"
#include "platform/socket.h"
#include "sim/buzzer_wav.h"
#include "sim/options.h"
#include "sim/simulator.h"

int main(int argc, char** argv) {
  // First, so that the board's thread leaves the termination signals to this one.
  kel::platform::TerminationSignals signals;
  kel::platform::SocketLibrary sockets;
  kel::platform::UseBinaryStandardStreams();

  std::string error;
  const std::vector<std::string> args(argv + 1, argv + argc);
  const std::optional<kel::sim::ProgramOptions> options = kel::sim::ParseOptions(args, &error);
  if (!options) {
    std::fprintf(stderr, "kelsim: %s (kelsim --help lists the options)\n", error.c_str());
    return 2;
  }
  if (options->help) {
    std::fputs(kel::sim::UsageText().c_str(), stdout);
    return 0;
  }

  kel::sim::Config config = options->config;
  kel::sim::BuzzerRecording recording;
  const std::string& wav = options->buzzer_wav;
  if (!wav.empty() && !recording.Open(wav)) {
    std::fprintf(stderr, "kelsim: cannot write %s\n", wav.c_str());
    return 1;
  }
  if (options->verbose || !wav.empty()) {
    config.on_tone = [&](const kel::sim::Tone& tone) {
      if (options->verbose) {
        std::printf("%s\n", kel::sim::ToneText(tone).c_str());
        std::fflush(stdout);
      }
      if (!wav.empty()) recording.Take(tone);
    };
  }

  if (options->verbose) {
    config.notes = [](const std::string& line) {
      std::printf("%s\n", line.c_str());
      std::fflush(stdout);
    };
  }
  kel::sim::Simulator board(config);
  if (!board.Start()) {
    std::fprintf(stderr, "kelsim: %s\n", board.Error().c_str());
    return 1;
  }
  // The controller's line first: once the ports are announced, its link is in place.
  std::string controller;
  if (options->serial) {
    controller = board.StartSerial(options->serial_link);
    if (controller.empty()) {
      std::fprintf(stderr, "kelsim: %s\n", board.Error().c_str());
      return 1;
    }
  }
  std::printf("kelsim: board on %s ports %u-%u\n", options->config.bind_address.c_str(),
              board.Port(0), board.Port(kel::sim::kChannelCount - 1));
  if (!controller.empty()) std::printf("kelsim: controller on %s\n", controller.c_str());
  std::fflush(stdout);

  const char* signal = signals.Wait();
  board.Stop();
  recording.Finish();
  if (recording.Failed()) std::fprintf(stderr, "kelsim: writing %s failed\n", wav.c_str());
  std::printf("kelsim: %s, board stopped\n", signal);
  return 0;
}
