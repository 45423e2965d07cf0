#include "config/settings.h"

#include "core/console.h"
#include "core/parse.h"

namespace kel {
namespace {

constexpr uint64_t kMiB = 1048576;

std::string FileNameOrDefault(std::string_view file_name) {
  return std::string(file_name.empty() ? kDefaultSettingsFile : file_name);
}

}  // namespace

Settings& CurrentSettings() {
  static Settings settings;
  return settings;
}

bool LoadSettings(std::string_view file_name) {
  IniFile doc;
  if (!doc.Load(FileNameOrDefault(file_name))) return false;
  Settings& s = CurrentSettings();
  auto text = [&doc](std::string_view section, std::string_view key) {
    return doc.Find(section, key);
  };
  auto value = [&doc](std::string_view section, std::string_view key, auto& field) {
    if (const std::string* v = doc.Find(section, key)) {
      field = static_cast<std::remove_reference_t<decltype(field)>>(ParseValue(*v));
    }
  };
  auto flag = [&doc](std::string_view section, std::string_view key, bool& field) {
    if (const std::string* v = doc.Find(section, key)) field = ParseValue(*v) != 0;
  };

  if (const std::string* v = text("SETTINGS", "DeviceAddr")) s.device_address = Unquote(*v);
  if (const std::string* v = text("SETTINGS", "DevicePort")) s.device_port = ParseDecimal(*v);
  if (const std::string* v = text("SETTINGS", "DeviceChannel")) s.device_channel = ParseDecimal(*v);
  if (const std::string* v = text("SETTINGS", "DeviceSerial")) s.serial_port = *v;
  flag("DEBUG", "Socket", s.debug_socket);
  flag("DEBUG", "Worker", s.debug_worker);
  flag("DEBUG", "Capture", s.debug_capture);
  flag("PROXY", "ProxyMode", s.proxy_mode);
  value("PROXY", "ProxyPort", s.proxy_port);
  value("LOGGING", "Active", s.logging_active);
  if (const std::string* v = text("LOGGING", "FileSizeM")) {
    s.log_slice_size = uint64_t{ParseValue(*v)} * kMiB;
  }
  value("LOGGING", "FileCount", s.log_slice_count);
  if (const std::string* v = text("LOGGING", "FileName"); v != nullptr && !v->empty()) {
    s.log_file_name = Unquote(*v);
  }
  if (const std::string* v = text("LOGGING", "FilePath")) s.log_file_path = Unquote(*v);
  value("LOGGING", "USBNotify", s.log_usb_notify);
  value("LOGGING", "WinDebug", s.log_win_debug);
  return true;
}

IniFile SettingsDocument() {
  const Settings& s = CurrentSettings();
  IniFile doc;
  doc.Set("SETTINGS", "DeviceAddr", s.device_address);
  doc.SetInt("SETTINGS", "DevicePort", s.device_port);
  doc.SetInt("SETTINGS", "DeviceChannel", s.device_channel);
  doc.Set("SETTINGS", "DeviceSerial", s.serial_port);
  doc.SetInt("DEBUG", "Socket", s.debug_socket);
  doc.SetInt("DEBUG", "Worker", s.debug_worker);
  doc.SetInt("DEBUG", "Capture", s.debug_capture);
  doc.SetInt("PROXY", "ProxyMode", s.proxy_mode);
  doc.SetInt("PROXY", "ProxyPort", s.proxy_port);
  doc.SetInt("LOGGING", "Active", s.logging_active);
  doc.SetInt("LOGGING", "FileSizeM", static_cast<int64_t>(s.log_slice_size / kMiB));
  doc.SetInt("LOGGING", "FileCount", s.log_slice_count);
  doc.Set("LOGGING", "FileName", s.log_file_name);
  doc.Set("LOGGING", "FilePath", s.log_file_path);
  doc.SetInt("LOGGING", "USBNotify", s.log_usb_notify);
  doc.SetInt("LOGGING", "WinDebug", s.log_win_debug);
  return doc;
}

bool SaveSettings(std::string_view file_name) {
  return SettingsDocument().Save(FileNameOrDefault(file_name));
}

void ShowSettings() { ConsoleWrite(SettingsDocument().Text("\n")); }

}  // namespace kel
