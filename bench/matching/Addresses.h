// The addresses of a benchmark, one after the other.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

// Goes round through the addresses.
class Addresses {
 public:
  Addresses(const std::vector<std::string>& texts, std::size_t begin) : m_texts(texts), m_next(begin % texts.size()) {}

  const char* next() {
    const char* text = m_texts[m_next].c_str();
    m_next = m_next + 1 != m_texts.size() ? m_next + 1 : 0;
    return text;
  }

 private:
  const std::vector<std::string>& m_texts;
  std::size_t m_next;
};

}  // namespace bench
