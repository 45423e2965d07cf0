#include "config/usb_ids.h"

#include <algorithm>

namespace kel {

std::string_view UsbVendorNameOf(const UsbIdTable& table, uint16_t vendor) {
  const auto it =
      std::lower_bound(table.vendors.begin(), table.vendors.end(), vendor,
                       [](const UsbVendorName& entry, uint16_t id) { return entry.vendor < id; });
  return it != table.vendors.end() && it->vendor == vendor ? it->name : "";
}

std::string_view UsbProductNameOf(const UsbIdTable& table, uint16_t vendor, uint16_t product) {
  const uint32_t id = uint32_t{vendor} << 16 | product;
  const auto it = std::lower_bound(
      table.products.begin(), table.products.end(), id,
      [](const UsbProductName& entry, uint32_t wanted) { return entry.id < wanted; });
  return it != table.products.end() && it->id == id ? it->name : "";
}

std::string UsbDeviceName(const UsbIdTable& table, uint16_t vendor, uint16_t product,
                          std::string_view manufacturer, std::string_view product_text) {
  std::string_view first = UsbVendorNameOf(table, vendor);
  if (first.empty()) first = manufacturer;
  std::string_view second = UsbProductNameOf(table, vendor, product);
  if (second.empty()) second = product_text;
  std::string name(first);
  if (!name.empty() && !second.empty()) name += ' ';
  name += second;
  return name;
}

}  // namespace kel
