#include "support/temp_dir.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>

namespace kel::testing {

TempDir::TempDir() {
  static std::atomic<int> counter{0};
  const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  path_ = std::filesystem::temp_directory_path() /
          ("kel-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedWorkingDir::ScopedWorkingDir(const std::filesystem::path& dir)
    : saved_(std::filesystem::current_path()) {
  std::filesystem::current_path(dir);
}

ScopedWorkingDir::~ScopedWorkingDir() {
  std::error_code ignored;
  std::filesystem::current_path(saved_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, std::string_view text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace kel::testing
