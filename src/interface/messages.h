// Result-code texts and mount model names, in US English, Simplified
// Chinese and Traditional Chinese.
#pragma once

#include <cstdint>

namespace scopemount {

inline constexpr int32_t MODEL_COUNT = 12;

// The text of `code` for a language identifier; codes without their own
// text share the "unknown" one.
const char16_t* ErrorText(int32_t code, uint16_t languageId);
// The display name of a model 0..11, or null outside that range.
const char16_t* ModelName(int32_t model, uint16_t languageId);

// Copies a zero-terminated text whole, terminator included.
void CopyText(const char16_t* text, char16_t* buffer);

}  // namespace scopemount
