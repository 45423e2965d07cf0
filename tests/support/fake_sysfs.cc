#include "support/fake_sysfs.h"

#include <filesystem>

#include "platform/environment.h"

namespace kel::testing {

namespace fs = std::filesystem;

void FakeSysfs::Attribute(std::string_view path, std::string_view text) const {
  const fs::path file = dir_.Path() / path;
  fs::create_directories(file.parent_path());
  WriteFile(file.string(), std::string(text) + "\n");
}

void FakeSysfs::Link(std::string_view path, std::string_view target) const {
  const fs::path link = dir_.Path() / path;
  fs::create_directories(link.parent_path());
  std::error_code ignored;
  fs::create_directory_symlink(fs::path(target), link, ignored);
}

void FakeSysfs::Directory(std::string_view path) const {
  fs::create_directories(dir_.Path() / path);
}

void FakeSysfs::UsbDevice(std::string_view parent, std::string_view port, unsigned bus,
                          unsigned device, std::string_view vendor, std::string_view product,
                          std::string_view manufacturer, std::string_view product_text,
                          std::string_view serial) const {
  const std::string at = "devices/" + std::string(parent) + "/" + std::string(port) + "/";
  Attribute(at + "busnum", std::to_string(bus));
  Attribute(at + "devnum", std::to_string(device));
  Attribute(at + "idVendor", vendor);
  Attribute(at + "idProduct", product);
  if (!manufacturer.empty()) Attribute(at + "manufacturer", manufacturer);
  if (!product_text.empty()) Attribute(at + "product", product_text);
  if (!serial.empty()) Attribute(at + "serial", serial);
  Link("bus/usb/devices/" + std::string(port), "../../../" + at);
}

void FakeSysfs::Tty(std::string_view name, std::string_view device, std::string_view type) const {
  const std::string at = "class/tty/" + std::string(name) + "/";
  Directory(at);
  if (!type.empty()) Attribute(at + "type", type);
  if (!device.empty()) Link(at + "device", "../../../" + std::string(device));
}

void FakeSysfs::TypicalPc() const {
  const std::string hub = "pci0000:00/0000:00:14.0/usb1";
  UsbDevice("pci0000:00/0000:00:14.0", "usb1", 1, 1, "1d6b", "0002", "Linux 6.1.0 xhci-hcd",
            "xHCI Host Controller", "0000:00:14.0");
  UsbDevice(hub, "1-1", 1, 3, "0403", "6001", "FTDI", "FT232R USB UART", "A50285BI");
  UsbDevice(hub, "1-2", 1, 2, "2341", "0043", "Arduino (www.arduino.cc)", "Uno");
  // An interface of the adapter: no numbers of its own, not a device.
  Attribute("devices/" + hub + "/1-1/1-1:1.0/bInterfaceClass", "ff");
  Link("bus/usb/devices/1-1:1.0", "../../../devices/" + hub + "/1-1/1-1:1.0");
  Directory("devices/" + hub + "/1-1/1-1:1.0/ttyUSB0");
  Directory("devices/" + hub + "/1-2/1-2:1.0");
  Attribute("devices/pnp0/00:05/id", "PNP0501");
  Directory("devices/platform/serial8250");
  Tty("ttyS0", "devices/pnp0/00:05", "4");
  Tty("ttyS1", "devices/platform/serial8250", "0");
  Tty("ttyUSB0", "devices/" + hub + "/1-1/1-1:1.0/ttyUSB0");
  Tty("ttyACM0", "devices/" + hub + "/1-2/1-2:1.0");
  Tty("tty0", "");
  Tty("console", "");
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::string& value)
    : name_(std::move(name)), saved_(platform::GetEnvironment(name_)) {
  platform::SetEnvironment(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() { platform::SetEnvironment(name_, saved_); }

}  // namespace kel::testing
