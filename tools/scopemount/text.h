// Text from the library (UTF-16) for the terminal (UTF-8), and the
// program's own texts in the user's language.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace scopemount::cli {

std::string Utf16ToUtf8(const char16_t* text);
// The library's own message for a result code, in the user's language.
std::string ErrorMessage(int32_t code);
// The display name of a model, in the user's language ("" if none).
std::string ModelName(int32_t model);

// Terminal columns of UTF-8 text: East Asian wide characters take two,
// combining marks none, the rest one.
size_t DisplayColumns(const std::string& text);
// The text with spaces after it (or before it, `right`-aligned) to fill
// `columns`, as printf's "%-Ns" and "%Ns" do for ASCII; as it is when wider.
std::string PadToColumns(const std::string& text, size_t columns, bool right = false);
// The longest start of the text that fits in `columns`, never cut inside a
// character.
std::string CutToColumns(const std::string& text, size_t columns);

// A translated text with "%s" holes filled in: "%s" takes the next part,
// "%N$s" the Nth, so a translation may put them in another order.
std::string FillText(const std::string& pattern, const std::vector<std::string>& parts);

// The program's own text in the user's language (LC_ALL, LC_MESSAGES, LANG;
// Simplified or Traditional Chinese, else English as written). The result
// lives as long as the program.
const char* _(const char* text);

}  // namespace scopemount::cli
