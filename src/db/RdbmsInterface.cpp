// One unit of work: its connection, statements, results, transaction.
#include "RdbmsInterface.h"

#include <cstring>
#include <memory>
#include <new>

#include "KxDataAccess.h"
#include "PolicyLog.h"
#include "db/StoreStatement.h"

namespace ZARO {

namespace {

constexpr int kTransactionStatementSize = 256;
using TransactionStatement = StoreStatement<kTransactionStatementSize>;

// Copies `input` with `replacement` in place of every `sign`. Built aside, since `input` may lie in `work` itself.
void replaceEvery(char sign, const char* replacement, const char* input, std::string& work, const char*& output) {
  output = input;
  const char* next = input != nullptr ? std::strchr(input, sign) : nullptr;
  if (next == nullptr) {
    return;
  }
  constexpr std::size_t kUsualGrowth = 50;
  std::string replaced;
  replaced.reserve(std::strlen(input) + kUsualGrowth);
  const char* rest = input;
  for (; next != nullptr; next = std::strchr(rest, sign)) {
    replaced.append(rest, next).append(replacement);
    rest = next + 1;
  }
  replaced.append(rest);
  work.swap(replaced);
  output = work.c_str();
}

}  // namespace

RdbmsInterface::RdbmsInterface() : m_conn(nullptr), m_inTransaction(false) {
  std::unique_ptr<KxDbConnect> own;  // closed here when connecting fails with anything but a text
  try {
    if (ms_DataAccess != nullptr) {
      m_conn = ms_DataAccess->getConnect();
      return;
    }
    own.reset(new (std::nothrow) KxDbConnect);
    m_conn = own.get();
    if (m_conn == nullptr) {
      return;
    }
    if (m_db_conn_timeout_secs != 0) {
      m_conn->setDbConnectTimeOut(m_db_conn_timeout_secs);
    }
    if (m_db_retry_timeout_secs != 0) {
      m_conn->setDbRetrialTimeOut(m_db_retry_timeout_secs);
    }
    if (m_db_conn_retry != 0) {
      m_conn->setDbReconnectTrial(m_db_conn_retry);
    }
    m_conn->connect(ms_initString.c_str(), ms_dsn.c_str(), ms_user.c_str(), ms_pass.c_str());
  } catch (const char* thrown) {
    PolicyLog::log(LogLevel::Error, "RdbmsInterface::RdbmsInterface: Exception \"%s\" thrown", thrown);
  }
  static_cast<void>(own.release());  // from here it is the destructor's, connected or not
}

RdbmsInterface::~RdbmsInterface() {
  _rollbackTransaction();
  if (ms_DataAccess != nullptr) {
    ms_DataAccess->returnConnect(m_conn);
  } else {
    delete m_conn;
  }
}

void RdbmsInterface::executeSQL(const char* sql) {
  if (m_conn == nullptr) {
    return;
  }
  const char* type = getDBType();
  const bool mssql = type != nullptr && std::strcmp(type, "mssql") == 0;
  m_conn->executeSQL(sql, mssql ? KxDbConnect::SQL_TYPE_MSSQL : KxDbConnect::SQL_TYPE_DEFAULT);
}

void RdbmsInterface::executeSQL(const char* sql, KxDbConnect::SQL_TYPE type) {
  if (m_conn != nullptr) {
    m_conn->executeSQL(sql, type);
  }
}

int RdbmsInterface::fetchNextRow() {
  return m_conn != nullptr ? m_conn->fetchNextRow() : -1;
}

int RdbmsInterface::fetchNextResultSet() {
  return m_conn != nullptr ? m_conn->fetchNextResultSet() : -1;
}

const char* RdbmsInterface::getColVal(const char* column) {
  return m_conn != nullptr ? m_conn->getColVal(column) : nullptr;
}

int RdbmsInterface::getColValInt(const char* column) {
  return m_conn != nullptr ? m_conn->getColValInt(column) : 0;
}

void* RdbmsInterface::getStmtHandle() {
  return m_conn != nullptr ? m_conn->getStmtHandle() : nullptr;
}

int RdbmsInterface::getError(short handleType, void* handle, char* buffer, int bufferSize) {
  return m_conn != nullptr ? m_conn->getError(handleType, handle, buffer, bufferSize) : 0;
}

bool RdbmsInterface::startTransaction() {
  if (m_inTransaction) {
    return true;
  }
  TransactionStatement statement(*this);
  return statement.guard("RdbmsInterface::startTransaction: Exception \"%s\" thrown for statement %s", false, [&] {
    statement.run("ui_StartTransaction.sql");
    m_inTransaction = true;
    return true;
  });
}

bool RdbmsInterface::commitTransaction() {
  // Runs even when nothing was begun here: the caller may have begun by a statement of its own.
  TransactionStatement statement(*this);
  return statement.guard("RdbmsInterface::commitTransaction: Exception \"%s\" thrown for statement %s", false, [&] {
    statement.run("ui_CommitTransaction.sql");
    m_inTransaction = false;
    return true;
  });
}

void RdbmsInterface::_rollbackTransaction() {
  if (!m_inTransaction) {
    return;
  }
  TransactionStatement statement(*this);
  statement.guard("RdbmsInterface::_rollbackTransaction: Exception \"%s\" thrown for statement %s", false, [&] {
    statement.run("ui_RollbackTransaction.sql");
    return true;
  });
}

void RdbmsInterface::escapeData(const char* input, std::string& work, const char*& output) {
  replaceEvery('\'', "''", input, work, output);
}

void RdbmsInterface::replacePercentageSign(const char* input, std::string& work, const char*& output) {
  replaceEvery('%', "[%]", input, work, output);
}

}  // namespace ZARO
