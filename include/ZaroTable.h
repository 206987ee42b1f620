// A constant table of the library, as its users walk it.
#pragma once

#include <cstddef>

// Refers to rows that live as long as the library; copy it freely.
template <typename Row>
class ZaroTable {
 public:
  template <std::size_t Size>
  explicit constexpr ZaroTable(const Row (&rows)[Size]) : m_rows(rows), m_size(Size) {}

  constexpr const Row* begin() const { return m_rows; }
  constexpr const Row* end() const { return m_rows + m_size; }
  constexpr std::size_t size() const { return m_size; }

 private:
  const Row* m_rows;
  std::size_t m_size;
};
