#include "text.h"

#include "scopemount.h"

namespace scopemount::cli {

namespace {

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

bool IsHighSurrogate(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

}  // namespace

std::string Utf16ToUtf8(const char16_t* text) {
  std::string out;
  for (const char16_t* p = text; *p != u'\0'; ++p) {
    char32_t c = *p;
    if (IsHighSurrogate(p[0]) && IsLowSurrogate(p[1])) {
      c = 0x10000 + ((static_cast<char32_t>(p[0]) - 0xD800) << 10) + (p[1] - 0xDC00);
      ++p;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::string ErrorMessage(int32_t code) {
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  ScopeGetErrorText(code, buffer);
  return Utf16ToUtf8(buffer);
}

std::string ModelName(int32_t model) {
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  if (ScopeGetModelName(model, buffer) != SCOPE_OK) return {};
  return Utf16ToUtf8(buffer);
}

}  // namespace scopemount::cli
