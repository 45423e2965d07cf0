#pragma once

namespace kel::text {

// The output texts of the CAN traffic commands, byte for byte.

inline constexpr char kMessagesSent[] = "%u messages sent\r\n";
inline constexpr char kSentSoFar[] = "%d/%d sent ";
inline constexpr char kSendingProgress[] = "Sending CAN data: %u / %u @ %u msg/s\n";

inline constexpr char kMessagesReceived[] = "%u messages received\r\n";
inline constexpr char kReceivedSoFar[] = "%d/%d received ";
inline constexpr char kReceivingProgress[] = "Receiving CAN data: %u / %u @ %u msg/s\n";

inline constexpr char kFilterNotSet[] = "CAN filter not set\n";
inline constexpr char kFilterMatch[] = "0x%X ";
inline constexpr char kFilterMatchBreak[] = "\n  ";
inline constexpr char kFilterListEnd[] = "\n";
inline constexpr char kFilterTotal[] = "Total %u CAN ID matches\n";

}  // namespace kel::text
