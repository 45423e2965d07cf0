#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kel {

/// A vendor's name in the usb.ids table.
struct UsbVendorName {
  uint16_t vendor = 0;
  const char* name = "";
};

/// A product's name: `id` is vendor << 16 | product.
struct UsbProductName {
  uint32_t id = 0;
  const char* name = "";
};

/// The USB vendor and product names of the public usb.ids list, both arrays sorted by id.
struct UsbIdTable {
  std::span<const UsbVendorName> vendors;
  std::span<const UsbProductName> products;
};

/// The table generated from usb.ids when the build was configured; empty when the list
/// was not installed then.
UsbIdTable UsbIds();

/// The vendor's name, or "" when the table does not know it.
std::string_view UsbVendorNameOf(const UsbIdTable& table, uint16_t vendor);

/// The product's name, or "" when the table does not know it.
std::string_view UsbProductNameOf(const UsbIdTable& table, uint16_t vendor, uint16_t product);

/// The names lsusb shows for a device: "<vendor> <product>", each half from the table,
/// else from what the device tells of itself (`manufacturer`, `product_text`), else left
/// out; "" when neither half is known.
///   (0x0403, 0x6001) -> "Future Technology Devices International, Ltd FT232 Serial (UART) IC"
std::string UsbDeviceName(const UsbIdTable& table, uint16_t vendor, uint16_t product,
                          std::string_view manufacturer = {}, std::string_view product_text = {});

}  // namespace kel
