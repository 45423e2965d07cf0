// The port lookup: which port each part of a lookup selects, and the start-up lookup over
// a device tree built in a temporary directory.

#include "config/serial_lookup.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/fake_sysfs.h"

namespace kel {
namespace {

platform::SerialPortInfo Port(std::string name, std::string enumerator, uint16_t vendor,
                              uint16_t product, std::string description = {}) {
  platform::SerialPortInfo port;
  port.name = std::move(name);
  port.enumerator = std::move(enumerator);
  port.vendor = vendor;
  port.product = product;
  port.description = std::move(description);
  if (port.enumerator == "ACPI") port.id_text = "PNP0501";
  return port;
}

TEST(SerialLookupTest, EveryPartOfTheLookupMustMatch) {
  const std::vector<platform::SerialPortInfo> ports = {
      Port("/dev/ttyS1", "ACPI", 0, 0x0501, "serial port 1"),
      Port("/dev/ttyS0", "ACPI", 0, 0x0501, "serial port 0"),
      Port("/dev/ttyUSB0", "USB", 0x0403, 0x6001),
      Port("/dev/ttyACM0", "USB", 0x2341, 0x0043),
  };
  constexpr PortIds kAny{};
  struct Case {
    std::string_view enumerator;
    PortIds first, second;
    std::string_view description, expected;
  };
  const Case cases[] = {
      // The start-up lookup: ACPI ports have no vendor number, so 12 is not compared.
      {"ACPI", {12, 0x0501}, kAny, "*serial port 0*", "/dev/ttyS0"},
      {"acpi", {12, 0x0501}, kAny, "*SERIAL PORT 0*", "/dev/ttyS0"},
      {"ACPI", {12, 0x0501}, kAny, "", "/dev/ttyS1"},  // the first in the list
      {"ACPI", {12, 0x0502}, kAny, "", ""},
      {"USB", {12, kAnyId}, kAny, "", ""},  // a USB port's vendor is compared
      {"USB", {0x2341, kAnyId}, kAny, "", "/dev/ttyACM0"},
      {"USB", kAny, {kAnyId, 0x6001}, "", "/dev/ttyUSB0"},  // both pairs must match
      {"USB", {0x0403, kAnyId}, {kAnyId, 0x0043}, "", ""},
      {"U*", kAny, kAny, "*0403:6001*", "/dev/ttyUSB0"},  // the description is the whole text
      {"", kAny, kAny, "", "/dev/ttyS1"},
      {"PCI", kAny, kAny, "", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected,
              FindSerialPort(ports, c.enumerator, c.first, c.second, c.description, UsbIdTable{}))
        << c.enumerator << " " << c.description;
  }
}

TEST(SerialLookupTest, StartUpLookupTakesTheFirstUartOfTheTreeElseNothing) {
#ifdef _WIN32
  GTEST_SKIP() << "Windows lists its ports through SetupAPI, not from a device tree";
#else
  testing::FakeSysfs pc;
  pc.TypicalPc();
  testing::FakeSysfs container;  // USB adapters only, no UART
  container.UsbDevice("usb1", "1-1", 1, 2, "0403", "6001");
  container.Tty("ttyUSB0", "devices/usb1/1-1");
  container.Tty("ttyS0", "", "0");
  {
    const testing::ScopedEnvironment root("KELCMD_SYSFS", pc.Root());
    EXPECT_EQ("/dev/ttyS0", LookupStartupSerialPort());
  }
  const testing::ScopedEnvironment root("KELCMD_SYSFS", container.Root());
  EXPECT_EQ("", LookupStartupSerialPort());
#endif
}

}  // namespace
}  // namespace kel
