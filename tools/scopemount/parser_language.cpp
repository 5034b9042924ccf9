#include "parser_language.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "text.h"

namespace scopemount::cli {

namespace {

// Marks a text for the catalogues where it is translated later, by _().
constexpr const char* N_(const char* text) { return text; }

// The parser's error messages, most specific first: each "%s" stands for
// the part that varies (an option, a count, the arguments), which the
// translation takes in order, or by number as "%2$s".
const char* const PARSER_MESSAGES[] = {
    N_("The following argument was not expected: %s"),
    N_("The following arguments were not expected: %s"),
    N_("Expected exactly %s arguments to %s, got %s"),
    N_("%s: At least %s required but received %s"),
    N_("%s: At Most %s required but received %s"),
    N_("%s: %s required %s missing"),
    N_("%s: too many inputs for a flag"),
    N_("%s: Should be true/false or a number"),
    N_("Could not convert: %s = %s"),
    N_("%s requires %s"),
    N_("%s excludes %s"),
    N_("%s is required"),
    N_("%s not found"),
};

// The parts of `text` that stand where `pattern` has "%s", if the text has
// that form: the pieces between them must appear in order, the first at the
// start and the last at the end.
std::optional<std::vector<std::string>> MatchMessage(const std::string& pattern,
                                                      const std::string& text) {
  std::vector<std::string> pieces;
  for (size_t from = 0;;) {
    const size_t hole = pattern.find("%s", from);
    pieces.push_back(pattern.substr(from, hole - from));
    if (hole == std::string::npos) break;
    from = hole + 2;
  }
  if (text.compare(0, pieces.front().size(), pieces.front()) != 0) return std::nullopt;
  std::vector<std::string> parts;
  size_t at = pieces.front().size();
  for (size_t i = 1; i < pieces.size(); ++i) {
    const bool last = i + 1 == pieces.size();
    const size_t next = last ? text.size() - std::min(text.size(), pieces[i].size())
                             : text.find(pieces[i], at);
    if (next == std::string::npos || next < at ||
        text.compare(next, pieces[i].size(), pieces[i]) != 0) {
      return std::nullopt;
    }
    parts.push_back(text.substr(at, next - at));
    at = next + pieces[i].size();
  }
  return parts;
}

// The help's option lines, lined up by the columns their text takes on a
// terminal rather than by bytes, so translated type names keep the layout.
class ColumnsFormatter : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option, bool positional) const override {
    const std::string name =
        "  " + make_option_name(option, positional) + make_option_opts(option);
    const size_t width = get_column_width();
    const std::string indent(width, ' ');
    std::string line = PadToColumns(name, width);
    const std::string description = make_option_desc(option);
    if (!description.empty() && DisplayColumns(name) >= width) line += "\n" + indent;
    for (const char c : description) {
      line += c;
      if (c == '\n') line += indent;
    }
    return line + "\n";
  }
};

// The parser's own type names, as the help and "required ... missing" show them.
std::string TypeNameText(const std::string& name) {
  if (name == "INT") return _("INT");
  if (name == "UINT") return _("UINT");
  if (name == "FLOAT") return _("FLOAT");
  if (name == "TEXT" || name == "ENUM") return _("TEXT");
  return name;
}

void TranslateTypeNames(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) {
    const std::string full = option->get_type_name();
    if (full.empty()) continue;
    // Validators add ":description" after the type; they keep their own.
    const std::string type = TypeNameText(full.substr(0, full.find(':')));
    option->type_name(type);
  }
  for (CLI::App* command : app.get_subcommands({})) TranslateTypeNames(*command);
}

}  // namespace

void TranslateParserTexts(CLI::App& app) {
  const auto formatter = std::make_shared<ColumnsFormatter>();
  app.formatter(formatter);
  formatter->label("Usage", _("Usage"));
  formatter->label("OPTIONS", _("OPTIONS"));
  formatter->label("SUBCOMMAND", _("SUBCOMMAND"));
  formatter->label("Positionals", _("Positionals"));
  formatter->label("REQUIRED", _("REQUIRED"));
  app.option_defaults()->group(_("Options"));
  app.set_help_flag("-h,--help", _("Print this help message and exit"));
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    std::string text = ParseErrorText(error) + "\n";
    if (const CLI::Option* help = failed->get_help_ptr()) {
      text += FillText(_("Run with %s for more information."), {help->get_name()}) + "\n";
    }
    return text;
  });
}

void TranslateOptionTexts(CLI::App& app) {
  for (CLI::App* command : app.get_subcommands({})) {
    command->group(_("Subcommands"));
    if (CLI::Option* help = command->get_help_ptr()) help->group(_("Options"));
  }
  TranslateTypeNames(app);
}

std::string ParseErrorText(const CLI::Error& error) {
  const std::string text = error.what();
  for (const char* pattern : PARSER_MESSAGES) {
    if (const auto parts = MatchMessage(pattern, text)) return FillText(_(pattern), *parts);
  }
  return text;
}

CLI::Validator ExistingFile() {
  return CLI::Validator(
      [](std::string& path) -> std::string {
        std::error_code error;
        if (!std::filesystem::exists(path, error)) return FillText(_("%s does not exist"), {path});
        if (std::filesystem::is_directory(path, error)) {
          return FillText(_("%s is a directory, not a file"), {path});
        }
        return {};
      },
      _("FILE"));
}

CLI::Validator OneOf(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  return CLI::Validator(
      [words, list](std::string& text) -> std::string {
        std::string lower = text;
        for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const auto word = std::find(words.begin(), words.end(), lower);
        if (word == words.end()) return FillText(_("%s is not one of: %s"), {text, list});
        text = std::to_string(word - words.begin());
        return {};
      },
      "{" + list + "}");
}

}  // namespace scopemount::cli
