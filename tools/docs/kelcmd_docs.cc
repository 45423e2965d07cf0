// kelcmd-docs: the one generator of the files made from the command table and kelsim's
// usage text (docs/commands.md, the man pages, the bash completion).
//   kelcmd-docs --write <source dir>   writes them
//   kelcmd-docs --check <source dir>   fails, naming them, when one differs from what the
//                                      table makes now
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "shell/command_docs.h"
#include "sim/options.h"

namespace {

std::string ReadWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteWhole(const std::string& path, const std::string& text) {
  const size_t slash = path.rfind('/');
  if (slash != std::string::npos) kel::platform::MakeDirectory(path.substr(0, slash));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  return static_cast<bool>(out.flush());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc == 3 ? argv[1] : "";
  if (mode != "--write" && mode != "--check") {
    std::fputs("usage: kelcmd-docs --write|--check <source dir>\n", stderr);
    return 2;
  }
  const std::string root = argv[2];
  int stale = 0;
  for (const kel::GeneratedFile& file : kel::GeneratedFiles(kel::sim::UsageText())) {
    const std::string path = root + "/" + file.path;
    if (mode == "--write") {
      if (!WriteWhole(path, file.text)) {
        std::fprintf(stderr, "kelcmd-docs: cannot write %s\n", path.c_str());
        return 1;
      }
    } else if (ReadWhole(path) != file.text) {
      std::fprintf(stderr, "kelcmd-docs: %s is out of date\n", file.path.c_str());
      ++stale;
    }
  }
  if (stale > 0) {
    std::fputs("kelcmd-docs: make them anew with: cmake --build --preset release --target docs\n",
               stderr);
    return 1;
  }
  return 0;
}
