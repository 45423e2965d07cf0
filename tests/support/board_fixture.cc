#include "support/board_fixture.h"

#include "config/settings.h"
#include "shell/executor.h"

namespace kel::testing {

void BoardTest::SetUp() { StartBoard(); }

void BoardTest::TearDown() { CurrentSettings() = Settings(); }

void BoardTest::StartBoard(const sim::Faults& faults) {
  sim::Config config;
  config.base_port = 0;
  config.record_frames = true;
  config.faults = faults;
  board_ = std::make_unique<sim::Simulator>(config);
  ASSERT_TRUE(board_->Start()) << board_->Error();
}

LineRun BoardTest::Run(std::string_view line, int channel, size_t output_size) {
  CurrentSettings().device_channel = channel;
  Output out(output_size);
  LineRun run;
  run.result = RunCommandLine({"127.0.0.1", board_->Port(channel)}, line, out);
  run.text = std::string(out.Text());
  return run;
}

bool BoardTest::WaitForClients(uint32_t clients) {
  return board_->WaitForState([&](const sim::BoardState& s) { return s.Clients() == clients; },
                              60000);
}

std::vector<FrameBytes> BoardTest::Frames(size_t count, int channel) {
  EXPECT_TRUE(board_->WaitForReceivedFrames(channel, count, 20000));
  return board_->ReceivedFrames(channel);
}

}  // namespace kel::testing
