#pragma once

#include <cstdint>

namespace kel {

/// Command codes: 0x8000xxxx commands and events, 0x8001xxxx settings written,
/// 0x8101xxxx queries whose answer carries the values read.
namespace code {
inline constexpr uint32_t kSetOut = 0x80000100;  ///< value1 = pin mask << 16
inline constexpr uint32_t kClrOut = 0x80000101;
inline constexpr uint32_t kToggleOut = 0x80000102;
inline constexpr uint32_t kBuzzer = 0x80000110;
inline constexpr uint32_t kLedCtrl = 0x80000210;
inline constexpr uint32_t kMeasure1 = 0x80002001;
inline constexpr uint32_t kMeasure2 = 0x80002002;
inline constexpr uint32_t kMeasure3 = 0x80002003;
inline constexpr uint32_t kMeasure4 = 0x80002004;
inline constexpr uint32_t kGetMeas = 0x80002100;
inline constexpr uint32_t kGetStatus = 0x80004800;
inline constexpr uint32_t kStatus1 = 0x80004801;
inline constexpr uint32_t kStatus2 = 0x80004802;
inline constexpr uint32_t kStatus3 = 0x80004803;
inline constexpr uint32_t kStatus4 = 0x80004804;
inline constexpr uint32_t kClrEvents = 0x80004810;
inline constexpr uint32_t kOutputs = 0x80005000;
inline constexpr uint32_t kEscDown = 0x80005500;
inline constexpr uint32_t kShutdown = 0x80005501;
inline constexpr uint32_t kEscUp = 0x80005502;
inline constexpr uint32_t kReset = 0x80010000;
inline constexpr uint32_t kSetBaud = 0x80010001;  ///< value2 = bit-rate index 1-5
inline constexpr uint32_t kCanInt = 0x80010003;
inline constexpr uint32_t kCanFilterWrite = 0x80010004;
inline constexpr uint32_t kBaudrate = 0x80010005;  ///< the answer to GET_BAUD
inline constexpr uint32_t kNecnt = 0x81010002;
inline constexpr uint32_t kNfcr = 0x81010003;
inline constexpr uint32_t kNsr = 0x81010004;
inline constexpr uint32_t kGetBaud = 0x81010005;
inline constexpr uint32_t kCanFilterRead = 0x81010006;
inline constexpr uint32_t kInternal = 0xFFFFFFFF;
}  // namespace code

/// Internal command numbers carried in value2 of an INTERNAL frame.
namespace internal {
inline constexpr uint32_t kReadDebug = 0;   ///< answer value3 = debug state
inline constexpr uint32_t kWriteDebug = 1;  ///< value3 = 0 off, 1 on
/// Answer value3 = the firmware's version, major << 24 | minor << 16 | patch.
inline constexpr uint32_t kFirmwareVersion = 2;
/// Answer value3 = the zousbsocket service's version, packed the same way.
inline constexpr uint32_t kServiceVersion = 3;
inline constexpr uint32_t kStartTrace = 7;  ///< value3 = 1 starts the remote trace, 0 ends it
}  // namespace internal

/// BUZZER value3 that holds the tone until the next BUZZER frame, as the music player
/// sends it; that frame is all zeros when the tune ends.
inline constexpr uint32_t kBuzzerHeld = 0x0FFFFFFF;

/// The display name of a command code; "???" for any code not in the table.
const char* CommandCodeName(uint32_t code);

}  // namespace kel
