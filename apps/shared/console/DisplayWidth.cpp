#include "console/DisplayWidth.h"

#include <locale.h>
#include <wchar.h>

namespace {

constexpr const char* kEllipsis = "\xE2\x80\xA6";  // one column

// The C library knows the widths in a locale of UTF-8 only. It is this thread's while the object lives; the process's
// own stays as it is.
class Utf8Locale {
 public:
  Utf8Locale() : m_before(uselocale(utf8())) {}
  ~Utf8Locale() { uselocale(m_before); }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  // Null, which changes nothing, where the C library has none.
  static locale_t utf8() {
    static const locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return made;
  }

  locale_t m_before;
};

struct Character {
  std::size_t bytes;
  std::size_t columns;
};

// The character at the begin of a text that is not empty. What is none takes a column for each byte.
Character characterAt(const char* text, std::size_t size) {
  wchar_t character = 0;
  mbstate_t state = {};
  const std::size_t bytes = mbrtowc(&character, text, size, &state);
  if (bytes == 0 || bytes > size) {
    return {1, 1};
  }
  const int columns = wcwidth(character);
  return {bytes, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

}  // namespace

std::size_t displayWidth(const std::string& text) {
  const Utf8Locale locale;
  std::size_t width = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Character next = characterAt(text.data() + at, text.size() - at);
    width += next.columns;
    at += next.bytes;
  }
  return width;
}

std::string cutToWidth(const std::string& text, std::size_t columns) {
  if (displayWidth(text) <= columns) {
    return text;
  }
  const Utf8Locale locale;
  std::size_t width = 1;  // of the ellipsis
  std::size_t at = 0;
  while (at < text.size()) {
    const Character next = characterAt(text.data() + at, text.size() - at);
    if (width + next.columns > columns) {
      break;
    }
    width += next.columns;
    at += next.bytes;
  }
  return text.substr(0, at) + kEllipsis;
}
