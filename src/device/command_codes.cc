#include "device/command_codes.h"

namespace kel {

const char* CommandCodeName(uint32_t value) {
  switch (value) {
    case code::kSetOut: return "SET_OUT";
    case code::kClrOut: return "CLR_OUT";
    case code::kToggleOut: return "TOGGLE_OUT";
    case code::kBuzzer: return "BUZZER";
    case code::kLedCtrl: return "LED_CTRL";
    case code::kMeasure1: return "MEASURE_1";
    case code::kMeasure2: return "MEASURE_2";
    case code::kMeasure3: return "MEASURE_3";
    case code::kMeasure4: return "MEASURE_4";
    case code::kGetMeas: return "GET_MEAS";
    case code::kGetStatus: return "GET_STATUS";
    case code::kStatus1: return "STATUS_1";
    case code::kStatus2: return "STATUS_2";
    case code::kStatus3: return "STATUS_3";
    case code::kStatus4: return "STATUS_4";
    case code::kClrEvents: return "CLR_EVENTS";
    case code::kOutputs: return "OUTPUTS";
    case code::kEscDown: return "ESC_DOWN";
    case code::kShutdown: return "SHUTDOWN";
    case code::kEscUp: return "ESC_UP";
    case code::kReset: return "RESET";
    case code::kSetBaud: return "SET_BAUD";
    case code::kCanInt: return "CAN_INT";
    case code::kCanFilterWrite: return "CAN_FILTER";
    case code::kBaudrate: return "BAUDRATE";
    case code::kNecnt: return "NECNT";
    case code::kNfcr: return "NFCR";
    case code::kNsr: return "NSR";
    case code::kGetBaud: return "GET_BAUD";
    case code::kCanFilterRead: return "CAN_FILTER";
    case code::kInternal: return "INTERNAL";
    default: return "???";
  }
}

}  // namespace kel
