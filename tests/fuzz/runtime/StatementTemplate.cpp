// Statement files and their arguments: whatever is accepted stays one statement, with the literals it had.
#include "sql/StatementTemplate.h"

#include <vector>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "sql/SqlText.h"

namespace {

std::string format(const zaroruntime::StatementTemplate* statement, ...) {
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

}  // namespace

// The file's text, a NUL, the argument.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input = textOf(data, size);
  const std::size_t middle = std::min(input.find('\0'), input.size());
  const std::string file = input.substr(0, middle);
  const std::string argument = middle < input.size() ? input.substr(middle + 1) : "";
  try {
    const zaroruntime::StatementTemplate statement(file);
    if (statement.conversions().find_first_not_of('s') != std::string::npos || statement.conversions().size() > 4) {
      return 0;
    }
    const char* text = argument.c_str();
    const std::string filled = format(&statement, text, text, text, text);
    if (filled.empty()) {
      return 0;  // the argument was refused
    }
    FUZZ_CHECK(zaroruntime::whyNotOneStatement(filled).empty());
    const std::string plain = format(&statement, "", "", "", "");
    for (const auto piece : {zaroruntime::SqlPiece::Literal, zaroruntime::SqlPiece::Code}) {
      FUZZ_CHECK(count(zaroruntime::scanSql(filled), piece) == count(zaroruntime::scanSql(plain), piece));
    }
  } catch (const zaroruntime::RuntimeError&) {
  }
  return 0;
}
