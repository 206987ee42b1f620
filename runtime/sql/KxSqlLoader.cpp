#include "KxSqlLoader.h"

#include <cstdarg>
#include <cstring>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "common/ThrownText.h"
#include "sql/StatementTemplate.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

struct KxSqlLoader::Impl {
  std::string directory;
};

KxSqlLoader::KxSqlLoader(const char* sqlDirectory)
    : m_impl(zaroruntime::throwingText([&] { return new Impl{sqlDirectory != nullptr ? sqlDirectory : ""}; })) {}

KxSqlLoader::~KxSqlLoader() {
  delete m_impl;
}

void KxSqlLoader::loadSQL(char* buffer, int size, const char* fileName, ...) {
  va_list arguments;
  va_start(arguments, fileName);
  struct EndArguments {
    va_list& list;
    ~EndArguments() { va_end(list); }
  } const endArguments{arguments};

  zaroruntime::throwingText([&] {
    if (buffer == nullptr || size <= 0 || fileName == nullptr) {
      throw RuntimeError("loadSQL: no buffer or no file name");
    }
    if (std::strchr(fileName, '/') != nullptr) {
      throw RuntimeError(std::string(fileName) + ": a statement file is named without its directory");
    }
    const auto& file = zaroruntime::statementFile(m_impl->directory + '/' + fileName);
    std::string statement;
    try {
      statement = file.format(arguments);
    } catch (const RuntimeError& failure) {
      throw RuntimeError(std::string(fileName) + ": " + failure.what(), FailureKind::Configuration);
    }
    // A statement cut short is not a failing one but a wrong one: "WHERE id=12" becomes "WHERE id=1".
    if (statement.size() >= static_cast<std::size_t>(size)) {
      throw RuntimeError(std::string(fileName) + ": the statement takes " + std::to_string(statement.size() + 1) +
                             " bytes and its buffer has " + std::to_string(size),
                         FailureKind::Data);
    }
    std::memcpy(buffer, statement.c_str(), statement.size() + 1);
  });
}
