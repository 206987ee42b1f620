// Statement files and their arguments: whatever is accepted stays one statement, with the literals it had.
#include "sql/StatementTemplate.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "sql/SqlText.h"

namespace {

using zaroruntime::StatementTemplate;

std::string format(const StatementTemplate* statement, ...) {
  va_list arguments;
  va_start(arguments, statement);
  std::string text;
  try {
    text = statement->format(arguments);
  } catch (const zaroruntime::RuntimeError&) {
  }
  va_end(arguments);
  return text;
}

std::size_t count(const std::vector<zaroruntime::SqlSegment>& segments, zaroruntime::SqlPiece piece) {
  std::size_t found = 0;
  for (const auto& segment : segments) {
    found += segment.piece == piece ? 1 : 0;
  }
  return found;
}

// A statement with one text and one number in all its places; nothing when it is refused, and where there are more than
// four texts, or more than two places that take numbers too.
std::string filled(const StatementTemplate& statement, const char* text, int number) {
  const std::string places = statement.conversions();
  if (places.size() > 2) {
    const bool areTexts = places.size() <= 4 && places.find_first_not_of('s') == std::string::npos;
    return areTexts ? format(&statement, text, text, text, text) : "";
  }
  const bool first = !places.empty() && places[0] == 's';
  const bool second = places.size() == 2 && places[1] == 's';
  if (first) {
    return second ? format(&statement, text, text) : format(&statement, text, number);
  }
  return second ? format(&statement, number, text) : format(&statement, number, number);
}

void check(const StatementTemplate& statement, const char* text, int number) {
  const std::string one = filled(statement, text, number);
  if (one.empty()) {
    return;  // the text was refused
  }
  FUZZ_CHECK(zaroruntime::whyNotOneStatement(one).empty());
  const std::string plain = filled(statement, "", 1);
  for (const auto piece : {zaroruntime::SqlPiece::Literal, zaroruntime::SqlPiece::Code}) {
    FUZZ_CHECK(count(zaroruntime::scanSql(one), piece) == count(zaroruntime::scanSql(plain), piece));
  }
}

}  // namespace

// The file's text, a NUL, the text that is an argument.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input = textOf(data, size);
  const std::size_t middle = std::min(input.find('\0'), input.size());
  const std::string argument = middle < input.size() ? input.substr(middle + 1) : "";
  try {
    const StatementTemplate statement(input.substr(0, middle));
    for (const int number : {0, 7, -7, INT_MIN}) {
      check(statement, argument.c_str(), number);
    }
  } catch (const zaroruntime::RuntimeError&) {
  }
  return 0;
}
