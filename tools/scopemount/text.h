// Text from the library (UTF-16) for the terminal (UTF-8).
#pragma once

#include <cstdint>
#include <string>

namespace scopemount::cli {

std::string Utf16ToUtf8(const char16_t* text);
// The library's own message for a result code, in the user's language.
std::string ErrorMessage(int32_t code);
// The display name of a model, in the user's language ("" if none).
std::string ModelName(int32_t model);

}  // namespace scopemount::cli
