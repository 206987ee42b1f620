// UTF-8 as both databases have it: nothing overlong, no halves of surrogate pairs, nothing beyond U+10FFFF.
#pragma once

#include <cstddef>
#include <string_view>

namespace zaroruntime {

// Bytes of the well-formed character at `at`, U+0000 included; 0 if there is none.
std::size_t utf8Length(std::string_view text, std::size_t at);

// Where a text stops being one that a database stores: at the first byte that is 0 or begins no well-formed character.
// npos for a text that is UTF-8 throughout.
std::size_t findNotUtf8(std::string_view text);

}  // namespace zaroruntime
