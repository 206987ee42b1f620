#include "sql/StatementTemplate.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <map>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StatementFile.h"
#include "common/AsciiText.h"
#include "common/FileText.h"
#include "sql/SqlText.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLargestStatementFile = 1024 * 1024;

std::string withoutTrailingEnd(std::string text) {
  while (!text.empty() && (text.back() == ';' || isAsciiBlank(text.back()))) {
    text.pop_back();
  }
  return text;
}

bool hasUndoubledQuote(const char* text) {
  for (const char* quote = std::strchr(text, '\''); quote != nullptr; quote = std::strchr(quote + 2, '\'')) {
    if (quote[1] != '\'') {
      return true;
    }
  }
  return false;
}

std::vector<SqlPiece> piecesOf(const std::string& text) {
  std::vector<SqlPiece> pieces;
  for (const SqlSegment& segment : scanSql(text)) {
    pieces.push_back(segment.piece);
  }
  return pieces;
}

bool isUnchanged(const struct stat& before, const struct stat& now) {
  return before.st_ino == now.st_ino && before.st_dev == now.st_dev && before.st_size == now.st_size &&
         before.st_ctim.tv_sec == now.st_ctim.tv_sec && before.st_ctim.tv_nsec == now.st_ctim.tv_nsec;
}

// One that was just written may be written again within a tick of its clock, and then looks unchanged.
bool isSettled(const struct stat& status) {
  constexpr std::time_t kSeconds = 2;
  return status.st_ctim.tv_sec + kSeconds <= std::time(nullptr);
}

}  // namespace

StatementTemplate::StatementTemplate(std::string text) : m_text(withoutTrailingEnd(std::move(text))) {
  if (m_text.empty()) {
    throw RuntimeError("there is no statement");
  }
  if (m_text.find('\0') != std::string::npos) {
    throw RuntimeError("there is a NUL byte");
  }
  const std::string wrong = whyNotOneStatement(m_text);
  if (!wrong.empty()) {
    throw RuntimeError(wrong);
  }
  for (const SqlSegment& segment : scanSql(m_text)) {
    for (std::size_t at = segment.begin; at < segment.end; ++at) {
      if (m_text[at] != '%') {
        continue;
      }
      const char letter = at + 1 < segment.end ? m_text[at + 1] : '\0';
      if (letter == '\0' || std::strchr("sdu%", letter) == nullptr) {
        throw RuntimeError("a percent sign is not followed by s, d, u or another percent sign");
      }
      if (letter == 's' && segment.piece != SqlPiece::Literal) {
        throw RuntimeError("%s stands outside a plain literal");
      }
      m_conversions.push_back({letter, at});
      ++at;
    }
  }
  // A minus sign twice begins a comment, and "$$" behind a digit begins a literal, which it does not behind a letter.
  for (const char* number : {"1", "-1"}) {
    if (piecesOf(_withNumbers(number)) != piecesOf(m_text)) {
      throw RuntimeError("a number stands where it would end or begin a literal, a name or a comment");
    }
  }
}

std::string StatementTemplate::_withNumbers(const std::string& number) const {
  std::string statement;
  std::size_t rest = 0;
  for (const Conversion& conversion : m_conversions) {
    statement.append(m_text, rest, conversion.position - rest);
    rest = conversion.position + 2;
    if (conversion.letter == 'd') {
      statement += number;
    } else if (conversion.letter != 's') {
      statement += conversion.letter == 'u' ? '1' : '%';
    }
  }
  return statement.append(m_text, rest, std::string::npos);
}

std::string StatementTemplate::conversions() const {
  std::string letters;
  for (const Conversion& conversion : m_conversions) {
    if (conversion.letter != '%') {
      letters += conversion.letter;
    }
  }
  return letters;
}

std::string StatementTemplate::format(va_list arguments) const {
  std::string statement;
  statement.reserve(m_text.size() + 64);
  std::size_t rest = 0;
  int count = 0;
  for (const Conversion& conversion : m_conversions) {
    statement.append(m_text, rest, conversion.position - rest);
    rest = conversion.position + 2;
    if (conversion.letter == '%') {
      statement += '%';
      continue;
    }
    ++count;
    if (conversion.letter == 'd') {
      statement += std::to_string(va_arg(arguments, int));
    } else if (conversion.letter == 'u') {
      statement += std::to_string(va_arg(arguments, unsigned int));
    } else {
      const char* text = va_arg(arguments, const char*);
      if (text == nullptr) {
        throw RuntimeError("argument " + std::to_string(count) + " is a null text");
      }
      if (hasUndoubledQuote(text)) {
        throw RuntimeError("argument " + std::to_string(count) + " holds a quote that is not doubled");
      }
      statement += text;
    }
  }
  return statement.append(m_text, rest, std::string::npos);
}

StatementTemplate readStatementFile(const std::string& path) {
  std::string text = readFileText(path, kLargestStatementFile, FailureKind::Configuration);
  try {
    return StatementTemplate(std::move(text));
  } catch (const RuntimeError& failure) {
    throw RuntimeError(path + ": " + failure.what(), FailureKind::Configuration);
  }
}

const StatementTemplate& statementFile(const std::string& path) {
  struct Known {
    struct stat status;
    StatementTemplate statement;
  };
  thread_local std::map<std::string, Known> files;
  struct stat now = {};
  const bool exists = ::stat(path.c_str(), &now) == 0;
  const auto found = files.find(path);
  if (found != files.end() && exists && isUnchanged(found->second.status, now)) {
    return found->second.statement;
  }
  if (found != files.end()) {
    files.erase(found);
  }
  StatementTemplate statement = readStatementFile(path);
  if (!exists || !isSettled(now)) {
    now = {};  // to be read again next time
  }
  return files.insert_or_assign(path, Known{now, std::move(statement)}).first->second.statement;
}

std::string statementConversions(const std::string& path) {
  return readStatementFile(path).conversions();
}

}  // namespace zaroruntime
