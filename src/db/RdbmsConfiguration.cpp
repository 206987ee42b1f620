// Process-wide configuration: environment, database ini file, connection string, pool.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "ConfigFileOnDisk.h"
#include "KxDataAccess.h"
#include "NewDecryptStr.h"
#include "PolicyLog.h"
#include "RdbmsInterface.h"
#include "db/StoreStatement.h"

namespace ZARO {

KxDataAccess* RdbmsInterface::ms_DataAccess = nullptr;
bool RdbmsInterface::ms_bInitCalled = false;
std::string RdbmsInterface::ms_initString;
std::string RdbmsInterface::ms_dsn;
std::string RdbmsInterface::ms_user;
std::string RdbmsInterface::ms_pass;
std::string RdbmsInterface::ms_sqlPath;
std::string RdbmsInterface::ms_configPath;
int RdbmsInterface::m_db_conn_timeout_secs = 0;
int RdbmsInterface::m_db_retry_timeout_secs = 0;
int RdbmsInterface::m_db_conn_retry = 0;

namespace {

constexpr const char* kSection = "Database_Settings";

// The gateway's connection layer takes texts of these lengths; what is longer is cut.
constexpr std::size_t kInitStringLength = 511;
constexpr std::size_t kCredentialLength = 255;

// The clear text of a password that may be stored encrypted.
std::string decrypted(const char* stored) {
  const std::size_t length = std::strlen(stored);
  // Decryption works in place; a clear text of any length that is kept has room.
  std::vector<char> work(std::max(length, kCredentialLength) + 1, '\0');
  std::memcpy(work.data(), stored, length);
  return NewDecryptStr(work.data()) != 0 ? std::string(work.data()) : std::string(stored);
}

}  // namespace

bool RdbmsInterface::Init(int poolSize, KxDataAccess** pool, const char* dsn, const char* user, const char* pass,
                          const char* database) {
  PolicyLog::log(LogLevel::Trace, "RdbmsInterface: Init() ...\n");
  if (ms_bInitCalled) {
    return true;
  }
  if (!_getInitString(dsn, user, pass, database)) {
    return false;
  }
  // The password is in here; the log sink masks it.
  PolicyLog::log(LogLevel::Trace, "RdbmsInterface: Init() connection string is %s\n", ms_initString.c_str());

  const bool opened = catchThrownText(
      [&] {
        // Stored before it is opened: a pool that could not be opened still serves the objects made afterwards.
        ms_DataAccess = new (std::nothrow) KxDataAccess;
        if (ms_DataAccess == nullptr) {
          PolicyLog::log(LogLevel::Error, "RdbmsInterface::init: Allocation of KxDataAccess failed");
          return false;
        }
        ms_DataAccess->init(ms_initString.c_str(), poolSize, ms_dsn.c_str(), ms_user.c_str(), ms_pass.c_str());
        PolicyLog::log(LogLevel::Trace, "RdbmsInterface: Init() data access is ready\n");
        return true;
      },
      [&](const char* thrown) {
        PolicyLog::log(LogLevel::Error, "RdbmsInterface::init: Exception \"%s\" thrown for KxDataAccess::init(%s, %d)",
                       thrown, ms_initString.c_str(), poolSize);
        return false;
      });
  if (!opened) {
    return false;
  }

  if (pool != nullptr) {
    *pool = ms_DataAccess;
  }
  ms_bInitCalled = true;
  return true;
}

bool RdbmsInterface::Init(const char* dsn, const char* user, const char* pass, const char* database) {
  if (!ms_bInitCalled) {
    ms_bInitCalled = _getInitString(dsn, user, pass, database);
  }
  return ms_bInitCalled;
}

int RdbmsInterface::ReInit() {
  return ms_DataAccess != nullptr ? ms_DataAccess->reinit() : 0;
}

void RdbmsInterface::setDbConnectTimeOut(int seconds) {
  m_db_conn_timeout_secs = seconds;
}

void RdbmsInterface::setDbRetryTimeOut(int seconds) {
  m_db_retry_timeout_secs = seconds;
}

void RdbmsInterface::setDbReconnectTrial(int trials) {
  m_db_conn_retry = trials;
}

bool RdbmsInterface::getParam(const char* section, const char* key, std::string& value, ConfigFileOnDisk& file,
                              bool required) {
  if (required && !file.isOpen()) {
    _logConfigFileError(file.getPath());
    // The missing blank is kept: log watchers match the text.
    PolicyLog::log(LogLevel::Error,
                   "RdbmsInterface::_getParam: ERROR: could not open config file%s to get database source name",
                   file.getPath());
    return false;
  }
  if (file.getValue(section, key, value) || !required) {
    return true;
  }
  _logConfigFileError(section, key, file.getPath());
  // "could read" and the missing blank are kept for the same reason.
  PolicyLog::log(LogLevel::Error, "RdbmsInterface::init: ERROR: could read parameter \"%s\"from section %s in file %s",
                 key, section, file.getPath());
  return false;
}

const char* RdbmsInterface::getDBType() {
  return std::getenv("ZARO_DB_TYPE");
}

const char* RdbmsInterface::GetSqlPath() {
  return ms_sqlPath.c_str();
}

const char* RdbmsInterface::GetConfigFilePath() {
  return ms_configPath.c_str();
}

bool RdbmsInterface::_getInitString(const char* dsn, const char* user, const char* pass, const char* database) {
  const char* home = std::getenv("ZARO_HOME");
  if (home == nullptr) {
    PolicyLog::log(LogLevel::Error, "RdbmsInterface::_getInitString: Environment variable \"ZARO_HOME\" not set");
    return false;
  }
  ms_configPath = home;
  if (ms_configPath.empty() || (ms_configPath.back() != '/' && ms_configPath.back() != '\\')) {
    ms_configPath += '/';
  }
  ms_sqlPath = ms_configPath + "sql";
  if (const char* directory = std::getenv("ZARO_DB_DIR")) {
    ms_sqlPath.append("/").append(directory);
  }
  const char* iniName = std::getenv("ZARO_DB_INI");
  ms_configPath.append("config/").append(iniName != nullptr ? iniName : "database.ini");

  ConfigFileOnDisk file(ms_configPath.c_str());
  if (!file.isOpen()) {
    _logConfigFileError(ms_configPath.c_str());
    PolicyLog::log(LogLevel::Error, "RdbmsInterface::_getInitString: Could not open config file %s",
                   ms_configPath.c_str());
    return false;
  }

  // Points a text that the caller left out at the file's value. The first one missing ends the reading.
  const auto readRequired = [&](const char*& text, std::string& value, const char* key, const char* message) {
    if (text != nullptr) {
      return true;
    }
    if (!getParam(kSection, key, value, file, true)) {
      _logConfigFileError(kSection, key, ms_configPath.c_str());
      PolicyLog::log(LogLevel::Error, message, ms_configPath.c_str());
      return false;
    }
    text = value.c_str();
    return true;
  };

  std::string dsnValue, userValue, passValue, databaseValue;
  if (!readRequired(dsn, dsnValue, "DataSourceName",
                    "RdbmsInterface::getDbParams: Could not read DataSourceName from config file %s") ||
      !readRequired(user, userValue, "UserId", "RdbmsInterface::getDbParams: Could not read UserId from config file %s")) {
    return false;
  }
  if (pass == nullptr) {
    getParam(kSection, "Password", passValue, file, false);
    pass = passValue.c_str();
  }
  const std::string clearPass = decrypted(pass);
  if (!readRequired(database, databaseValue, "Database",
                    "RdbmsInterface::getDbParams: Could not read Database from config file %s")) {
    return false;
  }

  // The driver stays empty: the data source names it.
  const std::string full =
      std::string("ODBC;DRIVER=;DSN=") + dsn + ";UID=" + user + ";PWD=" + clearPass + ";DATABASE=" + database;
  ms_initString = full.substr(0, kInitStringLength);
  ms_dsn = std::string(dsn).substr(0, kCredentialLength);
  ms_user = std::string(user).substr(0, kCredentialLength);
  ms_pass = clearPass.substr(0, kCredentialLength);
  return true;
}

// The gateway's event log has no sink for these; the caller's line in the policy log is the record.
void RdbmsInterface::_logConfigFileError(const char* /*section*/, const char* /*key*/, const char* /*file*/) {}

void RdbmsInterface::_logConfigFileError(const char* /*file*/) {}

}  // namespace ZARO
