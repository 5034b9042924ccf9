// The program's own texts in the user's language: a compiled message
// catalogue (.mo) read directly, so that the language follows LC_ALL,
// LC_MESSAGES and LANG even where no Chinese locale is installed.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <unordered_map>

#include "text.h"

namespace scopemount::cli {

namespace {

constexpr const char* TEXT_DOMAIN = "scopemount";
constexpr uint32_t MO_MAGIC = 0x950412de;
constexpr uint32_t MO_MAGIC_SWAPPED = 0xde120495;
// Header words: magic, revision, count, originals' table, translations' table.
constexpr size_t MO_HEADER_WORDS = 5;
// A table entry: a string's length and its offset in the file.
constexpr size_t MO_ENTRY_BYTES = 8;

struct Region {
  const char* prefix;
  const char* catalogue;
};

// Exactly the regions the library's messages speak, so that a user never
// reads the program in one language and the library in another (Hong Kong,
// Singapore and Macau read English from both).
constexpr Region CHINESE_REGIONS[] = {{"zh_CN", "zh_CN"}, {"zh_TW", "zh_TW"}};

// A locale name is a region when it is that region, maybe followed by an
// encoding (".UTF-8") or a modifier ("@...").
bool NamesRegion(const char* locale, const char* prefix) {
  const size_t n = std::strlen(prefix);
  if (std::strncmp(locale, prefix, n) != 0) return false;
  return locale[n] == '\0' || locale[n] == '.' || locale[n] == '@';
}

const char* UserLocale() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] != '\0') return value;
  }
  return "";
}

const char* CatalogueLanguage() {
  const char* locale = UserLocale();
  for (const Region& region : CHINESE_REGIONS) {
    if (NamesRegion(locale, region.prefix)) return region.catalogue;
  }
  return nullptr;  // English: the texts as written
}

// Where catalogues live: SCOPEMOUNT_LOCALEDIR if set, else where the program
// is installed, else the build tree (for the program run where it was built).
std::string ReadCatalogueFile(const char* language) {
  const std::string file = std::string("/") + language + "/LC_MESSAGES/" + TEXT_DOMAIN + ".mo";
  const char* fromEnvironment = std::getenv("SCOPEMOUNT_LOCALEDIR");
  for (const char* dir :
       {fromEnvironment, SCOPEMOUNT_INSTALL_LOCALEDIR, SCOPEMOUNT_BUILD_LOCALEDIR}) {
    if (dir == nullptr || dir[0] == '\0') continue;
    std::ifstream in(dir + file, std::ios::binary);
    if (in) return std::string(std::istreambuf_iterator<char>(in), {});
  }
  return {};
}

class Catalogue {
 public:
  explicit Catalogue(const char* language) {
    if (language != nullptr) data_ = ReadCatalogueFile(language);
    Index();
  }
  const char* Find(const char* text) const {
    const auto found = translations_.find(text);
    return found == translations_.end() ? text : found->second;
  }

 private:
  uint32_t Word(size_t at) const {
    uint32_t w = 0;
    std::memcpy(&w, data_.data() + at, sizeof w);
    return swapped_ ? __builtin_bswap32(w) : w;
  }
  // A (length, offset) entry's string, or nothing if it lies outside the file.
  std::string_view Entry(size_t table, uint32_t i) const {
    if (table > data_.size() || i >= (data_.size() - table) / MO_ENTRY_BYTES) return {};
    const size_t at = table + size_t{i} * MO_ENTRY_BYTES;
    const uint32_t length = Word(at), offset = Word(at + 4);
    if (offset > data_.size() || length >= data_.size() - offset) return {};
    return {data_.data() + offset, length};  // zero-terminated in the file
  }
  void Index() {
    if (data_.size() < MO_HEADER_WORDS * 4) return;
    const uint32_t magic = Word(0);
    if (magic == MO_MAGIC_SWAPPED) {
      swapped_ = true;
    } else if (magic != MO_MAGIC) {
      return;
    }
    // No more entries than the file could hold, whatever the header says.
    const uint32_t count =
        static_cast<uint32_t>(std::min<size_t>(Word(8), data_.size() / MO_ENTRY_BYTES));
    const size_t originals = Word(12), translated = Word(16);
    for (uint32_t i = 0; i < count; ++i) {
      const std::string_view from = Entry(originals, i), to = Entry(translated, i);
      if (from.empty() || to.empty()) continue;  // the header, or a damaged entry
      translations_.emplace(from, to.data());
    }
  }

  std::string data_;
  bool swapped_ = false;
  std::unordered_map<std::string_view, const char*> translations_;
};

}  // namespace

const char* _(const char* text) {
  static const Catalogue catalogue(CatalogueLanguage());
  return catalogue.Find(text);
}

}  // namespace scopemount::cli
