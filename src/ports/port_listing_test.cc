// lsusb, lscom and lsport: the lines over a device tree built in a temporary directory,
// the filters, and the handler as the command table calls it.

#include "ports/port_listing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fake_sysfs.h"

namespace kel {

UsbIdTable UsbIdsFixture();  // generated from tests/data/usb.ids

namespace {

constexpr std::string_view kFtdi =
    "Future Technology Devices International, Ltd FT232 Serial (UART) IC";

std::string RunRow(std::string_view name, std::string_view argument, ResultCode* code = nullptr) {
  const CommandEntry entry{.names = {name}, .handler = HandleListPorts};
  std::string_view rest = argument;
  Output out(16384);
  const ResultCode result = HandleListPorts(entry, rest, out);
  if (code != nullptr) *code = result;
  return std::string(out.Text());
}

TEST(PortListingTest, UsbFiltersReadAsLsusbReadsThem) {
  struct Case {
    std::string_view text;
    bool valid;
    int vendor, product;
  };
  const Case cases[] = {
      {"", true, -1, -1},
      {"0403:", true, 0x0403, -1},
      {"0403:6001", true, 0x0403, 0x6001},
      {":6001", true, -1, 0x6001},
      {"1D6B:2", true, 0x1d6b, 2},
      {":", true, -1, -1},
      {"0403", false, 0, 0},
      {"04031:", false, 0, 0},
      {"0403:g001", false, 0, 0},
      {"0403:6001:1", false, 0, 0},
  };
  for (const Case& c : cases) {
    UsbFilter filter;
    ASSERT_EQ(c.valid, ParseUsbFilter(c.text, filter)) << c.text;
    if (c.valid) {
      EXPECT_TRUE(filter.vendor == c.vendor && filter.product == c.product) << c.text;
    }
  }
}

class PortTreeTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef _WIN32
    GTEST_SKIP() << "Windows lists its ports through SetupAPI, not from a device tree";
#endif
  }
  testing::FakeSysfs sys_;
};

TEST_F(PortTreeTest, LsusbLinesAreSortedWithTableNamesElseTheDevicesOwnAndFiltered) {
  sys_.TypicalPc();
  const std::vector<platform::UsbDeviceInfo> devices = platform::ListUsbDevices(sys_.Root());
  const std::string root_hub = "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n";
  const std::string arduino = "Bus 001 Device 002: ID 2341:0043 Arduino (www.arduino.cc) Uno\n";
  const std::string ftdi = "Bus 001 Device 003: ID 0403:6001 " + std::string(kFtdi) + "\n";
  struct Case {
    std::string_view filter;
    std::string expected;
  };
  const Case cases[] = {
      {"", root_hub + arduino + ftdi},
      {"0403:", ftdi},
      {"0403:6001", ftdi},
      {":0002", root_hub},
      {"0403:6015", "no USB devices found\n"},
  };
  for (const Case& c : cases) {
    UsbFilter filter;
    ASSERT_TRUE(ParseUsbFilter(c.filter, filter));
    EXPECT_EQ(c.expected, UsbListing(devices, filter, UsbIdsFixture())) << c.filter;
  }
}

TEST_F(PortTreeTest, LscomListsRealUartsAndUsbPortsWithTheirBus) {
  sys_.TypicalPc();
  const std::vector<platform::SerialPortInfo> ports = platform::ListSerialPorts(sys_.Root());
  const std::string acm = "/dev/ttyACM0    USB 2341:0043 Arduino (www.arduino.cc) Uno\n";
  const std::string uart = "/dev/ttyS0      ACPI PNP0501 serial port 0\n";
  const std::string usb =
      "/dev/ttyUSB0    USB 0403:6001 " + std::string(kFtdi) + " serial 'A50285BI'\n";
  struct Case {
    std::string_view pattern;
    std::string expected;
  };
  const Case cases[] = {
      {"", acm + uart + usb},  // ttyS1 has no UART behind it
      {"*USB*", acm + usb},
      {"/dev/ttyS?", uart},  // the name alone
      {"*a50285bi*", usb},   // letter case is not compared
      {"*bluetooth*", "no serial ports found\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, SerialListing(ports, c.pattern, UsbIdsFixture())) << c.pattern;
  }
}

TEST_F(PortTreeTest, MissingOrGarbledAttributesCostOnlyWhatTheyDescribe) {
  sys_.UsbDevice("usb2", "2-1", 2, 5, "cafe", "0001");                        // no strings
  sys_.UsbDevice("usb2", "2-2", 2, 6, "zzzz", "0001", "Bad", "vendor id");    // left out
  sys_.UsbDevice("usb2", "2-3", 2, 7, "cafe", "10001", "Big", "product id");  // left out
  sys_.UsbDevice("usb2", "2-4", 2, 10, "cafe", "0002", "Maker", "");          // half known
  sys_.Attribute("devices/usb2/2-5/busnum", "2");  // numbers, no ids: left out
  sys_.Attribute("devices/usb2/2-5/devnum", "8");
  sys_.Link("bus/usb/devices/2-5", "../../../devices/usb2/2-5");
  sys_.Tty("ttyS3", "", "garbage");  // a type that is no number: no UART to tell
  sys_.Tty("ttyS10", "", "4");       // no device link: no bus
  sys_.Tty("ttyS2", "devices/pnp0/00:06", "4");
  sys_.Attribute("devices/pnp0/00:06/id", "PNPXYZW");  // no id of the form PNPhhhh
  sys_.Tty("ttyUSB9", "devices/nowhere");              // a dangling link
  EXPECT_EQ(
      "Bus 002 Device 005: ID cafe:0001 \n"
      "Bus 002 Device 010: ID cafe:0002 Maker\n",
      UsbListing(platform::ListUsbDevices(sys_.Root()), {}, UsbIdsFixture()));
  EXPECT_EQ(
      "/dev/ttyS2      serial port 2\n"
      "/dev/ttyS10     serial port 10\n"
      "/dev/ttyUSB9    \n",
      SerialListing(platform::ListSerialPorts(sys_.Root()), "", UsbIdsFixture()));
}

TEST_F(PortTreeTest, HandlerReadsTheTreeKelcmdSysfsNamesAndDoublesPercentSigns) {
  sys_.UsbDevice("usb1", "1-1", 1, 2, "cafe", "0001", "100%", "sure");
  sys_.UsbDevice("usb1", "1-2", 1, 3, "beef", "0002", "Other");
  sys_.Tty("ttyUSB0", "devices/usb1/1-1");
  const testing::ScopedEnvironment root("KELCMD_SYSFS", sys_.Root());
  struct Case {
    std::string_view row, argument, expected;
  };
  const Case cases[] = {
      {"lsusb", "",
       "Bus 001 Device 002: ID cafe:0001 100%% sure\n"
       "Bus 001 Device 003: ID beef:0002 Other\n"},
      {"lsusb", "beef:", "Bus 001 Device 003: ID beef:0002 Other\n"},
      {"lsusb", "f00d:", "no USB devices found\n"},
      {"lscom", "", "/dev/ttyUSB0    USB cafe:0001 100%% sure\n"},
      {"lscom", "\"*ACM*\"", "no serial ports found\n"},
      {"lsport", "",
       "USB devices:\n"
       "Bus 001 Device 002: ID cafe:0001 100%% sure\n"
       "Bus 001 Device 003: ID beef:0002 Other\n"
       "Serial ports:\n"
       "/dev/ttyUSB0    USB cafe:0001 100%% sure\n"},
      {"lsport", "*Other*",
       "USB devices:\n"
       "Bus 001 Device 003: ID beef:0002 Other\n"
       "Serial ports:\n"
       "no serial ports found\n"},
  };
  for (const Case& c : cases) {
    ResultCode code = -1;
    EXPECT_EQ(c.expected, RunRow(c.row, c.argument, &code)) << c.row << " " << c.argument;
    EXPECT_EQ(static_cast<ResultCode>(c.expected.size()), code);
  }
  ResultCode code = 0;
  RunRow("lsusb", "cafe", &code);
  EXPECT_EQ(kErrBadArgs, code);
}

}  // namespace
}  // namespace kel
