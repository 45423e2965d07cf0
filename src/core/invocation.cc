#include "core/invocation.h"

namespace kel {
namespace {

constexpr size_t kProgramPathMax = 1024;

std::string& MutableProgramPath() {
  static std::string path;
  return path;
}

std::string& MutableCalledName() {
  static std::string name;
  return name;
}

}  // namespace

const std::string& ProgramPath() { return MutableProgramPath(); }

void SetProgramPath(std::string_view path) {
  MutableProgramPath() = std::string(path.substr(0, kProgramPathMax));
}

std::string_view CalledName() { return MutableCalledName(); }

void SetCalledName(std::string_view name) { MutableCalledName() = std::string(name); }

}  // namespace kel
