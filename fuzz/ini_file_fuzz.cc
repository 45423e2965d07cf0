// The INI store over any text: what it reads, written and read again, reads the same.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "config/ini_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kel::IniFile first;
  first.Parse(std::string_view(reinterpret_cast<const char*>(data), size));
  kel::IniFile second;
  second.Parse(first.Text("\r\n"));
  if (first.Sections() != second.Sections()) __builtin_trap();
  return 0;
}
