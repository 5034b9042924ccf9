#include "text.h"

#include "scopemount.h"

#include <cctype>

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

// One character of UTF-8 from `at`, which moves past it; a stray byte is
// taken as one character of its own.
char32_t NextCharacter(const std::string& text, size_t& at) {
  const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at++);
  const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
  char32_t c = more == 0 ? lead : lead & (0x3F >> more);
  for (int i = 0; i < more && at < text.size() && (byte(at) & 0xC0) == 0x80; ++i) {
    c = (c << 6) | (byte(at++) & 0x3F);
  }
  return c;
}

// Wide and combining ranges of the scripts the program's texts use.
int ColumnsOf(char32_t c) {
  if ((c >= 0x0300 && c <= 0x036F) || (c >= 0xFE00 && c <= 0xFE0F)) return 0;
  const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) ||
                    (c >= 0x3041 && c <= 0xA4CF) || (c >= 0xAC00 && c <= 0xD7A3) ||
                    (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
                    (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) ||
                    (c >= 0x20000 && c <= 0x3FFFD);
  return wide ? 2 : 1;
}

}  // namespace

size_t DisplayColumns(const std::string& text) {
  size_t columns = 0;
  for (size_t at = 0; at < text.size();) columns += ColumnsOf(NextCharacter(text, at));
  return columns;
}

std::string PadToColumns(const std::string& text, size_t columns, bool right) {
  const size_t used = DisplayColumns(text);
  if (used >= columns) return text;
  const std::string fill(columns - used, ' ');
  return right ? fill + text : text + fill;
}

std::string CutToColumns(const std::string& text, size_t columns) {
  size_t used = 0;
  size_t at = 0;
  while (at < text.size()) {
    size_t next = at;
    const int width = ColumnsOf(NextCharacter(text, next));
    if (used + width > columns) break;
    used += width;
    at = next;
  }
  return text.substr(0, at);
}

// The translated pattern with the parts put in: "%s" takes the next part,
// "%N$s" the Nth.
std::string FillText(const std::string& pattern, const std::vector<std::string>& parts) {
  std::string out;
  size_t next = 0;
  for (size_t at = 0; at < pattern.size(); ++at) {
    if (pattern[at] != '%' || at + 1 == pattern.size()) {
      out += pattern[at];
    } else if (pattern[at + 1] == 's') {
      if (next < parts.size()) out += parts[next++];
      ++at;
    } else if (std::isdigit(static_cast<unsigned char>(pattern[at + 1])) &&
               pattern.compare(at + 2, 2, "$s") == 0) {
      const size_t n = static_cast<size_t>(pattern[at + 1] - '1');
      if (n < parts.size()) out += parts[n];
      at += 3;
    } else {
      out += pattern[at];
    }
  }
  return out;
}

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
