#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "config/ini_file.h"

namespace kel {

/// The process-wide configuration: the device target, the debug flags, the proxy and
/// logging options. Read from kelcmd.ini at start, changed by options and commands.
struct Settings {
  std::string device_address = "127.0.0.1";
  int32_t device_port = 27015;
  int32_t device_channel = 0;
  std::string serial_port;

  bool debug_socket = false;   ///< trace device socket traffic
  bool debug_worker = false;   ///< show the consoles of test workers
  bool debug_capture = false;  ///< capture the standard output of workers
  bool debug_serial = false;   ///< trace serial traffic; never read from or saved to the file

  bool proxy_mode = false;
  int32_t proxy_port = 27015;

  uint32_t logging_active = 0;
  uint64_t log_slice_size = 0xA00000;  ///< bytes; the file keeps whole MiB
  uint32_t log_slice_count = 10;
  std::string log_file_name = "kelcmd.log";
  std::string log_file_path;
  uint32_t log_usb_notify = 0;
  uint32_t log_win_debug = 0;

  /// The TCP port device commands connect to.
  int DeviceTcpPort() const { return device_port + device_channel; }
};

inline constexpr std::string_view kDefaultSettingsFile = "kelcmd.ini";

Settings& CurrentSettings();

/// Reads the settings file (`file_name` empty means kelcmd.ini) over the current
/// settings. False, with nothing changed, when the file cannot be read.
bool LoadSettings(std::string_view file_name);

/// Writes the current settings, replacing the file. False when it cannot be written.
bool SaveSettings(std::string_view file_name);

/// The current settings as the document SaveSettings writes.
IniFile SettingsDocument();

/// Writes the current settings, in file form, to the console.
void ShowSettings();

}  // namespace kel
