#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kel::testing {

/// A fresh directory under the system's temporary directory, removed with its contents
/// when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::string File(std::string_view name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Makes `dir` the working directory for the lifetime of the object.
class ScopedWorkingDir {
 public:
  explicit ScopedWorkingDir(const std::filesystem::path& dir);
  ~ScopedWorkingDir();
  ScopedWorkingDir(const ScopedWorkingDir&) = delete;
  ScopedWorkingDir& operator=(const ScopedWorkingDir&) = delete;

 private:
  std::filesystem::path saved_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view text);

}  // namespace kel::testing
