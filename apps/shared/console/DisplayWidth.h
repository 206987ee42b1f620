// How much room a UTF-8 text takes on a terminal.
#pragma once

#include <cstddef>
#include <string>

// Columns: two for most ideographs, none for combining characters.
std::size_t displayWidth(const std::string& text);

// The text, or as much of it as fits into the columns with an ellipsis behind.
std::string cutToWidth(const std::string& text, std::size_t columns);
