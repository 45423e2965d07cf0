#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel {

/// An INI document: sections of key = value items, both kept in file order.
///   [SETTINGS]              ; a section header
///   DeviceAddr = 127.0.0.1  ; an item: key and value are trimmed
///   ; comment               ; comment and blank lines are read and dropped
/// Items before the first header belong to a section with an empty name. Lookups ignore
/// letter case and find the first match, so a duplicate key is shadowed.
///
/// A document read from any text is written back so that it reads the same again:
/// Parse(Text(doc)) gives doc. A header without "]" ("[name") names the section up to
/// the end of the line, and a later section with an empty name is written as "[]".
class IniFile {
 public:
  struct Item {
    std::string key;
    std::string value;
    bool operator==(const Item&) const = default;
  };
  struct Section {
    std::string name;
    std::vector<Item> items;
    bool operator==(const Section&) const = default;
  };

  /// Reads `path`, replacing the document. False when the file cannot be read.
  bool Load(const std::string& path);
  /// Reads a document from text (CR LF or LF line ends, last line end optional).
  void Parse(std::string_view text);
  /// Writes the document to `path` with CR LF line ends, replacing the file in one step:
  /// on failure (false) the old file stays whole.
  bool Save(const std::string& path) const;
  /// The document as "[%s]" and "%s = %s" lines, each ended by `line_end`.
  std::string Text(std::string_view line_end) const;

  /// The value of `key` in `section`, or null.
  const std::string* Find(std::string_view section, std::string_view key) const;
  /// Sets the first matching item, or adds it (and its section) at the end.
  void Set(std::string_view section, std::string_view key, std::string_view value);
  void SetInt(std::string_view section, std::string_view key, int64_t value);

  const std::vector<Section>& Sections() const { return sections_; }

 private:
  std::vector<Section> sections_;
};

}  // namespace kel
