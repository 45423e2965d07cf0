#include <stdlib.h>

#include "platform/environment.h"

namespace kel::platform {

std::string GetEnvironment(const std::string& name) {
  const char* value = getenv(name.c_str());
  return value != nullptr ? value : "";
}

// _putenv_s changes the C runtime's copy and the process's own block, which children
// inherit; an empty value removes the variable.
bool SetEnvironment(const std::string& name, const std::string& value) {
  return _putenv_s(name.c_str(), value.c_str()) == 0;
}

}  // namespace kel::platform
