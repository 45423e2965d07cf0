#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.h"
#include "device/frame.h"
#include "sim/simulator.h"

namespace kel::testing {

/// What one command line left: its result and its output text.
struct LineRun {
  ResultCode result = 0;
  std::string text;
};

/// A test with the virtual board in this process, on free ports, recording the frames it
/// receives; command lines run through the shell's executor against it. The settings are
/// reset after each test.
class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Starts a new board with `faults` in place of the running one.
  void StartBoard(const sim::Faults& faults = sim::Faults());

  /// Runs `line` as the shell does with the device channel set to `channel`.
  LineRun Run(std::string_view line, int channel = 0, size_t output_size = 8192);

  /// Waits (generously) until exactly `clients` connections are open on the board.
  bool WaitForClients(uint32_t clients);

  /// The frames the board took on `channel`, once it has taken at least `count`.
  std::vector<FrameBytes> Frames(size_t count, int channel = 0);

  std::unique_ptr<sim::Simulator> board_;
};

/// A command frame as the board receives it.
inline FrameBytes Command(uint32_t code, uint32_t value1 = 0, uint32_t value2 = 0,
                          uint32_t value3 = 0) {
  return EncodeCommand(CommandFrame{code, value1, value2, value3});
}

}  // namespace kel::testing
