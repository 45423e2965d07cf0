#pragma once

#include <cstdint>
#include <string>

namespace kel {

// The texts that show frames. Each takes the 16 bytes of one frame.

/// "[Sending 0x%08X 0x%08X 0x%08X 0x%08X]\n" for a command frame being sent.
std::string SendingCommandText(const uint8_t* frame);
/// "[Sending %02X ... %02X]\n" with the 16 bytes of a CAN data frame being sent.
std::string SendingDataText(const uint8_t* frame);
/// "[Receivd 0x%08X 0x%08X 0x%08X 0x%08X]\n" for any frame received whole.
std::string ReceivedText(const uint8_t* frame);

/// The remote trace's line: "[COMMAND] %08X %08X %08X %08X (%s)" for a command frame,
/// "[DATA] %08X %08X %02X x8 (%u/%u)" for a data frame (identifier bits 8-14 and 0-6).
std::string TraceText(const uint8_t* frame);

/// The monitor's columns of a data frame: Type ("x"/"-", "r"/"-", "s"/"-"), Ch (info
/// bits 0-1), DLC, and the data as "%02X " for as many bytes as the DLC says. A DLC
/// above 8 repeats nothing from outside the frame: bytes past the eighth show as 00.
struct MonitorColumns {
  std::string type;
  unsigned channel = 0;
  unsigned dlc = 0;
  std::string data;
};
MonitorColumns MonitorColumnsOf(const uint8_t* frame);

}  // namespace kel
