#include "console/JsonText.h"

#include <algorithm>

namespace {

// Where the string ends that begins before `at`: at its closing quote, or the end of the text.
std::size_t endOfString(std::string_view text, std::size_t at) {
  for (;;) {
    at = std::min(text.find_first_of("\"\\", at), text.size());
    if (at == text.size() || text[at] == '"') {
      return at;
    }
    at += 2;  // an escaped character
  }
}

// Of a text that is no JSON the depth is right up to its fault, where the parser stops.
bool isNestedTooDeeply(std::string_view text) {
  std::size_t depth = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    switch (text[at]) {
      case '"':
        at = endOfString(text, at + 1);
        break;
      case '[':
      case '{':
        if (++depth > kDeepestJson) {
          return true;
        }
        break;
      case ']':
      case '}':
        depth -= depth != 0 ? 1 : 0;
        break;
      default:
        break;
    }
  }
  return false;
}

}  // namespace

// An object of ordered_json is a vector: when it grows it copies its values, by recursion, which a deeply nested one
// makes overflow the stack. The parser's callback could tell the depth too, but looks through the whole array at the
// end of each object in it.
nlohmann::ordered_json parsedJson(std::string_view text) {
  if (isNestedTooDeeply(text)) {
    throw JsonTextError("nests values more than " + std::to_string(kDeepestJson) + " levels deep");
  }
  try {
    return nlohmann::ordered_json::parse(text);
  } catch (const nlohmann::ordered_json::exception& failure) {  // also of another class, for a number such as 1e999
    throw JsonTextError(std::string("is no JSON: ") + failure.what());
  }
}
