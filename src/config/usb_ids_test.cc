// The usb.ids table generator (cmake/usb_ids.cmake) on a small list of its cases
// (tests/data/usb.ids), and the lookups over the table it made.

#include "config/usb_ids.h"

#include <gtest/gtest.h>

#include <string>

#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {

UsbIdTable UsbIdsFixture();  // generated from tests/data/usb.ids

namespace {

TEST(UsbIdsTest, GeneratedTableKeepsVendorsAndProductsSortedAndSkipsEverythingElse) {
  const UsbIdTable table = UsbIdsFixture();
  // The interface line, the comments, the class list and what follows it are not in it.
  ASSERT_EQ(5U, table.vendors.size());
  ASSERT_EQ(6U, table.products.size());
  for (size_t i = 1; i < table.vendors.size(); ++i) {
    EXPECT_LT(table.vendors[i - 1].vendor, table.vendors[i].vendor);
  }
  for (size_t i = 1; i < table.products.size(); ++i) {
    EXPECT_LT(table.products[i - 1].id, table.products[i].id);
  }
}

TEST(UsbIdsTest, LookupsFindNamesAsWrittenAndNothingElse) {
  const UsbIdTable table = UsbIdsFixture();
  struct Case {
    uint16_t vendor, product;
    std::string_view vendor_name, product_name;
  };
  const Case cases[] = {
      {0x0403, 0x6001, "Future Technology Devices International, Ltd", "FT232 Serial (UART) IC"},
      {0x0403, 0x6015, "Future Technology Devices International, Ltd",
       "Bridge(I2C/SPI/UART/FIFO)"},                                         // listed out of order
      {0x0403, 0x0001, "Future Technology Devices International, Ltd", ""},  // an interface
      {0x1d6b, 0x0002, "Linux Foundation", "2.0 root hub"},  // upper-case id, blanks cut
      {0x0001, 0x7778, "Fry's Electronics", "Counterfeit flash drive [Kingston]"},
      {0xabcd, 0x00ff, "Quotes \"and\" back\\slashes; semicolons [and brackets] ?\?= trigraphs",
       "Name with a trailing CR"},
      {0x05ac, 0x12a2, "Apple, Inc.", "iPad 2 (3G; 64GB)"},
      {0xffff, 0x0000, "", ""},  // after the class list
      {0x0002, 0x0002, "", ""},
      {0x0000, 0x0009, "", ""},  // the class list's hub is no product of vendor 0
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.vendor_name, UsbVendorNameOf(table, c.vendor)) << std::hex << c.vendor;
    EXPECT_EQ(c.product_name, UsbProductNameOf(table, c.vendor, c.product))
        << std::hex << c.vendor << ":" << c.product;
  }
}

TEST(UsbIdsTest, DeviceNameTakesEachHalfFromTheTableElseFromTheDevice) {
  const UsbIdTable table = UsbIdsFixture();
  struct Case {
    uint16_t vendor, product;
    std::string_view manufacturer, product_text, expected;
  };
  const Case cases[] = {
      {0x05ac, 0x12a2, "Apple", "iPad", "Apple, Inc. iPad 2 (3G; 64GB)"},
      {0x05ac, 0x9999, "Apple", "Keyboard", "Apple, Inc. Keyboard"},
      {0x1234, 0x5678, "Maker", "Gadget", "Maker Gadget"},
      {0x1234, 0x5678, "", "Gadget", "Gadget"},
      {0x1234, 0x5678, "Maker", "", "Maker"},
      {0x1234, 0x5678, "", "", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected,
              UsbDeviceName(table, c.vendor, c.product, c.manufacturer, c.product_text));
  }
}

TEST(UsbIdsTest, MissingListGivesAnEmptyTableAndAWarningNotAFailure) {
#ifdef _WIN32
  GTEST_SKIP() << "the generator runs with the build machine's cmake, not under Windows";
#else
  testing::TempDir dir;
  testing::WriteFile(dir.File("run.cmake"), "include(" KEL_SOURCE_DIR
                                            "/cmake/usb_ids.cmake)\n"
                                            "kel_generate_usb_ids(" +
                                                dir.File("none.ids") + " " + dir.File("t.cc") +
                                                " Empty)\n");
  const testing::ProgramRun run =
      testing::RunProgram(KEL_CMAKE_COMMAND, {"-P", dir.File("run.cmake")}, "", dir.Path());
  EXPECT_EQ(0, run.status) << run.output;
  EXPECT_NE(std::string::npos, run.output.find("usb.ids not found")) << run.output;
  const std::string table = testing::ReadFile(dir.File("t.cc"));
  EXPECT_NE(std::string::npos, table.find("std::array<UsbVendorName, 0> kVendors{{\n\n}};"));
  EXPECT_NE(std::string::npos, table.find("std::array<UsbProductName, 0> kProducts{{\n\n}};"));
#endif
}

}  // namespace
}  // namespace kel
