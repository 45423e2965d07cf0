#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

/// conf / config: show, load or save the settings file.
ResultCode HandleConf(const CommandEntry& entry, std::string_view& rest, Output& out);

/// addr / address: show or set the device address, port and channel.
ResultCode HandleAddr(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
