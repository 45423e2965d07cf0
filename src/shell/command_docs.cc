#include "shell/command_docs.h"

#include <algorithm>
#include <cctype>

#include "can/regression_tests.h"
#include "config/settings.h"
#include "core/parse.h"
#include "core/result.h"
#include "shell/builtin_commands.h"
#include "shell/command_table.h"

namespace kel {
namespace {

constexpr std::string_view kGeneratedNote = "Made from the command table by kelcmd-docs";

// The next blank-separated word off the front of `text`.
std::string NextWord(std::string_view& text) { return SplitWord(text, " ", text.size() + 1, 1); }

bool Visible(const CommandEntry& entry) { return !entry.description.empty(); }

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

template <typename Words>
std::string Join(const Words& words, std::string_view separator) {
  std::string text;
  for (const auto& word : words) {
    if (!text.empty()) text += separator;
    text.append(word);
  }
  return text;
}

// Roff text: backslashes and hyphens escaped (so options copy as ASCII minus signs), and
// a line that would start with a control character guarded.
std::string Roff(std::string_view text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

// Lines shown as they are, indented, in a fixed-width block.
std::string RoffBlock(const std::vector<std::string_view>& lines) {
  std::string text = ".RS 4\n.nf\n";
  for (std::string_view line : lines) text += Roff(line) + "\n";
  return text + ".fi\n.RE\n";
}

std::string RoffHeader(std::string_view name, std::string_view summary) {
  std::string upper = Lower(name);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return ".\\\" " + std::string(kGeneratedNote) + "; regenerate, do not edit.\n.TH " + upper +
         " 1 \"\" \"kelcmd " KEL_VERSION "\" \"User Commands\"\n.SH NAME\n" + std::string(name) +
         " \\- " + Roff(summary) + "\n";
}

// "<on|off>" gives on and off; anything else no values.
std::vector<std::string> Choices(std::string_view token) {
  std::vector<std::string> values;
  if (token.size() < 3 || token.front() != '<' || token.back() != '>') return values;
  std::string_view inner = token.substr(1, token.size() - 2);
  if (inner.find('|') == std::string_view::npos) return values;
  while (!inner.empty()) {
    const size_t bar = inner.find('|');
    values.emplace_back(inner.substr(0, bar));
    if (bar == std::string_view::npos) break;
    inner.remove_prefix(bar + 1);
  }
  return values;
}

bool PlainWord(std::string_view word) {
  return !word.empty() && std::islower(static_cast<unsigned char>(word.front())) &&
         std::all_of(word.begin(), word.end(), [](char c) {
           return std::islower(static_cast<unsigned char>(c)) ||
                  std::isdigit(static_cast<unsigned char>(c)) || c == '_';
         });
}

std::string ExitStatusSection() {
  std::string text =
      ".SH \"EXIT STATUS\"\n"
      "0 when every command succeeded, and in console mode. Otherwise the result code of "
      "the first failing command; on Linux its low 8 bits, so that \\-10 exits with 246:\n";
  for (ResultCode code = -1; code >= -999; --code) {
    std::string message = ErrorText(nullptr, code);
    if (message.find("Unknown error code") != std::string::npos) continue;
    message.erase(0, message.find(": ") + 2);
    if (const size_t hint = message.find(" (try "); hint != std::string::npos) message.resize(hint);
    while (!message.empty() && message.back() == '\n') message.pop_back();
    text += ".TP\n.B " +
            Roff(std::to_string(code) + " (" + std::to_string((code % 256 + 256) % 256) + ")") +
            "\n" + Roff(message) + "\n";
  }
  return text;
}

}  // namespace

std::vector<OptionDoc> KelcmdOptions() {
  const Settings defaults;
  return {
      {'a', "address", "device IP address (default " + defaults.device_address + ")"},
      {'c', "channel",
       "device CAN channel (default " + std::to_string(defaults.device_channel) +
           "); the TCP port used is port + channel"},
      {'i', "inifile", "load a further settings file at this place among the options"},
      {'p', "port", "device port (default " + std::to_string(defaults.device_port) + ")"},
      {'m', "filter", "find the device by MAC address"},
      {'s', "serial", "serial port of the board controller"},
      {'x', "port",
       "start the proxy on this port (default " + std::to_string(defaults.proxy_port) + ")"},
  };
}

std::vector<SubWord> SubWords(const CommandEntry& entry) {
  std::vector<SubWord> words;
  auto add = [&words](std::string word, std::vector<std::string> values = {}) {
    for (const SubWord& known : words) {
      if (known.word == word) return;
    }
    words.push_back({std::move(word), std::move(values)});
  };
  if (entry.handler == HandleTest) {
    add("?");
    for (const TestEntry& test : RegressionTests()) add(std::string(test.name));
    return words;
  }
  if (entry.handler == HandleHelp) {
    for (const CommandEntry& row : CommandTable()) {
      if (!Visible(row)) continue;
      for (std::string_view name : row.names) add(std::string(name));
    }
    return words;
  }
  for (std::string_view line : entry.arguments) {
    // Only "<words> - <meaning>" lines name arguments; others continue the line above.
    const size_t dash = line.find(" - ");
    if (dash == std::string_view::npos) continue;
    std::string_view rest = line.substr(0, dash);
    std::string word = NextWord(rest);
    if (!PlainWord(word)) continue;
    add(std::move(word), Choices(NextWord(rest)));
  }
  return words;
}

std::string CommandsMarkdown() {
  std::string text =
      "# Commands\n\n"
      "Made from the command table, as `help <command>` shows it. Commands marked (board)\n"
      "connect to the board first. Names compare without regard to case.\n";
  for (const CommandEntry& entry : CommandTable()) {
    if (!Visible(entry)) continue;
    text += "\n## " + Join(entry.names, ", ");
    text += entry.needs_device ? " (board)\n\n" : "\n\n";
    text.append(entry.description);
    text += "\n";
    if (!entry.arguments.empty()) {
      text += "\n```\n";
      for (std::string_view line : entry.arguments) text.append(line).append("\n");
      text += "```\n";
    }
    if (!entry.examples.empty()) {
      text += "\nExamples:\n\n```\n";
      for (std::string_view line : entry.examples) text.append(line).append("\n");
      text += "```\n";
    }
  }
  return text;
}

std::string KelcmdManPage() {
  const Settings defaults;
  std::string text =
      RoffHeader("kelcmd", "command shell for bench and regression work on a KEL board");
  text +=
      ".SH SYNOPSIS\n"
      ".B kelcmd\n"
      "[\\fB\\-a\\fR<\\fIaddress\\fR>] [\\fB\\-p\\fR<\\fIport\\fR>] "
      "[\\fB\\-c\\fR<\\fIchannel\\fR>] "
      "[\\fIoption\\fR ...] [\\fIcommand\\fR ...]\n"
      ".SH DESCRIPTION\n"
      ".B kelcmd\n"
      "is a console command shell for bench and regression work on a KEL board: a controller "
      "board that switches power rails, measures currents and bridges CAN buses. It reaches "
      "the board over TCP at base port + channel, as a stream of 16\\-byte frames; the "
      "virtual board\n.BR kelsim (1)\nserves the same protocol.\n"
      ".PP\n"
      "Every argument that does not start with a hyphen is a command word. The words are "
      "joined with blanks into one command line, whose commands are separated by \";\": "
      "\\fBkelcmd baud\\e; out\\fR and \\fBkelcmd \"baud; out\"\\fR are the same. kelcmd runs "
      "the line once and exits; the line stops at the first failing command.\n"
      ".PP\n"
      "Without command words kelcmd shows a banner and the \\fB~>\\fR prompt, with line "
      "editing, Tab completion of command names and a history at a terminal. The lines "
      "\\fBexit\\fR or \\fBquit\\fR, or the end of input, end it. At a terminal, Ctrl-C "
      "stops the running command and gives the prompt back.\n"
      ".PP\n"
      "Errors read \\fBERROR\\fR \\fIcode\\fB:\\fR \\fImessage\\fR.\n"
      ".SH OPTIONS\n"
      "A value follows its letter without a blank (\\fB\\-p27016\\fR); any other letter prints "
      "the usage.\n";
  for (const OptionDoc& option : KelcmdOptions()) {
    text += ".TP\n\\fB\\-" + std::string(1, option.letter) + "\\fR<\\fI" +
            std::string(option.value) + "\\fR>\n" + Roff(option.meaning) + "\n";
  }
  text +=
      ".SH COMMANDS\n"
      "Names compare without regard to case; commands marked (board) connect to the board "
      "first. \\fBhelp\\fR \\fIcommand\\fR shows the same text.\n";
  for (const CommandEntry& entry : CommandTable()) {
    if (!Visible(entry)) continue;
    text += ".SS \"" + Roff(Join(entry.names, ", ")) + (entry.needs_device ? " (board)" : "") +
            "\"\n" + Roff(entry.description) + "\n";
    if (!entry.arguments.empty()) text += ".PP\n" + RoffBlock(entry.arguments);
    if (!entry.examples.empty()) text += ".PP\nExamples:\n" + RoffBlock(entry.examples);
  }
  text += ExitStatusSection();
  text +=
      ".SH FILES\n"
      ".TP\n.I kelcmd.ini\n"
      "The settings, read from the working directory at start (sections SETTINGS, DEBUG, "
      "PROXY and LOGGING); \\fBconf save\\fR writes them back, \\fB\\-i\\fR reads another "
      "file.\n"
      ".TP\n.I ~/.kelcmd_history\n"
      "The history of the prompt.\n"
      ".TP\n.I " +
      Roff(defaults.log_file_name) +
      "\n"
      "The name of the CAN log files unless \\fBlog file\\fR sets another; \\fBlog path\\fR "
      "sets their folder.\n"
      ".SH ENVIRONMENT\n"
      ".TP\n.B HOME\n"
      "Where the history file is kept.\n"
      ".TP\n.B KELCMD_SYSFS\n"
      "The device tree \\fBlsport\\fR, \\fBlscom\\fR, \\fBlsusb\\fR and the start-up serial "
      "lookup read on Linux, instead of /sys.\n"
      ".TP\n.B XDG_RUNTIME_DIR\n"
      "The folder of the debug-output socket kelcmd-debug.sock that \\fBlog debug on\\fR reads; "
      "without it, /tmp/kelcmd-debug-\\fIuid\\fR.sock.\n"
      ".SH \"SEE ALSO\"\n"
      ".BR kelsim (1)\n";
  return text;
}

std::string KelsimManPage(std::string_view usage) {
  std::string synopsis;
  std::string description;
  std::string sections;
  while (!usage.empty()) {
    const size_t end = usage.find('\n');
    const std::string_view line = usage.substr(0, end);
    usage.remove_prefix(end == std::string_view::npos ? usage.size() : end + 1);
    if (line.empty()) continue;
    if (line.starts_with("usage: ")) {
      std::string_view rest = line.substr(7);
      const std::string program = NextWord(rest);
      synopsis = ".B " + program + "\n" + Roff(TrimText(rest)) + "\n";
    } else if (line.starts_with("  --")) {
      // "  --name VALUE   meaning": the name and value end at the first run of blanks.
      const std::string_view item = TrimText(line);
      const size_t gap = item.find("  ");
      std::string_view head = item.substr(0, gap);
      const std::string name = NextWord(head);
      sections += ".TP\n.B " + Roff(name) +
                  (head.empty() ? "" : " \\fI" + Roff(TrimText(head)) + "\\fR") + "\n" +
                  Roff(gap == std::string_view::npos ? "" : TrimText(item.substr(gap))) + "\n";
    } else if (line.starts_with(" ")) {
      sections += Roff(TrimText(line)) + "\n";  // the meaning of the option above goes on
    } else if (line.back() == ':') {
      std::string title(line.substr(0, line.size() - 1));
      for (char& c : title) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      sections += ".SH " + title + "\n";
    } else {
      description += ".PP\n" + Roff(line) + "\n";
    }
  }
  return RoffHeader("kelsim", "the virtual KEL board") + ".SH SYNOPSIS\n" + synopsis +
         ".SH DESCRIPTION\n" + description +
         ".PP\n"
         "Channels that share a bus hear each other: by default channels 0 and 2 share one "
         "and 1 and 3 another, as on a bench where two boards are cabled together. The "
         "start\\-up line names the ports, as in \\fBkelsim: board on 127.0.0.1 ports "
         "27015\\-27018\\fR.\n" +
         sections +
         ".SH \"EXIT STATUS\"\n"
         ".TP\n.B 0\nEnded by SIGINT or SIGTERM.\n"
         ".TP\n.B 1\nA port could not be bound.\n"
         ".TP\n.B 2\nA bad option.\n"
         ".SH \"SEE ALSO\"\n"
         ".BR kelcmd (1)\n";
}

std::string BashCompletion() {
  std::vector<std::string> options;
  for (const OptionDoc& option : KelcmdOptions())
    options.push_back(std::string("-") + option.letter);
  std::vector<std::string> commands;
  std::string sub_cases;
  std::string value_cases;
  for (const CommandEntry& entry : CommandTable()) {
    if (!Visible(entry)) continue;
    std::vector<std::string> names;
    for (std::string_view name : entry.names) {
      names.push_back(Lower(name));
      if (std::find(commands.begin(), commands.end(), names.back()) == commands.end()) {
        commands.push_back(names.back());
      }
    }
    const std::vector<SubWord> words = SubWords(entry);
    if (words.empty()) continue;
    std::vector<std::string> list;
    for (const SubWord& sub : words) {
      list.push_back(sub.word);
      if (sub.values.empty()) continue;
      std::vector<std::string> patterns;
      for (const std::string& name : names) patterns.push_back(name + "\\ " + sub.word);
      value_cases += "    " + Join(patterns, "|") + ") echo \"" + Join(sub.values, " ") + "\" ;;\n";
    }
    sub_cases += "    " + Join(names, "|") + ") echo \"" + Join(list, " ") + "\" ;;\n";
  }
  return "# bash completion for kelcmd: options, command names, the words each command takes\n"
         "# and their values. " +
         std::string(kGeneratedNote) +
         "; regenerate, do not edit.\n"
         "\n"
         "_kelcmd_subwords() {\n"
         "  case \"$1\" in\n" +
         sub_cases +
         "  esac\n"
         "}\n"
         "\n"
         "_kelcmd_values() {\n"
         "  case \"$1\" in\n" +
         value_cases +
         "  esac\n"
         "}\n"
         "\n"
         "_kelcmd() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} word command=\"\" first=\"\" count=0 i\n"
         "  # The command being written: words since the last one that ends in ';', options\n"
         "  # (anywhere) left out.\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    word=${COMP_WORDS[i]}\n"
         "    if [[ $word == *';' ]]; then\n"
         "      command=\"\" first=\"\" count=0\n"
         "    elif [[ $word != -* ]]; then\n"
         "      if [[ -z $command ]]; then\n"
         "        command=${word,,}\n"
         "      else\n"
         "        count=$((count + 1))\n"
         "        [[ $count -eq 1 ]] && first=${word,,}\n"
         "      fi\n"
         "    fi\n"
         "  done\n"
         "  local IFS=$' \\t\\n' words\n"
         "  if [[ $cur == -i?* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -f -P -i -- \"${cur#-i}\")\n"
         "    return\n"
         "  elif [[ $cur == -* ]]; then\n"
         "    words=\"" +
         Join(options, " ") +
         "\"\n"
         "  elif [[ -z $command ]]; then\n"
         "    words=\"" +
         Join(commands, " ") +
         "\"\n"
         "  elif [[ $count -eq 0 ]]; then\n"
         "    words=$(_kelcmd_subwords \"$command\")\n"
         "  elif [[ $count -eq 1 ]]; then\n"
         "    words=$(_kelcmd_values \"$command $first\")\n"
         "  fi\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
         "}\n"
         "\n"
         "complete -F _kelcmd kelcmd\n";
}

std::vector<GeneratedFile> GeneratedFiles(std::string_view kelsim_usage) {
  return {
      {"docs/commands.md", CommandsMarkdown()},
      {"docs/man/kelcmd.1", KelcmdManPage()},
      {"docs/man/kelsim.1", KelsimManPage(kelsim_usage)},
      {"docs/bash-completion/kelcmd", BashCompletion()},
  };
}

}  // namespace kel
