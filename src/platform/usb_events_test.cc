// USB device notices as the kernel and Windows word them.

#include "platform/usb_events.h"

#include <gtest/gtest.h>

#include <string>

namespace kel::platform {
namespace {

using namespace std::string_literals;

std::string Describe(const std::optional<UsbEvent>& event) {
  if (!event) return "none";
  char ids[16];
  std::snprintf(ids, sizeof ids, "%04x:%04x", event->vendor, event->product);
  return (event->added ? "add " : "remove ") + event->port + " " + ids;
}

TEST(UsbEventsTest, UeventsOfWholeUsbDevicesAddedOrRemovedAreEvents) {
  const std::string device = "DEVPATH=/devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1.2\0"s;
  struct Case {
    std::string message;
    std::string expected;
  };
  const Case cases[] = {
      {"add@/devices/x\0ACTION=add\0"s + device +
           "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=403/6001/600\0SEQNUM=1\0"s,
       "add 1-1.2 0403:6001"},
      {"remove@/devices/x\0ACTION=remove\0"s + device +
           "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=1d6b/2/606\0"s,
       "remove 1-1.2 1d6b:0002"},
      {"add@/x\0ACTION=add\0DEVPATH=/devices/usb1/1-1\0SUBSYSTEM=usb\0DEVTYPE=usb_device\0"
       "PRODUCT=403/6001/600"s,  // the last line without its NUL
       "add 1-1 0403:6001"},
      {"add@/x\0ACTION=add\0DEVPATH=/devices/usb1/1-1/1-1:1.0\0SUBSYSTEM=usb\0"
       "DEVTYPE=usb_interface\0PRODUCT=403/6001/600\0"s,
       "none"},  // an interface of a device
      {"bind@/x\0ACTION=bind\0"s + device + "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=1/2/3\0"s,
       "none"},
      {"add@/x\0ACTION=add\0DEVPATH=/devices/virtual/tty/ttyS9\0SUBSYSTEM=tty\0"s, "none"},
      {"add@/x\0ACTION=add\0"s + device + "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=zz/1/1\0"s,
       "none"},
      {"add@/x\0ACTION=add\0"s + device + "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=12345/1/1\0"s,
       "none"},
      {"add@/x\0ACTION=add\0"s + device + "SUBSYSTEM=usb\0DEVTYPE=usb_device\0"s, "none"},
      {"add@/x\0ACTION=add\0DEVPATH=/devices/usb1/1-1\x1b[2J%n\0SUBSYSTEM=usb\0"
       "DEVTYPE=usb_device\0PRODUCT=403/6001/600\0"s,
       "add 1-1??2J?n 0403:6001"},  // the port in plain characters only
      {"ACTION=add SUBSYSTEM=usb DEVTYPE=usb_device PRODUCT=403/6001/600", "none"},
      {"", "none"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, Describe(ParseUevent(c.message))) << c.message;
}

TEST(UsbEventsTest, WindowsInterfaceNamesGiveIdsAndInstance) {
  struct Case {
    std::string_view name;
    bool added;
    std::string_view expected;
  };
  const Case cases[] = {
      {"\\\\?\\USB#VID_0403&PID_6001#A50285BI#{a5dcbf10-6530-11d2-901f-00c04fb951ed}", true,
       "add A50285BI 0403:6001"},
      {"\\\\?\\USB#Vid_046d&Pid_c52b#6&1a2b3c&0&2#{a5dcbf10-6530-11d2-901f-00c04fb951ed}", false,
       "remove 6?1a2b3c?0?2 046d:c52b"},
      {"\\\\?\\USB#ROOT_HUB30#4&2d1f&0&0#{f18a0e88-c30c-11d0-8815-00a0c906bed8}", true, "none"},
      {"\\\\?\\USB#VID_04zz&PID_6001#X#{a5dcbf10}", true, "none"},
      {"garbage", true, "none"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, Describe(ParseDeviceInterfaceName(c.name, c.added))) << c.name;
  }
}

}  // namespace
}  // namespace kel::platform
