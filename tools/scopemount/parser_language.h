// The argument parser's own words (help headings, type names, errors) in the
// user's language, like the rest of the program's texts.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace scopemount::cli {

// Before the options and subcommands are added: the help's headings, the
// help flag, and the failure message every parse error goes through.
void TranslateParserTexts(CLI::App& app);
// After they are added: the subcommands' heading and every option's type
// name ("TEXT", "FLOAT", ...), in the subcommands too.
void TranslateOptionTexts(CLI::App& app);
// A parse error's message in the user's language; as the parser wrote it
// when there is no translation for it.
std::string ParseErrorText(const CLI::Error& error);

// An option naming a file that must exist, refused in words.
CLI::Validator ExistingFile();
// An option that takes one of a few words, in any case, for an enumeration:
// the word becomes its position in the list, the enumerator's value.
CLI::Validator OneOf(const std::vector<std::string>& words);

}  // namespace scopemount::cli
