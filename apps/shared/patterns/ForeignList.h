// Lists of addresses as people keep them for other programs, in patterns.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class ListFormat { Plain, Access, Csv };

// What a line says.
struct ListLine {
  std::vector<std::string> patterns;
  std::string fault;   // why no pattern says it; otherwise a line without patterns says nothing
  std::string action;  // of a line of an access map, in capitals
};

// Lines of one file, in their order.
class ForeignList {
 public:
  //   column   of CSV: a number from 1, or a name in the first line
  ForeignList(ListFormat format, std::string column) : m_format(format), m_column(std::move(column)) {}

  // Throws RuntimeError for a first line that lacks the named column.
  ListLine read(const std::string& line);

 private:
  ListLine _field(const std::string& line);

  ListFormat m_format;
  std::string m_column;
  std::optional<std::size_t> m_place;  // of the column, once it is known
};
