// The public header from C++: UTF-16 text arrives as char16_t.
#include "scopemount.h"

#include <cstdio>
#include <string_view>

int main() {
  ScopeChar16 text[SCOPE_TEXT_BUFFER_UNITS];
  if (ScopeGetModelName(SCOPE_MODEL_EQUATORIAL_SIMULATOR, text) != SCOPE_OK) return 1;
  if (std::u16string_view(text) != u"EQ Mount Simulator") {
    std::fputs("unexpected model name\n", stderr);
    return 1;
  }
  std::puts("C++ header: all checks passed");
  return 0;
}
