// A copy of a text in lower case.
#pragma once

#include <cstring>
#include <memory>

#include "addressmatch/text/Swar.h"

namespace zaro_addressmatch {

// Beside the stack if the text is long. Making one throws std::bad_alloc.
class LowerCaseText {
 public:
  explicit LowerCaseText(const char* text) : m_words(m_room), m_size(std::strlen(text)) {
    if (m_size > kShort) {
      m_long.reset(new std::uint64_t[wordsFor(m_size)]);
      m_words = m_long.get();
    }
    lower(text, m_size, m_words);
  }
  LowerCaseText(const LowerCaseText&) = delete;
  LowerCaseText& operator=(const LowerCaseText&) = delete;

  char* get() { return reinterpret_cast<char*>(m_words); }
  const char* get() const { return reinterpret_cast<const char*>(m_words); }
  const std::uint64_t* words() const { return m_words; }
  // Of the original; a caller that cuts the text does not change it.
  std::size_t size() const { return m_size; }

 private:
  static constexpr std::size_t kShort = 96;

  std::uint64_t m_room[wordsFor(kShort)];
  std::unique_ptr<std::uint64_t[]> m_long;
  std::uint64_t* m_words;
  std::size_t m_size;
};

}  // namespace zaro_addressmatch
