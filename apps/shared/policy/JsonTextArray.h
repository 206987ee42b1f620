// An array of texts in JSON (RFC 8259), as a database puts one together.
#pragma once

#include <functional>
#include <string_view>

// Hands on each text in its order; the view lasts for that call. Answers false for an array that is cut, and for an
// escape beyond ASCII, which no database writes; bytes that are no UTF-8 come as they are. The JSON library takes
// several times as long, and the reading of long lists consists of little else.
bool eachTextIn(std::string_view array, const std::function<void(std::string_view text)>& take);
