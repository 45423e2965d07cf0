#include "sim/options.h"

#include <gtest/gtest.h>

#include <functional>

namespace kel::sim {
namespace {

struct GoodCase {
  std::vector<std::string> args;
  std::function<bool(const ProgramOptions&)> holds;
};

TEST(ParseOptionsTest, EachOptionSetsItsPart) {
  const std::vector<GoodCase> cases = {
      {{"--port", "0"}, [](const ProgramOptions& o) { return o.config.base_port == 0; }},
      {{"--port=30000"}, [](const ProgramOptions& o) { return o.config.base_port == 30000; }},
      {{"--wire", "0-1-2-3"},
       [](const ProgramOptions& o) { return WiringText(o.config.wiring) == "0-1-2-3"; }},
      {{"--wire=none"},
       [](const ProgramOptions& o) { return WiringText(o.config.wiring) == "none"; }},
      {{"--noise", "3"},
       [](const ProgramOptions& o) { return o.config.faults.noise_before_answer == 3; }},
      {{"--delay-answer", "0x81010005:2500"},
       [](const ProgramOptions& o) {
         return o.config.faults.delayed_code == 0x81010005 &&
                o.config.faults.answer_delay_ms == 2500;
       }},
      {{"--drop-answer=0xFFFFFFFF"},
       [](const ProgramOptions& o) {
         return o.config.faults.delayed_code == 0xFFFFFFFF && o.config.faults.answer_delay_ms < 0;
       }},
      {{"--drop-every", "0x10"},
       [](const ProgramOptions& o) { return o.config.faults.drop_every == 16; }},
      {{"--close-after", "0"},
       [](const ProgramOptions& o) {
         return o.config.faults.close_after_frames == 0U && !o.config.faults.close_mid_frame;
       }},
      {{"--close-mid-frame", "--close-after", "2"},
       [](const ProgramOptions& o) {
         return o.config.faults.close_after_frames == 2U && o.config.faults.close_mid_frame;
       }},
      {{"--port", "1", "--port", "2"},
       [](const ProgramOptions& o) { return o.config.base_port == 2; }},
  };
  for (const GoodCase& c : cases) {
    std::string error;
    const std::optional<ProgramOptions> options = ParseOptions(c.args, &error);
    ASSERT_TRUE(options) << c.args[0] << ": " << error;
    EXPECT_TRUE(c.holds(*options)) << c.args[0];
  }
}

TEST(ParseOptionsTest, BadArgumentsNameTheProblem) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--frobnicate"}, "unknown option '--frobnicate'"},
      {{"27015"}, "unknown option '27015'"},
      {{"--port"}, "--port needs a port number 0-65532"},
      {{"--port", "x"}, "--port needs a port number 0-65532, not 'x'"},
      {{"--port", "65533"}, "--port needs a port number 0-65532, not 65533"},
      {{"--port", "-1"}, "--port needs a port number 0-65532, not '-1'"},
      {{"--port", "99999999999"}, "--port needs a port number 0-65532, not '99999999999'"},
      {{"--bind", "example"}, "--bind needs an IPv4 address such as 127.0.0.1, not 'example'"},
      {{"--bind"}, "--bind needs an IPv4 address such as 127.0.0.1, not ''"},
      {{"--wire", "0-4"}, "--wire needs groups of channels 0-3 such as 0-2,1-3, not '0-4'"},
      {{"--noise", "many"}, "--noise needs a count of frames, not 'many'"},
      {{"--delay-answer", "0x81010005"},
       "--delay-answer needs CODE:MS such as 0x81010005:2000, not '0x81010005'"},
      {{"--delay-answer", "0x1005:10"},
       "--delay-answer needs CODE:MS such as 0x81010005:2000, not '0x1005:10'"},
      {{"--drop-answer", "5"}, "--drop-answer needs a command code such as 0x81010005, not '5'"},
      {{"--pace=1"}, "--pace takes no value"},
      {{"--close-mid-frame"}, "--close-mid-frame needs --close-after"},
  };
  for (const auto& [args, message] : cases) {
    std::string error;
    EXPECT_FALSE(ParseOptions(args, &error)) << args[0];
    EXPECT_EQ(message, error) << args[0];
  }
}

}  // namespace
}  // namespace kel::sim
