#include <stdlib.h>

#include "platform/environment.h"

namespace kel::platform {

std::string GetEnvironment(const std::string& name) {
  const char* value = getenv(name.c_str());
  return value != nullptr ? value : "";
}

bool SetEnvironment(const std::string& name, const std::string& value) {
  return value.empty() ? unsetenv(name.c_str()) == 0 : setenv(name.c_str(), value.c_str(), 1) == 0;
}

}  // namespace kel::platform
