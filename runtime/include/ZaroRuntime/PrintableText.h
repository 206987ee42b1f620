// Texts from outside, fit for a terminal or a log.
#pragma once

#include <string>

namespace zaroruntime {

// The text on one line that no terminal obeys: line ends and tabs as \n, \r, \t, a backslash doubled, and every other
// control character (U+0080 to U+009F included) and byte that is no UTF-8 as \xNN.
std::string printableText(const std::string& text);

}  // namespace zaroruntime
