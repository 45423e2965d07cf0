#include "core/result.h"

#include <gtest/gtest.h>

#include "core/command.h"
#include "core/output.h"

namespace kel {
namespace {

TEST(ErrorTextTest, EveryCodeHasItsMessage) {
  struct Case {
    ResultCode code;
    const char* text;
  };
  const Case cases[] = {
      {0, "Ok"},
      {-1, "ERROR -1: Nok"},
      {-2, "ERROR -2: Memory allocation error"},
      {-3, "ERROR -3: Syntax error"},
      {-10, "ERROR -10: Connect failed"},
      {-11, "ERROR -11: Sending failed"},
      {-12, "ERROR -12: SendAck failed"},
      {-13, "ERROR -13: Receiving failed"},
      {-14, "ERROR -14: Matching failed"},
      {-15, "ERROR -15: Integrity failed"},
      {-100, "ERROR -100: Bad or invalid command"},
      {-101, "ERROR -101: MsgIO failed"},
      {-102, "ERROR -102: Bad or missing arguments\n"},
      {-104, "ERROR -104: Invalid baudrate\n"},
      {-110, "ERROR -110: Logging not active"},
      {-5, "ERROR -5: Unknown error code"},
      {-200, "ERROR -200: Unknown error code"},
      {kUserTermination, "0xC000013A: User termination"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, ErrorText(nullptr, c.code)) << c.code;
}

const CommandEntry kSend{.names = {"send"}};
const CommandEntry kBaud{.names = {"baud", "baudrate"}};

TEST(ErrorTextTest, HintsNameTheCommand) {
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help send')",
            ErrorText(&kSend, kErrBadArgs));
  EXPECT_EQ("ERROR -104: Invalid baudrate (try 'help baud')", ErrorText(&kBaud, kErrBadBaud));
  EXPECT_EQ("ERROR -100: Bad or invalid command", ErrorText(&kSend, kErrBadCommand));
}

TEST(ErrorTextTest, BadIoOffersTheChoicesTheProgramSet) {
  SetBadIoChoices("'P0.13'/'b1'");
  EXPECT_EQ("ERROR -103: Bad or missing io argument (try 'P0.13'/'b1')",
            ErrorText(&kSend, kErrBadIo));
}

TEST(FormatResultTest, WritesOneLineForFailuresOnly) {
  Output out(256);
  EXPECT_EQ(kErrBadArgs, FormatResult(&kSend, kErrBadArgs, out));
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help send')\r\n", out.Text());
  out.Clear();
  FormatResult(nullptr, kErrBadArgs, out);
  EXPECT_EQ("ERROR -102: Bad or missing arguments\n\r\n", out.Text());
  out.Clear();
  EXPECT_EQ(7, FormatResult(nullptr, 7, out));
  EXPECT_TRUE(out.Empty());
  Output tiny(8);
  FormatResult(nullptr, kErrNok, tiny);
  EXPECT_EQ("ERROR -", tiny.Text()) << "cut at the buffer size";
}

}  // namespace
}  // namespace kel
