#include "device/frame.h"

namespace kel {

FrameBytes EncodeCommand(const CommandFrame& frame) {
  FrameBytes bytes{};
  SetFrameWord(bytes.data(), 0, frame.command);
  SetFrameWord(bytes.data(), 1, frame.value1);
  SetFrameWord(bytes.data(), 2, frame.value2);
  SetFrameWord(bytes.data(), 3, frame.value3);
  return bytes;
}

CommandFrame DecodeCommand(const uint8_t* bytes) {
  return CommandFrame{FrameWord(bytes, 0), FrameWord(bytes, 1), FrameWord(bytes, 2),
                      FrameWord(bytes, 3)};
}

FrameBytes EncodeCanData(const CanDataFrame& frame) {
  FrameBytes bytes{};
  SetFrameWord(bytes.data(), 0, frame.id);
  SetFrameWord(bytes.data(), 1, frame.InfoWord());
  for (size_t i = 0; i < frame.data.size(); ++i) bytes[8 + i] = frame.data[i];
  return bytes;
}

CanDataFrame DecodeCanData(const uint8_t* bytes) {
  CanDataFrame frame;
  frame.id = FrameWord(bytes, 0);
  frame.SetInfoWord(FrameWord(bytes, 1));
  for (size_t i = 0; i < frame.data.size(); ++i) frame.data[i] = bytes[8 + i];
  return frame;
}

}  // namespace kel
