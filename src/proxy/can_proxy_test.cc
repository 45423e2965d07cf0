// The proxy's pure rules: the overlap check, the port mapping and the words of the proxy
// command.

#include "proxy/can_proxy.h"

#include <gtest/gtest.h>

#include "core/command.h"
#include "proxy/proxy_command.h"

namespace kel {
namespace {

TEST(CanProxyTest, OverlapHoldsOnlyForTheLoopbackReadInMemoryOrderAndEqualPorts) {
  EXPECT_TRUE(ProxyOverlaps("1.0.0.127", 27015, 27015));
  EXPECT_TRUE(ProxyOverlaps("0x0100007F", 0, 0));  // the same address as one number
  EXPECT_FALSE(ProxyOverlaps("127.0.0.1", 27015, 27015));
  EXPECT_FALSE(ProxyOverlaps("localhost", 27015, 27015));
  EXPECT_FALSE(ProxyOverlaps("1.0.0.127", 27015, 27016));
}

TEST(CanProxyTest, LocalPortsMapToTheDevicePortPlusTheirDistanceFromTheProxyPort) {
  EXPECT_EQ(27017, UpstreamPort(27015, 27015, 27017));
  EXPECT_EQ(27020, UpstreamPort(27015, 27014, 27019));
  EXPECT_EQ(54030, UpstreamPort(27015, 0, 27015));  // `-x` alone leaves the proxy port 0
  EXPECT_EQ(6000000000, UpstreamPort(2000000000, -2000000000, 2000000000));  // no overflow
}

TEST(CanProxyTest, CommandWordsShowTheStatusOrFailWithBadArguments) {
  const CommandEntry row{.names = {"proxy"}, .handler = HandleProxy};
  const CommandEntry* entry = &row;
  const std::string stopped = "Proxy is not running.\n";
  const std::string bad = "ERROR -102: Bad or missing arguments (try 'help proxy')\r\n";
  // The proxy is stopped here and stopping keeps it so; starts need free ports.
  const struct {
    const char* rest;
    std::string output;
    const char* left;  // the executor takes the separators
  } cases[] = {
      {"", stopped, ""},      {"view", stopped, ""},        {"STATUS;int 0", stopped, ";int 0"},
      {"stop", stopped, ""},  {"Off\r\n", stopped, "\r\n"}, {"bogus", bad, ""},
      {"start now", bad, ""},
  };
  for (const auto& c : cases) {
    std::string_view rest = c.rest;
    Output out(8192);
    const ResultCode result = entry->handler(*entry, rest, out);
    EXPECT_EQ(c.output, out.Text()) << c.rest;
    EXPECT_EQ(c.left, rest) << c.rest;
    EXPECT_EQ(c.output == bad ? kErrBadArgs : static_cast<ResultCode>(c.output.size()), result);
  }
}

}  // namespace
}  // namespace kel
