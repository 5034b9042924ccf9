// Text from the library (UTF-16) for the terminal (UTF-8), and the
// program's own texts in the user's language.
#pragma once

#include <cstdint>
#include <string>

namespace scopemount::cli {

std::string Utf16ToUtf8(const char16_t* text);
// The library's own message for a result code, in the user's language.
std::string ErrorMessage(int32_t code);
// The display name of a model, in the user's language ("" if none).
std::string ModelName(int32_t model);

// The program's own text in the user's language (LC_ALL, LC_MESSAGES, LANG;
// Simplified or Traditional Chinese, else English as written). The result
// lives as long as the program.
const char* _(const char* text);

}  // namespace scopemount::cli
