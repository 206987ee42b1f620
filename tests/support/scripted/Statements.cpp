#include "scripted/Statements.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "KxSqlLoader.h"
#include "installation/StatementCatalog.h"
#include "scripted/Platform.h"

namespace scripted {

namespace {

// "ui_RemoveNamedObj.sql [%u] [%u]"
std::string defaultText(const CataloguedStatement& statement) {
  std::string text = statement.file;
  for (const char conversion : std::string(statement.conversions)) {
    text.append(" [%").append(1, conversion).append("]");
  }
  return text;
}

// Fills in the parameters; throws `const char*` for a null text.
void format(const std::string& pattern, va_list parameters, LoadedStatement& statement) {
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    if (pattern[at] != '%') {
      statement.text += pattern[at];
      continue;
    }
    const char conversion = ++at < pattern.size() ? pattern[at] : '\0';
    if (conversion == '%') {
      statement.text += '%';
      continue;
    }
    std::string argument;
    if (conversion == 's') {
      const char* text = va_arg(parameters, const char*);
      if (text == nullptr) {
        throwText("null argument for " + statement.file);
      }
      argument = text;
    } else if (conversion == 'd') {
      argument = std::to_string(va_arg(parameters, int));
    } else if (conversion == 'u') {
      argument = std::to_string(va_arg(parameters, unsigned int));
    } else {
      throw std::logic_error("the test's text for " + statement.file + " holds an unknown conversion");
    }
    statement.text += argument;
    statement.arguments.push_back(std::move(argument));
  }
}

// Copies at most `size - 1` bytes and a terminator.
void copyTo(char* buffer, std::size_t size, const std::string& text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

}  // namespace

Statements::Statements() {
  reset();
}

void Statements::reset() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_texts.clear();
  for (const CataloguedStatement& statement : statementCatalog()) {
    m_texts[statement.file] = defaultText(statement);
  }
  m_loaded.clear();
  m_truncates = false;
}

void Statements::setText(const std::string& file, const std::string& text) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_texts[file] = text;
}

void Statements::remove(const std::string& file) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_texts.erase(file);
}

void Statements::truncateWhatDoesNotFit() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_truncates = true;
}

std::vector<LoadedStatement> Statements::loaded() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_loaded;
}

LoadedStatement Statements::last() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_loaded.empty() ? LoadedStatement{} : m_loaded.back();
}

std::optional<std::string> Statements::textOf(const std::string& file) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_texts.find(file);
  return found != m_texts.end() ? std::optional<std::string>(found->second) : std::nullopt;
}

bool Statements::truncates() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_truncates;
}

void Statements::add(LoadedStatement statement) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_loaded.push_back(std::move(statement));
}

}  // namespace scripted

struct KxSqlLoader::Impl {
  std::string directory;
};

KxSqlLoader::KxSqlLoader(const char* sqlDirectory) : m_impl(nullptr) {
  scripted::platform().calls.add("KxSqlLoader", {scripted::quoted(sqlDirectory)});
  scripted::platform().faults.pass(scripted::Point::LoaderMade);
  m_impl = new Impl{sqlDirectory};
}

KxSqlLoader::~KxSqlLoader() {
  delete m_impl;
}

void KxSqlLoader::loadSQL(char* buffer, int size, const char* fileName, ...) {
  using scripted::Point;
  scripted::Platform& platform = scripted::platform();
  platform.calls.add("KxSqlLoader.loadSQL", {std::to_string(size), scripted::quoted(fileName)});
  platform.faults.pass(Point::Load);
  const std::optional<std::string> pattern = platform.statements.textOf(fileName);
  if (!pattern) {
    scripted::throwText(std::string("no statement file ") + fileName);
  }

  scripted::LoadedStatement statement{m_impl->directory, fileName, size, {}, {}};
  va_list parameters;
  va_start(parameters, fileName);
  try {
    scripted::format(*pattern, parameters, statement);
  } catch (...) {
    va_end(parameters);
    throw;
  }
  va_end(parameters);

  const std::size_t capacity = static_cast<std::size_t>(size);
  const bool fits = statement.text.size() < capacity;
  platform.statements.add(statement);
  scripted::copyTo(buffer, capacity, statement.text.substr(0, statement.text.size() / 2));
  platform.faults.pass(Point::LoadAfterWrite);
  scripted::copyTo(buffer, capacity, statement.text);
  if (!fits && !platform.statements.truncates()) {
    scripted::throwText(std::string(fileName) + " does not fit into " + std::to_string(size) + " bytes");
  }
}
