// A list that takes memory of the heap only for more elements than usual.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace zaro_addressmatch {

// Of plain values. Up to `kFew` lie in the list itself, uninitialised as long as they are not used; more lie in a vector.
template <typename Element, std::size_t kFew>
class FewElements {
 public:
  FewElements() : m_size(0) {}
  FewElements(const FewElements&) = delete;
  FewElements& operator=(const FewElements&) = delete;

  const Element* begin() const { return m_many.empty() ? m_few : m_many.data(); }
  const Element* end() const { return begin() + m_size; }
  bool empty() const { return m_size == 0; }

  // Throws std::bad_alloc (strong guarantee).
  void add(const Element& element) {
    if (m_many.empty() && m_size != kFew) {
      m_few[m_size] = element;
    } else {
      if (m_many.empty()) {
        m_many.assign(m_few, m_few + m_size);
      }
      m_many.push_back(element);
    }
    ++m_size;
  }
  // Asks once for each, in order.
  template <typename Predicate>
  void removeIf(Predicate predicate) {
    Element* first = m_many.empty() ? m_few : m_many.data();
    m_size = static_cast<std::size_t>(std::remove_if(first, first + m_size, predicate) - first);
    if (!m_many.empty()) {
      m_many.erase(m_many.begin() + static_cast<std::ptrdiff_t>(m_size), m_many.end());
    }
  }

 private:
  Element m_few[kFew];
  std::size_t m_size;
  std::vector<Element> m_many;  // all of them, or none
};

}  // namespace zaro_addressmatch
