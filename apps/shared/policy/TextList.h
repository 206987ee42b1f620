// Texts in their order, side by side in one piece of memory: millions of them are made and go at once, and take little
// more than their characters.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

class TextList {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    using pointer = const std::string_view*;
    using reference = std::string_view;

    Iterator(const TextList& list, std::size_t place) : m_list(&list), m_place(place) {}
    std::string_view operator*() const { return (*m_list)[m_place]; }
    Iterator& operator++() {
      ++m_place;
      return *this;
    }
    Iterator operator++(int) { return {*m_list, m_place++}; }
    bool operator==(const Iterator& other) const { return m_place == other.m_place; }
    bool operator!=(const Iterator& other) const { return m_place != other.m_place; }

   private:
    const TextList* m_list;
    std::size_t m_place;
  };

  using value_type = std::string_view;
  using const_iterator = Iterator;

  TextList() = default;
  TextList(std::initializer_list<std::string_view> texts) {
    for (const std::string_view text : texts) {
      add(text);
    }
  }

  // Throws std::bad_alloc, and the list is of no use then.
  void add(std::string_view text) {
    m_characters.append(text).push_back('\0');
    m_ends.push_back(m_characters.size());
  }
  // `texts` is another list.
  void add(const TextList& texts) {
    const std::size_t before = m_characters.size();
    m_characters += texts.m_characters;
    for (const std::size_t end : texts.m_ends) {
      m_ends.push_back(before + end);
    }
  }

  std::size_t size() const { return m_ends.size(); }
  bool empty() const { return m_ends.empty(); }
  // The text, with a NUL behind it. Like iterators it is good until a text is added, or the list moves or ends.
  std::string_view operator[](std::size_t place) const {
    const std::size_t begin = place != 0 ? m_ends[place - 1] : 0;
    return {m_characters.data() + begin, m_ends[place] - begin - 1};
  }
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, size()}; }

 private:
  std::string m_characters;
  std::vector<std::size_t> m_ends;  // one behind each text's zero
};
