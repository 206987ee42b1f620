#include "scripted/Database.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace scripted {

Reply::Reply(std::vector<std::string> columns, std::vector<Row> rows) {
  andThen(std::move(columns), std::move(rows));
}

Reply Reply::failure(std::string text) {
  Reply reply;
  reply.m_failure = std::move(text);
  return reply;
}

Reply& Reply::andThen(std::vector<std::string> columns, std::vector<Row> rows) {
  m_resultSets.push_back({std::move(columns), std::move(rows)});
  return *this;
}

Reply& Reply::failingAtFetch(int number, std::string text) {
  m_failingFetch = {number, std::move(text)};
  return *this;
}

Reply& Reply::endingRowsWith(int code) {
  m_rowsEnd = code;
  return *this;
}

Reply& Reply::endingResultsWith(int code) {
  m_resultsEnd = code;
  return *this;
}

Database::Database() {
  reset();
}

void Database::reset() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_byStatement.clear();
  m_byFile.clear();
  for (const char* file : {"ui_StartTransaction.sql", "ui_CommitTransaction.sql", "ui_RollbackTransaction.sql"}) {
    m_byFile[file].queue = {Reply()};
  }
  m_handler = nullptr;
  m_executions.clear();
  m_connectionsNumbered = 0;
  m_poolsNumbered = 0;
  m_reinitResult = 0;
  m_diagnostics = {};
}

void Database::reply(const std::string& statement, Reply reply) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_byStatement[statement].queue.push_back(std::move(reply));
}

void Database::replyToFile(const std::string& file, Reply reply) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_byFile[file].queue.push_back(std::move(reply));
}

void Database::answerWith(Handler handler) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_handler = std::move(handler);
}

std::vector<Execution> Database::executions() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_executions;
}

std::vector<std::string> Database::statements() const {
  std::vector<std::string> texts;
  const std::lock_guard<std::mutex> lock(m_mutex);
  for (const Execution& execution : m_executions) {
    texts.push_back(execution.statement);
  }
  return texts;
}

int Database::openConnections() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_openConnections;
}

int Database::lentConnections() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_lentConnections;
}

void Database::setReinitResult(int result) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_reinitResult = result;
}

std::array<int, 3> Database::poolTuning() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_poolTuning;
}

bool Database::poolWasEmpty() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_poolWasEmpty;
}

void Database::setDiagnostics(int result, const std::string& text) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_diagnostics = {result, text};
}

Reply Database::Replies::next() {
  Reply reply = queue.front();
  if (queue.size() > 1) {
    queue.pop_front();
  }
  return reply;
}

std::optional<Reply> Database::_scriptedReply(const std::string& statement) {
  const auto exact = m_byStatement.find(statement);
  if (exact != m_byStatement.end()) {
    return exact->second.next();
  }
  const auto file = m_byFile.find(statement.substr(0, statement.find(' ')));
  return file != m_byFile.end() ? std::optional<Reply>(file->second.next()) : std::nullopt;
}

int Database::numberConnection() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return ++m_connectionsNumbered;
}

void Database::countOpen(int change) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_openConnections += change;
}

void Database::countLent(int change) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lentConnections += change;
}

std::size_t Database::addPool(const KxDataAccess* pool, const std::array<int, 3>& tuning, bool empty) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_pools.push_back(pool);
  m_poolTuning = tuning;
  m_poolWasEmpty = empty;
  return ++m_poolsNumbered;
}

int Database::reinitResult() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_reinitResult;
}

std::pair<int, std::string> Database::diagnostics() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_diagnostics;
}

Reply Database::execute(const Execution& execution) {
  std::optional<Reply> reply;
  Handler handler;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_executions.push_back(execution);
    reply = _scriptedReply(execution.statement);
    handler = m_handler;
  }
  if (!reply && handler) {
    reply = handler(execution.statement);
  }
  if (!reply) {
    ADD_FAILURE() << "no reply was scripted for the statement: " << execution.statement;
  }
  return reply.value_or(Reply());
}

}  // namespace scripted
