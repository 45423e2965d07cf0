#pragma once

// Reads a log file back into its parts, so that tests can check every line that the writer
// and the logging service leave. For tests only.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "logging/busmaster_format.h"

namespace kel {

struct ParsedLog {
  size_t size = 0;                     ///< of the whole text
  bool header = false;                 ///< the text begins with the header lines
  bool footer = false;                 ///< the text ends with the footer lines
  std::vector<CanRow> rows;            ///< data bytes past the DLC are zero
  std::vector<std::string> times;      ///< the time text of each row
  std::vector<std::string> notes;      ///< the texts of the note lines
  std::vector<std::string> bad_lines;  ///< any other line
  std::string cut;                     ///< a last line without its CR LF
};

/// Reads a data row; true only when FormatRow writes it back to the same text.
inline bool ParseRow(const std::string& line, CanRow& row) {
  char time[kRowTimeSize + 1] = {}, direction[3] = {}, type = 0;
  int used = 0;
  if (std::sscanf(line.c_str(), "%40s %2s %d 0x%x %c %d %n", time, direction, &row.channel, &row.id,
                  &type, &row.dlc, &used) != 6) {
    return false;
  }
  row.transmitted = direction[0] == 'T';
  row.extended = type == 'x';
  for (size_t i = 0; i < static_cast<size_t>(std::clamp(row.dlc, 0, 8)); ++i) {
    unsigned byte = 0;
    std::sscanf(line.c_str() + std::min(line.size(), used + 3 * i), "%2x", &byte);
    row.data[i] = static_cast<uint8_t>(byte);
  }
  char text[kMaxRowSize];
  return time[std::strspn(time, "0123456789:")] == '\0' &&
         std::string_view(text, FormatRow(time, row, text)) == line + "\r\n";
}

/// Splits `text` into CR LF lines and sorts each into header, row, note, footer or bad; the
/// footer is taken only when whole.
inline ParsedLog ParseLog(std::string_view text) {
  ParsedLog log;
  log.size = text.size();
  const size_t start = text.find("***START DATE AND TIME ");
  if (start != std::string_view::npos) {
    const std::string header = HeaderText(text.substr(start + 23, 23));
    log.header = text.starts_with(header);
    if (log.header) text.remove_prefix(header.size());
  }
  const size_t end = text.rfind("***END DATE AND TIME ");
  if (end != std::string_view::npos && text.substr(end) == FooterText(text.substr(end + 21, 23))) {
    log.footer = true;
    text = text.substr(0, end);
  }
  while (!text.empty()) {
    const size_t line_end = text.find("\r\n");
    const std::string line(text.substr(0, line_end));
    text.remove_prefix(line_end == std::string_view::npos ? text.size() : line_end + 2);
    CanRow row;
    if (line_end == std::string_view::npos) {
      log.cut = line;
    } else if (line.size() >= 12 && line.starts_with("***NOTE: ") && line.ends_with("***")) {
      log.notes.push_back(line.substr(9, line.size() - 12));
    } else if (ParseRow(line, row)) {
      log.rows.push_back(row);
      log.times.push_back(line.substr(0, line.find(' ')));
    } else {
      log.bad_lines.push_back(line);
    }
  }
  return log;
}

}  // namespace kel
