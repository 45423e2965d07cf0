#include "platform/serial_port.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/poller.h"
#include "platform/pseudo_terminal.h"
#include "support/temp_dir.h"

namespace kel::platform {
namespace {

constexpr int kLongMs = 10000;

TEST(SerialPortTest, OpenRefusesWhatIsNoSerialPortAndSaysWhy) {
  testing::TempDir dir;
  const std::string file = dir.File("plain.txt");
  testing::WriteFile(file, "not a port");
#ifdef _WIN32
  const char* missing = "COM250";
  const char* missing_reason = "no such port";
  const char* file_reason = "not a serial port";
#else
  const char* missing = "/dev/no-such-tty";
  const char* missing_reason = "No such file or directory";
  const char* file_reason = "not a terminal";
#endif
  struct Case {
    std::string name;
    std::string reason;
  };
  const Case cases[] = {{"", "no port named"}, {missing, missing_reason}, {file, file_reason}};
  for (const Case& c : cases) {
    SerialPort port;
    EXPECT_FALSE(port.Open(c.name)) << c.name;
    EXPECT_FALSE(port.IsOpen());
    EXPECT_EQ(c.reason, port.Error()) << c.name;
    EXPECT_EQ(SerialStatus::kGone, port.Read(nullptr, 0, 0).status) << "nothing to read";
  }
}

#ifdef _WIN32

TEST(SerialPortTest, AComPortOfThisMachineTakesTheLineSettings) {
  SerialPort port;
  std::string tried;
  for (int n = 1; n <= 9 && !port.IsOpen(); ++n) {
    tried = "COM" + std::to_string(n);
    port.Open(tried);
  }
  if (!port.IsOpen()) GTEST_SKIP() << "no COM port exists here (COM1-COM9 all fail to open)";
  std::array<char, 16> buffer;
  EXPECT_NE(SerialStatus::kGone, port.Read(buffer.data(), buffer.size(), 10).status) << tried;
}

#else

// The far end of a port: bytes written to the terminal's master, and read from it once the
// poller says they are there.
std::string ReadMaster(PseudoTerminal& pty, size_t count) {
  Poller poller;
  poller.AddHandle(pty.Handle(), kPollRead, 1);
  std::string got;
  std::array<PollEvent, 1> events;
  while (got.size() < count && poller.Wait(events, kLongMs) == 1) {
    std::array<char, 512> chunk;
    const SerialResult r = pty.Read(chunk.data(), chunk.size());
    if (r.status == SerialStatus::kGone) break;
    got.append(chunk.data(), r.bytes);
  }
  poller.RemoveHandle(pty.Handle());
  return got;
}

TEST(SerialPortTest, EveryByteValuePassesBothWaysUnchanged) {
  PseudoTerminal pty;
  ASSERT_TRUE(pty.Open()) << pty.Error();
  SerialPort port;
  ASSERT_TRUE(port.Open(pty.SlavePath())) << port.Error();
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);

  EXPECT_EQ(SerialStatus::kOk, port.Write(all.data(), all.size(), kLongMs).status);
  EXPECT_EQ(all, ReadMaster(pty, all.size())) << "raw: no CR/LF translation, no flow control";

  ASSERT_EQ(all.size(), pty.Write(all.data(), all.size()).bytes);
  std::string got;
  std::array<char, 512> buffer;
  while (got.size() < all.size()) {
    const SerialResult r = port.Read(buffer.data(), buffer.size(), kLongMs);
    ASSERT_EQ(SerialStatus::kOk, r.status);
    got.append(buffer.data(), r.bytes);
  }
  EXPECT_EQ(all, got) << "raw: nothing echoed, nothing translated";
  EXPECT_EQ(SerialStatus::kTimeout, port.Read(buffer.data(), buffer.size(), 50).status);
}

TEST(SerialPortTest, DiscardInputDropsWhatCameBeforeTheRequest) {
  PseudoTerminal pty;
  ASSERT_TRUE(pty.Open()) << pty.Error();
  SerialPort port;
  ASSERT_TRUE(port.Open(pty.SlavePath())) << port.Error();
  std::array<char, 16> buffer;
  ASSERT_EQ(5U, pty.Write("stale", 5).bytes);
  // One byte read shows the write has arrived, all of it, since it went in one piece.
  ASSERT_EQ(SerialStatus::kOk, port.Read(buffer.data(), 1, kLongMs).status);
  port.DiscardInput();
  ASSERT_EQ(5U, pty.Write("fresh", 5).bytes);
  const SerialResult r = port.Read(buffer.data(), buffer.size(), kLongMs);
  EXPECT_EQ("fresh", std::string(buffer.data(), r.bytes));
}

TEST(SerialPortTest, APortWhoseOtherEndGoesReportsItAtOnce) {
  PseudoTerminal pty;
  ASSERT_TRUE(pty.Open()) << pty.Error();
  SerialPort port;
  ASSERT_TRUE(port.Open(pty.SlavePath())) << port.Error();
  pty.Close();
  std::array<char, 16> buffer;
  EXPECT_EQ(SerialStatus::kGone, port.Read(buffer.data(), buffer.size(), 60000).status);
  EXPECT_EQ(SerialStatus::kGone, port.Write("x", 1, 60000).status);
}

// The terminal keeps a slave of its own open, so programs that open and close the port
// never leave the master hung up (which would wake its poller for ever).
TEST(PseudoTerminalTest, ProgramsComeAndGoWithoutTheMasterNoticing) {
  PseudoTerminal pty;
  ASSERT_TRUE(pty.Open()) << pty.Error();
  for (int i = 0; i < 3; ++i) {
    SerialPort port;
    ASSERT_TRUE(port.Open(pty.SlavePath())) << port.Error();
  }
  Poller poller;
  ASSERT_TRUE(poller.AddHandle(pty.Handle(), kPollRead, 7));
  std::array<PollEvent, 1> events;
  EXPECT_EQ(0, poller.Wait(events, 50)) << "neither readable nor hung up";
  poller.RemoveHandle(pty.Handle());
}

TEST(PseudoTerminalTest, TheLinkReplacesAnOldLinkButNoFileAndGoesWithTheTerminal) {
  testing::TempDir dir;
  const std::string link = dir.File("ttyKEL");
  const std::string file = dir.File("file");
  testing::WriteFile(file, "keep");
  {
    PseudoTerminal old;
    ASSERT_TRUE(old.Open() && old.Link(link)) << old.Error();
    PseudoTerminal pty;
    ASSERT_TRUE(pty.Open()) << pty.Error();
    ASSERT_TRUE(pty.Link(link)) << pty.Error();
    EXPECT_EQ(pty.SlavePath(), std::filesystem::read_symlink(link).string());
    old.Close();
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << "the old terminal leaves the new link";
    EXPECT_FALSE(pty.Link(file));
    EXPECT_EQ(file + " exists and is not a symbolic link", pty.Error());
    SerialPort port;
    EXPECT_TRUE(port.Open(link)) << port.Error();
  }
  EXPECT_FALSE(std::filesystem::is_symlink(link));
  EXPECT_EQ("keep", testing::ReadFile(file));
}

#endif

}  // namespace
}  // namespace kel::platform
