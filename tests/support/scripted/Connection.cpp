// KxDbConnect: walks the replies of the scripted database.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "KxDbConnect.h"
#include "scripted/Platform.h"

using scripted::Point;
using scripted::quoted;

struct KxDbConnect::Impl {
  explicit Impl(int made) : number(made) {}

  // Records the call and fails here if that was planned.
  void enter(Point point, const std::string& operation, const std::vector<std::string>& arguments = {}) const {
    scripted::platform().calls.add("KxDbConnect#" + std::to_string(number) + operation, arguments);
    scripted::platform().faults.pass(point);
  }

  // The column of the current row; null for SQL NULL, and when there is no such column or no row.
  const std::string* value(const char* column) const {
    if (!row) {
      return nullptr;
    }
    const scripted::ResultSet& set = reply.resultSets()[resultSet];
    for (std::size_t at = 0; at < set.columns.size() && at < row->size(); ++at) {
      if (set.columns[at] == column) {
        return (*row)[at] ? &*(*row)[at] : nullptr;
      }
    }
    return nullptr;
  }

  int number;
  bool connected = false;
  bool executed = false;
  scripted::Reply reply;
  std::size_t resultSet = 0;
  std::size_t nextRow = 0;
  int fetches = 0;
  std::unique_ptr<scripted::Row> row;  // a copy for each fetch, so that texts do not outlive it
};

KxDbConnect::KxDbConnect() : m_impl(nullptr) {
  scripted::Database& database = scripted::platform().database;
  auto impl = std::make_unique<Impl>(database.numberConnection());
  impl->enter(Point::ConnectionMade, "");
  database.countOpen(1);
  m_impl = impl.release();
}

KxDbConnect::~KxDbConnect() {
  scripted::platform().calls.addDestructor("KxDbConnect#", std::to_string(m_impl->number));
  scripted::platform().database.countOpen(-1);
  delete m_impl;
}

void KxDbConnect::setDbConnectTimeOut(int seconds) {
  m_impl->enter(Point::SetConnectTimeOut, ".setDbConnectTimeOut", {std::to_string(seconds)});
}

void KxDbConnect::setDbRetrialTimeOut(int seconds) {
  m_impl->enter(Point::SetRetryTimeOut, ".setDbRetrialTimeOut", {std::to_string(seconds)});
}

void KxDbConnect::setDbReconnectTrial(int trials) {
  m_impl->enter(Point::SetReconnectTrial, ".setDbReconnectTrial", {std::to_string(trials)});
}

void KxDbConnect::connect(const char* initString, const char* dsn, const char* user, const char* pass) {
  m_impl->enter(Point::Connect, ".connect", {quoted(initString), quoted(dsn), quoted(user), quoted(pass)});
  m_impl->connected = true;
}

void KxDbConnect::executeSQL(const char* statement, SQL_TYPE type) {
  m_impl->executed = false;
  m_impl->row.reset();
  m_impl->enter(Point::Execute, ".executeSQL", {quoted(statement), std::to_string(type)});
  if (!m_impl->connected) {
    scripted::throwText("not connected");
  }
  m_impl->reply = scripted::platform().database.execute({m_impl->number, statement, type});
  if (m_impl->reply.failureText()) {
    scripted::throwText(*m_impl->reply.failureText());
  }
  m_impl->executed = true;
  m_impl->resultSet = 0;
  m_impl->nextRow = 0;
  m_impl->fetches = 0;
}

int KxDbConnect::fetchNextRow() {
  m_impl->row.reset();
  m_impl->enter(Point::FetchRow, ".fetchNextRow");
  if (!m_impl->executed) {
    return -1;
  }
  const auto& [failingFetch, text] = m_impl->reply.failingFetch();
  if (++m_impl->fetches == failingFetch) {
    scripted::throwText(text);
  }
  const std::vector<scripted::ResultSet>& sets = m_impl->reply.resultSets();
  if (m_impl->resultSet >= sets.size() || m_impl->nextRow >= sets[m_impl->resultSet].rows.size()) {
    return m_impl->reply.rowsEnd();
  }
  m_impl->row = std::make_unique<scripted::Row>(sets[m_impl->resultSet].rows[m_impl->nextRow++]);
  return 0;
}

int KxDbConnect::fetchNextResultSet() {
  m_impl->row.reset();
  m_impl->enter(Point::FetchResultSet, ".fetchNextResultSet");
  if (!m_impl->executed) {
    return -1;
  }
  m_impl->nextRow = 0;
  return ++m_impl->resultSet < m_impl->reply.resultSets().size() ? 0 : m_impl->reply.resultsEnd();
}

const char* KxDbConnect::getColVal(const char* column) {
  m_impl->enter(Point::ColumnText, ".getColVal", {quoted(column)});
  const std::string* value = m_impl->value(column);
  return value != nullptr ? value->c_str() : nullptr;
}

int KxDbConnect::getColValInt(const char* column) {
  m_impl->enter(Point::ColumnInt, ".getColValInt", {quoted(column)});
  const std::string* value = m_impl->value(column);
  return value != nullptr ? static_cast<int>(std::strtoll(value->c_str(), nullptr, 10)) : 0;
}

void* KxDbConnect::getStmtHandle() {
  m_impl->enter(Point::StatementHandle, ".getStmtHandle");
  return m_impl;
}

int KxDbConnect::getError(short handleType, void* handle, char* buffer, int bufferSize) {
  m_impl->enter(Point::Diagnostics, ".getError",
                {std::to_string(handleType), handle == m_impl ? "its handle" : "another handle",
                 buffer != nullptr ? "a buffer" : "null", std::to_string(bufferSize)});
  const auto [result, text] = scripted::platform().database.diagnostics();
  std::snprintf(buffer, static_cast<std::size_t>(bufferSize), "%s", text.c_str());
  return result;
}
