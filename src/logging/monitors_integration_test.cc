// The debug-output and USB-notify monitors inside the logging service: what a message
// becomes in the log file, the status lines, and a monitor that cannot start.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "config/settings.h"
#include "core/parse.h"
#include "logging/log_command.h"
#include "logging/logging_service.h"
#include "logging/parsed_log.h"
#include "platform/clock.h"
#include "platform/debug_output.h"
#include "platform/process_info.h"
#include "platform/socket.h"
#include "platform/usb_events.h"
#include "support/fake_sysfs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using namespace std::string_literals;

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

bool WaitFor(const std::function<bool()>& done) {
  for (const uint64_t start = platform::MonotonicMs(); !done(); platform::SleepMs(5)) {
    if (platform::MonotonicMs() - start > kWaitMs) return false;
  }
  return true;
}

// A loopback port that refuses connections: the service logs notes only.
int ClosedPort() {
  const platform::Socket listener = platform::ListenTcp({InetAddr("127.0.0.1"), 0}, 1);
  return platform::LocalAddress(listener).port;
}

class MonitorsTest : public ::testing::Test {
 protected:
  LoggingConfig Config(bool debug_monitor, bool usb_monitor) const {
    LoggingConfig config;
    config.base_port = port_;
    config.path = dir_.Path().string();
    config.debug_monitor = debug_monitor;
    config.usb_monitor = usb_monitor;
    return config;
  }

  std::vector<std::string> Notes() const {
    return ParseLog(testing::ReadFile(dir_.File(LogFileName("", "kelcmd.log", "", 0)))).notes;
  }

  bool WaitForNotes(size_t count) const {
    return WaitFor([&] { return Notes().size() >= count; });
  }

  testing::TempDir dir_;
  // The debug-output socket lies in the test's own directory, never a shared one.
  testing::ScopedEnvironment runtime_{"XDG_RUNTIME_DIR", dir_.Path().string()};
  const int port_ = ClosedPort();
};

// One test for both rules: on Windows the debug output is one for the whole machine, so
// tests taking it must not run side by side.
TEST_F(MonitorsTest, DebugOutputBecomesNotesOfTheOneReaderThatHoldsIt) {
  const std::string path = platform::DebugOutputPath();
  {
    // Held by another reader: the monitor stays off, logging runs, the other one reads.
    platform::DebugOutputReader other;
    ASSERT_TRUE(other.Open(path));
    LoggingService service;
    LoggingConfig config = Config(true, false);
    config.name = "first.log";  // the second run below starts kelcmd.log afresh
    service.Start(config);
    const LoggingStatus status = service.Status();
    EXPECT_TRUE(status.active && status.running);
    EXPECT_FALSE(status.debug_monitor);
    EXPECT_EQ(std::string::npos, LoggingStatusText(status, Settings{}).find("WinDebug"));
    EXPECT_GT(service.Note("COMMENT 'still logging'"), 0U);
    ASSERT_TRUE(platform::WriteDebugOutput(path, "for the other"));
    platform::DebugMessage message;
    ASSERT_TRUE(other.Receive(message, kWaitMs));
    EXPECT_EQ("for the other", message.text);
    service.Stop();
  }
  LoggingService service;
  service.Start(Config(true, false));
  ASSERT_TRUE(service.Status().debug_monitor);
  EXPECT_NE(
      std::string::npos,
      LoggingStatusText(service.Status(), Settings{}).find(" + WinDebug monitor activated\n"));
  ASSERT_TRUE(platform::WriteDebugOutput(path, "<13>Nov 24 16:41:04 test: started\n"));
  ASSERT_TRUE(platform::WriteDebugOutput(path, "%n%s\x1b[2J\r\nnext"));
  ASSERT_TRUE(platform::WriteDebugOutput(path, std::string(64 * 1024, 'x')));
  ASSERT_TRUE(WaitForNotes(3));
  service.Stop();

  const unsigned pid = platform::CurrentProcessId();
  const std::string who =
      "WINDBG: [" + std::to_string(pid) + "-" + platform::ProcessName(pid) + "] ";
  const std::vector<std::string> notes = Notes();
  ASSERT_EQ(3U, notes.size());
  EXPECT_EQ(who + "test: started", notes[0]);
  EXPECT_EQ(who + "%n%s\\x1B[2J\\x0D\\x0Anext", notes[1]);
  // Cut to the note's limit (Windows' buffer takes less).
  const std::string& big = notes[2];
  EXPECT_TRUE(big.starts_with(who + "xxxx") &&
              big.find_first_not_of('x', who.size()) == std::string::npos)
      << big.substr(0, 100);
  EXPECT_TRUE(big.size() <= 8191 && big.size() > 4000) << big.size();
#ifndef _WIN32
  EXPECT_EQ(8191U, big.size());
  EXPECT_FALSE(std::filesystem::exists(path)) << "the socket file goes with the monitor";
#endif
}

TEST_F(MonitorsTest, SocketFileLeftBehindIsTakenOver) {
#ifdef _WIN32
  GTEST_SKIP() << "Windows' debug output has no socket file";
#else
  testing::WriteFile(platform::DebugOutputPath(), "left behind");
  DebugOutputMonitor monitor;
  EXPECT_TRUE(monitor.Start([](uint32_t, const std::string&, std::string_view) {}));
#endif
}

TEST_F(MonitorsTest, UsbDevicesComingAndGoingBecomeNotesAndShowInTheStatus) {
  platform::Socket kernel;
  platform::Socket seam;
  ASSERT_TRUE(platform::DatagramPair(kernel, seam));
  LoggingService service;
  service.SetUsbEventSource(
      [&seam] { return std::make_unique<platform::UsbEventSource>(std::move(seam)); });
  service.Start(Config(false, true));
  const LoggingStatus status = service.Status();
  ASSERT_TRUE(status.usb_monitor);
  EXPECT_EQ(
      "Logging is active and running (10MiB * 10 files)\n"
      " + 1 files / 0 MiB written\n"
      " + name 'kelcmd.log'\n"
      " + path ''\n"
      " + USB-notify monitor activated\n",
      LoggingStatusText(status, Settings{}));

  const std::string device = "DEVPATH=/devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1.2\0"s;
  for (const std::string& message :
       {"add@/x\0ACTION=add\0"s + device +
            "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=cafe/1/100\0"s,
        "add@/x\0ACTION=add\0DEVPATH=/devices/usb1/1-1/1-1.2/1-1.2:1.0\0SUBSYSTEM=usb\0"
        "DEVTYPE=usb_interface\0PRODUCT=cafe/1/100\0"s,
        "garbage"s,
        "remove@/x\0ACTION=remove\0"s + device +
            "SUBSYSTEM=usb\0DEVTYPE=usb_device\0PRODUCT=cafe/1/100\0"s}) {
    ASSERT_EQ(platform::IoStatus::kOk,
              platform::Send(kernel, message.data(), message.size()).status);
  }
  ASSERT_TRUE(WaitForNotes(2));
  service.Stop();
  EXPECT_FALSE(service.Status().usb_monitor);
  EXPECT_EQ((std::vector<std::string>{"USBNTF: add 1-1.2 ID cafe:0001",
                                      "USBNTF: remove 1-1.2 ID cafe:0001"}),
            Notes());
}

TEST_F(MonitorsTest, UsbSourceThatCannotOpenLeavesTheMonitorOff) {
  LoggingService service;
  service.SetUsbEventSource([] { return std::unique_ptr<platform::UsbEventSource>(); });
  service.Start(Config(false, true));
  EXPECT_TRUE(service.Status().active);
  EXPECT_FALSE(service.Status().usb_monitor);
}

}  // namespace
}  // namespace kel
