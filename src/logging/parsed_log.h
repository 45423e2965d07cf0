#pragma once

// Reads a BUSMASTER log back into its parts, so that tests can check every line of the
// files the writer and the logging service leave. Header-only: used by tests only.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "logging/busmaster_format.h"

namespace kel {

struct ParsedRow {
  std::string time;  ///< "hh:mm:ss:" and the milliseconds with their suffix
  bool transmitted = false;
  int channel = 0;
  uint32_t id = 0;
  bool extended = false;
  int dlc = 0;
  std::vector<uint8_t> data;
};

struct ParsedLog {
  bool header = false;       ///< the text begins with the twelve header lines
  bool footer = false;       ///< the text ends with the two footer lines
  bool whole_lines = false;  ///< the text ends with CR LF
  std::vector<ParsedRow> rows;
  std::vector<std::string> notes;      ///< the texts of the note lines
  std::vector<std::string> bad_lines;  ///< lines that are none of the above
};

namespace parsed_log_detail {

inline bool IsDigits(std::string_view text, size_t count) {
  if (text.size() != count) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// "dd:mm:yyyy hh:mm:ss:mmm"
inline bool IsDateTime(std::string_view text) {
  return text.size() == 23 && IsDigits(text.substr(0, 2), 2) && text[2] == ':' &&
         IsDigits(text.substr(3, 2), 2) && text[5] == ':' && IsDigits(text.substr(6, 4), 4) &&
         text[10] == ' ' && IsDigits(text.substr(11, 2), 2) && text[13] == ':' &&
         IsDigits(text.substr(14, 2), 2) && text[16] == ':' && IsDigits(text.substr(17, 2), 2) &&
         text[19] == ':' && IsDigits(text.substr(20, 3), 3);
}

inline bool ParseRow(std::string_view line, ParsedRow& row) {
  std::vector<std::string_view> fields;
  while (!line.empty()) {
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return false;  // every field ends in a blank
    fields.push_back(line.substr(0, blank));
    line.remove_prefix(blank + 1);
  }
  if (fields.size() < 6) return false;
  const std::string_view time = fields[0];
  if (time.size() < 13 || !IsDigits(time.substr(0, 2), 2) || time[2] != ':' ||
      !IsDigits(time.substr(3, 2), 2) || time[5] != ':' || !IsDigits(time.substr(6, 2), 2) ||
      time[8] != ':' || !IsDigits(time.substr(9), time.size() - 9)) {
    return false;
  }
  row.time = std::string(time);
  if (fields[1] != "Rx" && fields[1] != "Tx") return false;
  row.transmitted = fields[1] == "Tx";
  const std::string channel(fields[2]);
  row.channel = std::atoi(channel.c_str());
  if (fields[3].size() < 5 || fields[3].substr(0, 2) != "0x") return false;
  row.id =
      static_cast<uint32_t>(std::strtoul(std::string(fields[3].substr(2)).c_str(), nullptr, 16));
  if (fields[4] != "s" && fields[4] != "x") return false;
  row.extended = fields[4] == "x";
  row.dlc = std::atoi(std::string(fields[5]).c_str());
  const size_t shown = static_cast<size_t>(row.dlc < 0 ? 0 : (row.dlc > 8 ? 8 : row.dlc));
  if (fields.size() != 6 + shown) return false;
  row.data.clear();
  for (size_t i = 6; i < fields.size(); ++i) {
    if (fields[i].size() != 2) return false;
    row.data.push_back(
        static_cast<uint8_t>(std::strtoul(std::string(fields[i]).c_str(), nullptr, 16)));
  }
  return true;
}

}  // namespace parsed_log_detail

/// Splits `text` into CR LF lines and sorts each into header, row, note, footer or bad.
/// A last line without its CR LF (a file cut off while being written) counts as bad.
inline ParsedLog ParseLog(std::string_view text) {
  using namespace parsed_log_detail;
  ParsedLog log;
  log.whole_lines = text.size() >= 2 && text.substr(text.size() - 2) == "\r\n";
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find("\r\n");
    if (end == std::string_view::npos) {
      lines.push_back(text);
      break;
    }
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end + 2);
  }
  size_t first = 0;
  size_t last = lines.size();
  if (lines.size() >= 12) {
    const std::string_view start = lines[4];
    const std::string_view prefix = "***START DATE AND TIME ";
    if (start.substr(0, prefix.size()) == prefix && start.size() == prefix.size() + 26) {
      const std::string_view date = start.substr(prefix.size(), 23);
      std::string expected = HeaderText(date);
      std::string actual;
      for (size_t i = 0; i < 12; ++i) {
        actual.append(lines[i]);
        actual.append("\r\n");
      }
      if (IsDateTime(date) && actual == expected) {
        log.header = true;
        first = 12;
      }
    }
  }
  if (log.whole_lines && last >= first + 2) {
    const std::string_view end = lines[last - 2];
    const std::string_view prefix = "***END DATE AND TIME ";
    if (end.substr(0, prefix.size()) == prefix && end.size() == prefix.size() + 26 &&
        IsDateTime(end.substr(prefix.size(), 23)) &&
        FooterText(end.substr(prefix.size(), 23)) ==
            std::string(end) + "\r\n" + std::string(lines[last - 1]) + "\r\n") {
      log.footer = true;
      last -= 2;
    }
  }
  for (size_t i = first; i < last; ++i) {
    const std::string_view line = lines[i];
    const bool cut = i + 1 == lines.size() && !log.whole_lines;
    ParsedRow row;
    if (cut) {
      log.bad_lines.emplace_back(line);
    } else if (line.size() >= 12 && line.substr(0, 9) == "***NOTE: " &&
               line.substr(line.size() - 3) == "***") {
      log.notes.emplace_back(line.substr(9, line.size() - 12));
    } else if (ParseRow(line, row)) {
      log.rows.push_back(std::move(row));
    } else {
      log.bad_lines.emplace_back(line);
    }
  }
  return log;
}

}  // namespace kel
