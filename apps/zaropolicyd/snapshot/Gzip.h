// The gzip form of a text (RFC 1952), as clients take it.
#pragma once

#include <string>
#include <string_view>

// Throws RuntimeError.
std::string gzipped(std::string_view text);
