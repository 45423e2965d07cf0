#pragma once

#include <string_view>
#include <vector>

#include "core/command.h"

namespace kel {

/// A built-in regression test: command lines run at the same time by workers, the M list
/// on the first channel and the S list on the second.
struct TestEntry {
  std::string_view name;
  std::string_view description;
  std::vector<std::string_view> m_commands;
  std::vector<std::string_view> s_commands;
};

/// The five tests, in their order.
const std::vector<TestEntry>& RegressionTests();

/// test / rtest / runtest: lists, describes or runs the tests that match the argument.
/// Called as rtest it runs them again and again until one fails or a key is pressed.
ResultCode HandleTest(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
