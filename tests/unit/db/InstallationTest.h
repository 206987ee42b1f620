// Tests that initialise the library from an installation.
#pragma once

#include <string>

#include "RdbmsInterface.h"
#include "scripted/Platform.h"

// ZARO_HOME is /opt/gw, whose database ini file opens and holds all four keys. A successful `Init` lasts as long as the
// process, so these are PROCESS_TEST_Fs.
class InstallationTest : public scripted::PlatformTest {
 protected:
  InstallationTest() {
    scripted::platform().environment.set("ZARO_HOME", "/opt/gw");
    scripted::platform().ini.open(kIniPath);
    setKey("DataSourceName", "gateway");
    setKey("UserId", "policy");
    setKey("Password", "secret");
    setKey("Database", "gwdb");
  }

  static void setKey(const char* key, const std::string& value) {
    scripted::platform().ini.set(kIniPath, "Database_Settings", key, value);
  }

  // Starts the ini file anew, opened but without keys.
  static void forgetKeys() {
    scripted::platform().ini.reset();
    scripted::platform().ini.open(kIniPath);
  }

  static bool initPlain() { return ZARO::RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr); }
  static bool initPooled(KxDataAccess** pool = nullptr) {
    return ZARO::RdbmsInterface::Init(4, pool, nullptr, nullptr, nullptr, nullptr);
  }

  static constexpr const char* kIniPath = "/opt/gw/config/database.ini";
  // What the file as set up here leads to.
  static constexpr const char* kInitString = "ODBC;DRIVER=;DSN=gateway;UID=policy;PWD=secret;DATABASE=gwdb";
};
