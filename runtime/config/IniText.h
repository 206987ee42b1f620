// The text of an ini file, line by line: what the parser does not keep.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace zaroruntime {

// Number of the first line, from 1, that is not blank, a comment, a section or a key with a value; nothing if there is
// none.
std::optional<std::size_t> malformedIniLine(const std::string& text);

// The text with one value set; every other line stays as it is, byte by byte. A key that is new comes behind the last
// one of its section, a new section at the end. Names and value must be such that a line can hold them.
std::string withIniValue(const std::string& text, const std::string& section, const std::string& key,
                         const std::string& value);

}  // namespace zaroruntime
