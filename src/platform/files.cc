#include "platform/files.h"

#include <random>

namespace kel::platform {
namespace {

// New names tried for the temporary file before giving up: a name is taken only when
// another writer happens to use the same one at the same moment.
constexpr int kTemporaryNameAttempts = 8;

}  // namespace

bool WriteFileReplacing(const std::string& path, std::string_view content) {
  std::random_device random;
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    // Beside the target, so that the rename stays on one file system.
    const std::string temporary = path + "." + std::to_string(random() % 1000000) + ".tmp";
    OutputFile file;
    if (!file.Create(temporary, true)) {
      if (PathExists(temporary)) continue;
      return false;
    }
    const bool written = file.Write(content.data(), content.size()) && file.Sync();
    file.Close();
    if (written && RenameReplacing(temporary, path)) return true;
    RemoveFile(temporary);
    return false;
  }
  return false;
}

}  // namespace kel::platform
