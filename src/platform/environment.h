#pragma once

#include <string>

namespace kel::platform {

/// The value of an environment variable, "" when it is not set.
std::string GetEnvironment(const std::string& name);

/// Sets an environment variable of this process (and so of the children it starts);
/// an empty value removes it. False when the system refused.
bool SetEnvironment(const std::string& name, const std::string& value);

}  // namespace kel::platform
