#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>

#include "platform/environment.h"
#include "platform/host_ports.h"

namespace kel::platform {
namespace {

namespace fs = std::filesystem;

constexpr size_t kAttributeLimit = 4096;  // sysfs attributes are one short line
constexpr int kParentLevels = 6;          // from a tty's device up to its USB device

// The first line of a sysfs attribute without its line end and trailing blanks; nothing
// when the file cannot be read.
std::optional<std::string> ReadAttribute(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text(kAttributeLimit, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  text.resize(std::min(text.size(), text.find('\n')));
  while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ') text.pop_back();
  return text;
}

// A whole attribute read as a number of `base` ("0x" allowed before hex digits); nothing
// when it is missing, empty, has anything else in it, or exceeds `limit`.
std::optional<uint32_t> ReadNumber(const fs::path& path, int base, uint32_t limit) {
  const std::optional<std::string> text = ReadAttribute(path);
  if (!text) return std::nullopt;
  std::string_view digits(*text);
  if (base == 16 && (digits.starts_with("0x") || digits.starts_with("0X"))) digits.remove_prefix(2);
  uint32_t value = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
      value > limit) {
    return std::nullopt;
  }
  return value;
}

struct Ids {
  uint16_t vendor = 0;
  uint16_t product = 0;
};

// The vendor and product ids in two hex attributes of `dir`; nothing unless both read.
std::optional<Ids> ReadIds(const fs::path& dir, const char* vendor_file, const char* product_file) {
  const std::optional<uint32_t> vendor = ReadNumber(dir / vendor_file, 16, 0xFFFF);
  const std::optional<uint32_t> product = ReadNumber(dir / product_file, 16, 0xFFFF);
  if (!vendor || !product) return std::nullopt;
  return Ids{static_cast<uint16_t>(*vendor), static_cast<uint16_t>(*product)};
}

std::string ReadText(const fs::path& path) { return ReadAttribute(path).value_or(""); }

// The entries of a directory, none when it cannot be read.
std::vector<fs::path> Entries(const fs::path& dir) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
    entries.push_back(it->path());
  }
  return entries;
}

// The number behind one of the prefixes ("ttyUSB3" -> prefix "ttyUSB", 3).
struct TtyName {
  std::string_view prefix;
  unsigned number = 0;
};

std::optional<TtyName> SplitTtyName(std::string_view name) {
  // Longest prefixes first: "ttyS" is a prefix of neither of the others, but keep it safe.
  for (const std::string_view prefix : {"ttyUSB", "ttyACM", "ttyAMA", "ttyS"}) {
    if (!name.starts_with(prefix) || name.size() == prefix.size()) continue;
    unsigned number = 0;
    for (const char c : name.substr(prefix.size())) {
      if (c < '0' || c > '9' || number > 99999) return std::nullopt;
      number = number * 10 + static_cast<unsigned>(c - '0');
    }
    return TtyName{prefix, number};
  }
  return std::nullopt;
}

// Fills in the bus of a port from its `device` link: a USB device above it, a PNP id
// (the firmware's, so "ACPI"), or a PCI function.
void DescribeBus(const fs::path& device_link, SerialPortInfo& port) {
  std::error_code error;
  const fs::path device = fs::canonical(device_link, error);
  if (error) return;
  fs::path at = device;
  for (int level = 0; level < kParentLevels && at.has_relative_path(); ++level) {
    if (const std::optional<Ids> ids = ReadIds(at, "idVendor", "idProduct")) {
      port.enumerator = "USB";
      port.vendor = ids->vendor;
      port.product = ids->product;
      port.manufacturer = ReadText(at / "manufacturer");
      port.product_text = ReadText(at / "product");
      port.serial = ReadText(at / "serial");
      return;
    }
    at = at.parent_path();
  }
  // A PNP device lists its ids one per line; the first is the one it was matched by.
  const std::string id = ReadText(device / "id");
  if (id.size() == 7 && id.starts_with("PNP")) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(id.c_str() + 3, &end, 16);
    if (end == id.c_str() + id.size()) {
      port.enumerator = "ACPI";
      port.id_text = id;
      port.product = static_cast<uint16_t>(number);
      return;
    }
  }
  if (const std::optional<Ids> ids = ReadIds(device, "vendor", "device")) {
    port.enumerator = "PCI";
    port.vendor = ids->vendor;
    port.product = ids->product;
  }
}

}  // namespace

std::string SysfsRoot() {
  const std::string root = GetEnvironment("KELCMD_SYSFS");
  return root.empty() ? "/sys" : root;
}

std::vector<UsbDeviceInfo> ListUsbDevices(const std::string& sysfs_root) {
  std::vector<UsbDeviceInfo> devices;
  for (const fs::path& entry : Entries(fs::path(sysfs_root) / "bus" / "usb" / "devices")) {
    // Interfaces ("1-1:1.0") have no numbers of their own and are left out with the rest.
    const std::optional<uint32_t> bus = ReadNumber(entry / "busnum", 10, 0xFFFF);
    const std::optional<uint32_t> number = ReadNumber(entry / "devnum", 10, 0xFFFF);
    const std::optional<Ids> ids = ReadIds(entry, "idVendor", "idProduct");
    if (!bus || !number || !ids) continue;
    UsbDeviceInfo device;
    device.bus = *bus;
    device.device = *number;
    device.vendor = ids->vendor;
    device.product = ids->product;
    device.manufacturer = ReadText(entry / "manufacturer");
    device.product_text = ReadText(entry / "product");
    device.serial = ReadText(entry / "serial");
    devices.push_back(std::move(device));
  }
  SortUsbDevices(devices);
  return devices;
}

std::vector<SerialPortInfo> ListSerialPorts(const std::string& sysfs_root) {
  std::vector<SerialPortInfo> ports;
  for (const fs::path& entry : Entries(fs::path(sysfs_root) / "class" / "tty")) {
    const std::string name = entry.filename().string();
    const std::optional<TtyName> tty = SplitTtyName(name);
    if (!tty) continue;
    // The kernel makes ttyS0 to ttyS3 (or more) whether or not a UART is there; its
    // type tells: 0 is none.
    if (tty->prefix == "ttyS" && ReadNumber(entry / "type", 10, 0xFFFF).value_or(0) == 0) continue;
    SerialPortInfo port;
    port.name = "/dev/" + name;
    if (tty->prefix == "ttyS" || tty->prefix == "ttyAMA") {
      port.description = "serial port " + std::to_string(tty->number);
    }
    DescribeBus(entry / "device", port);
    ports.push_back(std::move(port));
  }
  SortSerialPorts(ports);
  return ports;
}

}  // namespace kel::platform
