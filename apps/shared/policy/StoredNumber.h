// Numbers as the database hands them out, as texts.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "console/Text.h"
#include "policy/PolicyError.h"

// Throws PolicyError for NULL, and for what is no number of that type: SQLite takes any text for one.
template <typename Number>
Number numberIn(const std::optional<std::string>& text) {
  const std::string_view digits = text ? std::string_view(*text) : std::string_view("NULL");
  Number number = 0;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (read.ec != std::errc() || read.ptr != digits.data() + digits.size()) {
    throw PolicyError("the stored policy holds " + quoted(std::string(digits)) + " for a number");
  }
  return number;
}
