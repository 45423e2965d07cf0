#include "sim/options.h"

#include <gtest/gtest.h>

#include <tuple>

namespace kel::sim {
namespace {

TEST(ParseOptionsTest, EachOptionSetsItsPart) {
  std::string error;
  const std::optional<ProgramOptions> all = ParseOptions({"--port",
                                                          "1",
                                                          "--port=0x10",
                                                          "--bind",
                                                          "0.0.0.0",
                                                          "--wire=0-1-2-3",
                                                          "--pace",
                                                          "--noise",
                                                          "3",
                                                          "--delay-answer",
                                                          "0x81010005:2500",
                                                          "--split-bytes",
                                                          "--drop-every=7",
                                                          "--close-mid-frame",
                                                          "--close-after",
                                                          "0",
                                                          "--ignore-set-baud",
                                                          "--firmware",
                                                          "2.1.7",
                                                          "--overcurrent=1,8,14",
                                                          "--help",
                                                          "--serial",
                                                          "--serial-link=/tmp/ttyKEL"},
                                                         &error);
  ASSERT_TRUE(all) << error;
  const Config& config = all->config;
  const Faults& f = config.faults;
  EXPECT_EQ(16, config.base_port) << "the last --port counts";
  EXPECT_EQ("0.0.0.0", config.bind_address);
  EXPECT_EQ("0-1-2-3", WiringText(config.wiring));
  EXPECT_TRUE(all->serial);
  EXPECT_EQ("/tmp/ttyKEL", all->serial_link);
  EXPECT_TRUE(config.pace && all->help && f.split_bytes && f.close_mid_frame && f.baud_ignored);
  EXPECT_EQ(std::tuple(3U, 0x81010005U, 2500, 7U, 0U),
            std::tuple(f.noise_before_answer, f.delayed_code, f.answer_delay_ms, f.drop_every,
                       f.close_after_frames.value_or(9)));
  EXPECT_EQ(0x02010007U, config.firmware_version);
  EXPECT_EQ(0x4102, f.overcurrent_pins);

  const std::optional<ProgramOptions> drop =
      ParseOptions({"--drop-answer", "0xFFFFFFFF", "-h"}, &error);
  ASSERT_TRUE(drop && drop->help) << error;
  EXPECT_EQ(0xFFFFFFFFU, drop->config.faults.delayed_code);
  EXPECT_GT(0, drop->config.faults.answer_delay_ms) << "a negative delay: never";
  EXPECT_EQ(27015, drop->config.base_port) << "the default";

  const std::optional<ProgramOptions> buzzer =
      ParseOptions({"--verbose", "--buzzer-wav=tune.wav"}, &error);
  ASSERT_TRUE(buzzer && buzzer->verbose) << error;
  EXPECT_EQ("tune.wav", buzzer->buzzer_wav);
}

TEST(ParseOptionsTest, BadArgumentsNameTheProblem) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"27015"}, "unknown option '27015'"},
      {{"--port"}, "--port needs a port number 0-65532"},
      {{"--port", "x"}, "--port needs a port number 0-65532, not 'x'"},
      {{"--port", "65533"}, "--port needs a port number 0-65532, not 65533"},
      {{"--bind"}, "--bind needs an IPv4 address such as 127.0.0.1, not ''"},
      {{"--wire", "0-4"}, "--wire needs groups of channels 0-3 such as 0-2,1-3, not '0-4'"},
      {{"--noise", "many"}, "--noise needs a count of frames, not 'many'"},
      {{"--delay-answer", "0x1005:10"},
       "--delay-answer needs CODE:MS such as 0x81010005:2000, not '0x1005:10'"},
      {{"--drop-answer", "5"}, "--drop-answer needs a command code such as 0x81010005, not '5'"},
      {{"--drop-every", "-1"}, "--drop-every needs a count of frames, not '-1'"},
      {{"--close-after"}, "--close-after needs a count of frames"},
      {{"--help=1"}, "--help takes no value"},
      {{"--split-bytes=1"}, "--split-bytes takes no value"},
      {{"--close-mid-frame"}, "--close-mid-frame needs --close-after"},
      {{"--serial=1"}, "--serial takes no value"},
      {{"--serial", "--serial-link"}, "--serial-link needs a path"},
      {{"--serial-link", "/tmp/ttyKEL"}, "--serial-link needs --serial"},
      {{"--buzzer-wav"}, "--buzzer-wav needs a file name"},
      {{"--verbose=1"}, "--verbose takes no value"},
      {{"--firmware", "1.2"}, "--firmware needs a version X.Y.Z such as 1.2.3, not '1.2'"},
      {{"--overcurrent", "0,3"}, "--overcurrent needs output pins 1-14 such as 8,10, not '0,3'"},
      {{"--overcurrent", "15"}, "--overcurrent needs output pins 1-14 such as 8,10, not '15'"},
      {{"--overcurrent", "3,"}, "--overcurrent needs output pins 1-14 such as 8,10, not '3,'"},
  };
  for (const auto& [args, message] : cases) {
    std::string error;
    EXPECT_FALSE(ParseOptions(args, &error)) << args[0];
    EXPECT_EQ(message, error) << args[0];
  }
}

}  // namespace
}  // namespace kel::sim
