// The host side as a user meets it: kelcmd listing a device tree that KELCMD_SYSFS names,
// the start-up serial lookup, and -m finding a device by its MAC address inside a network
// namespace of the test's own.

#include <gtest/gtest.h>

#include <string>

#include "support/fake_sysfs.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

bool Contains(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

class HostPortsTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef _WIN32
    GTEST_SKIP() << "Windows lists its ports through SetupAPI, not from a device tree";
#endif
  }
  testing::TempDir dir_;
  testing::FakeSysfs sys_;
};

TEST_F(HostPortsTest, StartUpTakesTheFirstUartUnlessASerialPortIsGivenOrThereIsNone) {
  sys_.TypicalPc();
  const testing::ScopedEnvironment root("KELCMD_SYSFS", sys_.Root());
  testing::ProgramRun run = testing::RunKelcmd({"lscom"}, "", dir_.Path().string());
  EXPECT_EQ(0, run.status);
  EXPECT_TRUE(Contains(run.output, "/dev/ttyS0      ACPI PNP0501 serial port 0\n")) << run.output;
  run = testing::RunKelcmd({"conf"}, "", dir_.Path().string());
  EXPECT_TRUE(Contains(run.output, "DeviceSerial = /dev/ttyS0\n")) << run.output;
  run = testing::RunKelcmd({"-s/dev/ttyUSB0", "conf"}, "", dir_.Path().string());
  EXPECT_TRUE(Contains(run.output, "DeviceSerial = /dev/ttyUSB0\n")) << run.output;
  // A machine without a UART: nothing taken, nothing said.
  const testing::FakeSysfs container;
  const testing::ScopedEnvironment other("KELCMD_SYSFS", container.Root());
  run = testing::RunKelcmd({"conf"}, "", dir_.Path().string());
  EXPECT_TRUE(run.output.starts_with("[SETTINGS]") && Contains(run.output, "DeviceSerial = \n"))
      << run.output;
}

// Inside `unshare -rn`: a veth pair whose far end lies in a second namespace with its own
// address and MAC, and a permanent neighbour entry. Every datagram of the scan stays in
// these namespaces.
constexpr char kNamespaceScript[] = R"sh(set -e
kelcmd="$1"
ip link add v0 type veth peer name v1
unshare -n sleep 120 &
peer=$!
trap 'kill $peer' EXIT
while [ "$(readlink /proc/$peer/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do sleep 0.05; done
ip link set v1 netns $peer
nsenter -t $peer -n sh -c 'ip link set v1 address 02:aa:bb:cc:dd:ee && ip addr add 10.9.0.9/24 dev v1 && ip link set v1 up'
ip link set v0 up
ip addr add 10.9.0.1/24 dev v0
ip neigh add 10.9.0.7 lladdr 00:11:22:33:44:55 dev v0 nud permanent
echo "namespace ready"
set +e
"$kelcmd" -m00:11:22 addr; echo "exit $?"
"$kelcmd" -m02-AA-BB-CC-DD-EE addr; echo "exit $?"
"$kelcmd" -m66:77 addr; echo "exit $?"
)sh";

TEST(DiscoveryEndToEndTest, FindsTheDeviceInTheTableOrByScanningAndElseSaysSo) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a Linux network namespace (unshare -rn)";
#else
  testing::TempDir dir;
  testing::WriteFile(dir.File("net.sh"), kNamespaceScript);
  const testing::ProgramRun run = testing::RunProgram(
      "/usr/bin/unshare", {"-rn", "sh", dir.File("net.sh"), testing::KelcmdPath()}, "",
      dir.Path().string());
  if (!Contains(run.output, "namespace ready\n")) {
    GTEST_SKIP() << "cannot make a network namespace with a veth pair here: " << run.output;
  }
  EXPECT_TRUE(Contains(run.output,
                       "namespace ready\n"
                       "Scanning network ... found 00:11:22:33:44:55, IP 10.9.0.7\n"
                       "IP address 10.9.0.7:27015/0\r\n"
                       "exit 0\n"
                       "Scanning network ... found 02:aa:bb:cc:dd:ee, IP 10.9.0.9\n"
                       "IP address 10.9.0.9:27015/0\r\n"
                       "exit 0\n"
                       "Scanning network ... device not found!\n"
                       "exit 0\n"))
      << run.output;
#endif
}

}  // namespace
}  // namespace kel
