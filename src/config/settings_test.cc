#include "config/settings.h"

#include <gtest/gtest.h>

#include "shell/executor.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override { CurrentSettings() = Settings(); }
  void TearDown() override { CurrentSettings() = Settings(); }

  std::string RunLine(std::string_view line, ResultCode* result = nullptr) {
    Output out(16384);
    const ResultCode r = RunCommandLine(DeviceTarget{"127.0.0.1", 1}, line, out);
    if (result != nullptr) *result = r;
    return std::string(out.Text());
  }

  testing::TempDir dir_;
};

TEST_F(SettingsTest, LoadsEveryKeyWithItsRule) {
  testing::WriteFile(dir_.File("k.ini"),
                     "[SETTINGS]\nDeviceAddr =  \"10.1.2.3\" \nDevicePort = 2000x\n"
                     "DeviceChannel = 2\nDeviceSerial = \"COM3\"\n"
                     "[DEBUG]\nSocket = on\nWorker = 0x0\nCapture = TRUE\n"
                     "[PROXY]\nProxyMode = 1\nProxyPort = 0x10\n"
                     "[LOGGING]\nActive = 1\nFileSizeM = 3\nFileCount = 4\nFileName =\n"
                     "FilePath = \"logs dir\"\nUSBNotify = on\nWinDebug = 'A'\n");
  ASSERT_TRUE(LoadSettings(dir_.File("k.ini")));
  const Settings& s = CurrentSettings();
  EXPECT_EQ("10.1.2.3", s.device_address);
  EXPECT_EQ(2000, s.device_port);
  EXPECT_EQ(2, s.device_channel);
  EXPECT_EQ("\"COM3\"", s.serial_port) << "the serial name is copied as it stands";
  EXPECT_TRUE(s.debug_socket);
  EXPECT_FALSE(s.debug_worker);
  EXPECT_TRUE(s.debug_capture);
  EXPECT_TRUE(s.proxy_mode);
  EXPECT_EQ(16, s.proxy_port);
  EXPECT_EQ(1U, s.logging_active);
  EXPECT_EQ(3U * 1048576, s.log_slice_size);
  EXPECT_EQ(4U, s.log_slice_count);
  EXPECT_EQ("kelcmd.log", s.log_file_name) << "an empty name keeps the default";
  EXPECT_EQ("logs dir", s.log_file_path);
  EXPECT_EQ(1U, s.log_usb_notify);
  EXPECT_EQ(65U, s.log_win_debug);
}

TEST_F(SettingsTest, MissingFileOrSectionsKeepWhatIsThere) {
  CurrentSettings().device_port = 1234;
  EXPECT_FALSE(LoadSettings(dir_.File("missing.ini")));
  EXPECT_EQ(1234, CurrentSettings().device_port);
  testing::WriteFile(dir_.File("partial.ini"), "[SETTINGS]\nDevicePort = 999");
  ASSERT_TRUE(LoadSettings(dir_.File("partial.ini")));
  EXPECT_EQ(999, CurrentSettings().device_port);
  EXPECT_EQ(0xA00000U, CurrentSettings().log_slice_size);
  EXPECT_EQ("kelcmd.log", CurrentSettings().log_file_name);
}

TEST_F(SettingsTest, SaveWritesEveryKeyInOrderAndRoundTrips) {
  Settings& s = CurrentSettings();
  s.device_channel = 3;
  s.debug_serial = true;
  s.log_slice_size = 5 * 1048576 + 12345;
  ASSERT_TRUE(SaveSettings(dir_.File("s.ini")));
  EXPECT_EQ(
      "[SETTINGS]\r\nDeviceAddr = 127.0.0.1\r\nDevicePort = 27015\r\nDeviceChannel = 3\r\n"
      "DeviceSerial = \r\n[DEBUG]\r\nSocket = 0\r\nWorker = 0\r\nCapture = 0\r\n"
      "[PROXY]\r\nProxyMode = 0\r\nProxyPort = 27015\r\n"
      "[LOGGING]\r\nActive = 0\r\nFileSizeM = 5\r\nFileCount = 10\r\nFileName = kelcmd.log\r\n"
      "FilePath = \r\nUSBNotify = 0\r\nWinDebug = 0\r\n",
      testing::ReadFile(dir_.File("s.ini")));
  CurrentSettings() = Settings();
  ASSERT_TRUE(LoadSettings(dir_.File("s.ini")));
  EXPECT_EQ(3, CurrentSettings().device_channel);
  EXPECT_EQ(5U * 1048576, CurrentSettings().log_slice_size) << "whole MiB survive";
  EXPECT_FALSE(CurrentSettings().debug_serial) << "the serial trace flag is never saved";
}

TEST_F(SettingsTest, ConfLoadsAndSavesOnlyTheDefaultFile) {
  testing::ScopedWorkingDir cwd(dir_.Path());
  EXPECT_EQ("Loading configs failed\n", RunLine("conf load"));
  EXPECT_EQ("Saving configs OK\n", RunLine("config SAVE"));
  CurrentSettings().device_port = 1;
  EXPECT_EQ("Loading configs OK\n", RunLine("conf load"));
  EXPECT_EQ(27015, CurrentSettings().device_port);
  ResultCode result = 0;
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help conf')\r\n",
            RunLine("conf load other.ini", &result));
  EXPECT_EQ(kErrBadArgs, result);
  EXPECT_EQ("", RunLine("conf view", &result));
  EXPECT_EQ(kOk, result);
}

TEST_F(SettingsTest, AddrSetsWhatIsValidAndReportsTheTarget) {
  EXPECT_EQ("IP address 127.0.0.1:27015/0\r\n", RunLine("addr"));
  EXPECT_EQ("IP address 127.0.0.1:27015/2\r\n", RunLine("addr /2"));
  EXPECT_EQ("IP address 10.0.0.7:27015/2\r\n", RunLine("address 10.0.0.7:0"));
  EXPECT_EQ("IP address 10.0.0.8:2000/1\r\n", RunLine("addr 10.0.0.8:2000/1"));
  ResultCode result = 0;
  for (const char* bad : {"addr /4", "addr 0.0.0.0", "addr x", "addr 255.255.255.255"}) {
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help addr')\r\n", RunLine(bad, &result))
        << bad;
    EXPECT_EQ(kErrBadArgs, result);
  }
  EXPECT_EQ("10.0.0.8", CurrentSettings().device_address);
  EXPECT_EQ(2000, CurrentSettings().device_port);
  EXPECT_EQ(1, CurrentSettings().device_channel);
}

}  // namespace
}  // namespace kel
