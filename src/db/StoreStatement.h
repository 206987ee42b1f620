// The frame that every store operation repeats: load a statement file into a buffer of fixed size, run it, read its
// columns, and turn a thrown text into a log line and a result.
#pragma once

#include <climits>
#include <cstdlib>
#include <string>

#include "KxSqlLoader.h"
#include "PolicyLog.h"
#include "RdbmsInterface.h"

namespace ZARO {

// A caller's text, made fit for a quoted literal; keep it alive until the statement has run.
class EscapedText {
 public:
  explicit EscapedText(const char* text) : m_text(nullptr) { RdbmsInterface::escapeData(text, m_work, m_text); }

  EscapedText(const EscapedText&) = delete;
  EscapedText& operator=(const EscapedText&) = delete;

  // Null when the caller's text is.
  const char* get() const { return m_text; }

 private:
  std::string m_work;
  const char* m_text;
};

// Runs an operation; a text that it throws goes to `onThrow`, whose answer is then the result.
template <typename Operation, typename Handler>
auto catchThrownText(Operation operation, Handler onThrow) -> decltype(operation()) {
  try {
    return operation();
  } catch (const char* thrown) {
    return onThrow(thrown);
  }
}

// The text of a statement, in a buffer of the caller's.
class StatementText {
 public:
  // At least 1 byte.
  StatementText(char* buffer, int size) : m_text(buffer), m_size(size) { m_text[0] = '\0'; }

  StatementText(const StatementText&) = delete;
  StatementText& operator=(const StatementText&) = delete;

  // Loads the file with its parameters; throws `const char*`.
  template <typename... Parameters>
  void load(const char* file, Parameters... parameters) {
    m_text[0] = '\0';
    try {
      KxSqlLoader(RdbmsInterface::GetSqlPath()).loadSQL(m_text, m_size, file, parameters...);
    } catch (const char*) {
      m_text[0] = '\0';  // the loader may have begun to write; messages show only what was really loaded
      throw;
    }
  }

  // Runs an operation around this statement. A thrown text is logged at level 1 with `format`, which takes it and the
  // statement, and `failure` is the result.
  template <typename Result, typename Operation>
  Result guard(const char* format, Result failure, Operation operation) {
    return catchThrownText(operation, [&](const char* thrown) -> Result {
      PolicyLog::log(LogLevel::Error, format, thrown, m_text);
      return failure;
    });
  }

  // The statement as loaded; empty while nothing has been.
  const char* get() const { return m_text; }

 private:
  char* m_text;
  int m_size;
};

// The statement of one store operation, in a buffer of `Size` bytes within the object.
template <int Size>
class StoreStatement {
 public:
  explicit StoreStatement(RdbmsInterface& db) : m_db(db), m_text(m_buffer, Size) {}

  // Loads the file with its parameters and executes it; throws `const char*`.
  template <typename... Parameters>
  void run(const char* file, Parameters... parameters) {
    m_text.load(file, parameters...);
    m_db.executeSQL(m_text.get());
  }

  // See `StatementText`.
  template <typename Result, typename Operation>
  Result guard(const char* format, Result failure, Operation operation) {
    return m_text.guard(format, failure, operation);
  }

  // The statement as executed; empty while nothing has been loaded.
  const char* text() const { return m_text.get(); }

 private:
  RdbmsInterface& m_db;
  char m_buffer[Size];
  StatementText m_text;
};

// A column text as messages show it.
inline const char* shownText(const char* column) {
  return column != nullptr ? column : "NULL string";
}

// Reads the number at the start of a column text: leading blanks, a sign, digits; whatever follows is ignored.
// Identifiers are unsigned and some are stored as negative numbers, so both 32-bit ranges are taken, and the answer is
// the same in either word size (a scan with "%d" stops at `long`). False, and `value` untouched, for null, for no
// digits and for numbers that 32 bits cannot hold.
template <typename Integer>
bool readNumber(const char* column, Integer& value) {
  static_assert(sizeof(Integer) == 4, "columns hold 32-bit numbers");
  if (column == nullptr) {
    return false;
  }
  char* end = nullptr;
  // A number beyond `long long` comes back as the end of its range, which 32 bits cannot hold either.
  const long long number = std::strtoll(column, &end, 10);
  if (end == column || number < INT_MIN || number > static_cast<long long>(UINT_MAX)) {
    return false;
  }
  value = static_cast<Integer>(number);
  return true;
}

}  // namespace ZARO
