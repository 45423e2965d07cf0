// The proxy's pure rules: the overlap check, the port mapping, the status line, the words
// of the proxy command and which messages the console shows.

#include "proxy/can_proxy.h"

#include <gtest/gtest.h>

#include "config/settings.h"
#include "proxy/proxy_command.h"
#include "shell/command.h"

namespace kel {
namespace {

TEST(CanProxyTest, OverlapHoldsOnlyForTheRawLoopbackCompareAndEqualPorts) {
  struct Case {
    const char* address;
    int32_t device_port;
    int32_t proxy_port;
    bool overlaps;
  };
  const Case cases[] = {
      {"1.0.0.127", 27015, 27015, true},   // reads as 0x7F000001 in memory order
      {"1.0.0.127 ", 27015, 27015, true},  // trailing blanks are allowed by the parser
      {"0x0100007F", 27015, 27015, true},  // 1.0.0.127 as one number
      {"16777343", 27015, 27015, true},
      {"127.0.0.1", 27015, 27015, false},  // the loopback text itself does not overlap
      {"1.0.0.127", 27015, 27016, false},
      {"1.0.0.127", 0, 0, true},
      {"localhost", 27015, 27015, false},
      {"", 27015, 27015, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.overlaps, ProxyOverlaps(c.address, c.device_port, c.proxy_port))
        << c.address << " " << c.device_port << "/" << c.proxy_port;
  }
}

TEST(CanProxyTest, LocalPortsMapToTheDevicePortPlusTheirDistanceFromTheProxyPort) {
  struct Case {
    int32_t device_port;
    int32_t proxy_port;
    int32_t local_port;
    int64_t upstream;
  };
  const Case cases[] = {
      {27015, 27015, 27017, 27017},  // equal settings: every port to its own number
      {27015, 27014, 27015, 27016},  // proxy port one lower: one higher
      {27015, 27014, 27019, 27020},
      {27015, 0, 27015, 54030},                           // `-x` alone leaves the proxy port 0
      {2000000000, -2000000000, 2000000000, 6000000000},  // no overflow
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.upstream, UpstreamPort(c.device_port, c.proxy_port, c.local_port))
        << c.device_port << " " << c.proxy_port << " " << c.local_port;
  }
}

TEST(CanProxyTest, StatusLineNamesTheState) {
  EXPECT_EQ("Proxy is running.\n", ProxyStatusText(true));
  EXPECT_EQ("Proxy is not running.\n", ProxyStatusText(false));
}

TEST(CanProxyTest, CommandWordsShowTheStatusOrFailWithBadArguments) {
  const CommandEntry* entry = FindCommand("proxy");
  ASSERT_NE(nullptr, entry);
  ASSERT_EQ(&HandleProxy, entry->handler);
  struct Case {
    const char* rest;
    const char* output;
    const char* left;  // what the handler leaves of the text (the executor takes separators)
  };
  // The proxy is not running here, and stopping it keeps it so; starting is covered where
  // free ports are found.
  const Case cases[] = {
      {"", "Proxy is not running.\n", ""},
      {"view", "Proxy is not running.\n", ""},
      {"STATUS;int 0", "Proxy is not running.\n", ";int 0"},
      {"stop", "Proxy is not running.\n", ""},
      {"Off\r\n", "Proxy is not running.\n", "\r\n"},
      {"bogus", "ERROR -102: Bad or missing arguments (try 'help proxy')\r\n", ""},
      {"start now", "ERROR -102: Bad or missing arguments (try 'help proxy')\r\n", ""},
      {"stop ", "ERROR -102: Bad or missing arguments (try 'help proxy')\r\n", ""},
  };
  for (const Case& c : cases) {
    std::string_view rest = c.rest;
    Output out(8192);
    const ResultCode result = entry->handler(*entry, rest, out);
    EXPECT_EQ(c.output, out.Text()) << c.rest;
    EXPECT_EQ(std::string_view(c.left), rest) << c.rest;
    if (out.Text().starts_with("ERROR")) {
      EXPECT_EQ(kErrBadArgs, result) << c.rest;
    } else {
      EXPECT_EQ(static_cast<ResultCode>(out.Length()), result) << c.rest;
    }
  }
  EXPECT_FALSE(ProxyRunning());
}

TEST(CanProxyTest, ConsoleShowsTraceTextsOnlyUnderDebugSocket) {
  MessageSink& sink = ConsoleMessageSink();
  bool& debug_socket = CurrentSettings().debug_socket;
  const bool saved = debug_socket;
  for (const bool on : {false, true}) {
    debug_socket = on;
    EXPECT_TRUE(sink.Shows(MessageLevel::kError));
    EXPECT_TRUE(sink.Shows(MessageLevel::kInfo));
    EXPECT_EQ(on, sink.Shows(MessageLevel::kTrace));
  }
  debug_socket = saved;
}

}  // namespace
}  // namespace kel
