#include "config/ini_file.h"

#include <fstream>
#include <sstream>

#include "core/parse.h"
#include "platform/files.h"

namespace kel {

bool IniFile::Load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) return false;
  Parse(content.str());
  return true;
}

void IniFile::Parse(std::string_view text) {
  sections_.clear();
  Section* current = nullptr;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    line = TrimText(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      const size_t close = line.find(']');
      const std::string_view name =
          TrimText(line.substr(1, close == std::string_view::npos ? line.npos : close - 1));
      sections_.push_back(Section{std::string(name), {}});
      current = &sections_.back();
      continue;
    }
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    if (current == nullptr) {
      sections_.push_back(Section{});
      current = &sections_.back();
    }
    current->items.push_back(Item{std::string(TrimText(line.substr(0, equals))),
                                  std::string(TrimText(line.substr(equals + 1)))});
  }
}

bool IniFile::Save(const std::string& path) const {
  return platform::WriteFileReplacing(path, Text("\r\n"));
}

std::string IniFile::Text(std::string_view line_end) const {
  std::string text;
  for (const Section& section : sections_) {
    // Only the first section can go without a header: the items of a later one would
    // read back as the items of the section before it.
    if (!section.name.empty() || section.items.empty() || &section != &sections_.front()) {
      text += '[';
      text += section.name;
      text += ']';
      text += line_end;
    }
    for (const Item& item : section.items) {
      text += item.key;
      text += " = ";
      text += item.value;
      text += line_end;
    }
  }
  return text;
}

const std::string* IniFile::Find(std::string_view section, std::string_view key) const {
  for (const Section& s : sections_) {
    if (!EqualsNoCase(s.name, section)) continue;
    for (const Item& item : s.items) {
      if (EqualsNoCase(item.key, key)) return &item.value;
    }
  }
  return nullptr;
}

void IniFile::Set(std::string_view section, std::string_view key, std::string_view value) {
  Section* target = nullptr;
  for (Section& s : sections_) {
    if (!EqualsNoCase(s.name, section)) continue;
    if (target == nullptr) target = &s;
    for (Item& item : s.items) {
      if (EqualsNoCase(item.key, key)) {
        item.value = value;
        return;
      }
    }
  }
  if (target == nullptr) {
    sections_.push_back(Section{std::string(section), {}});
    target = &sections_.back();
  }
  target->items.push_back(Item{std::string(key), std::string(value)});
}

void IniFile::SetInt(std::string_view section, std::string_view key, int64_t value) {
  Set(section, key, std::to_string(value));
}

}  // namespace kel
