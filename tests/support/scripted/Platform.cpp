#include "scripted/Platform.h"

namespace scripted {

void Platform::reset() {
  calls.clear();
  faults.clear();
  log.clear();
  environment.restore();
  statements.reset();
  database.reset();
  ini.reset();
  passwords.reset();
  settings = {};
  resources = {};
}

Platform& platform() {
  // Never destroyed: statics of the library may log while the process ends.
  static Platform* const instance = new Platform;
  return *instance;
}

PlatformTest::PlatformTest()
    : m_openBefore(platform().database.openConnections()), m_lentBefore(platform().database.lentConnections()) {
  platform().reset();
  for (const char* name : {"ZARO_HOME", "ZARO_DB_DIR", "ZARO_DB_INI", "ZARO_DB_TYPE"}) {
    platform().environment.unset(name);
  }
}

// Here and not in TearDown, when members of a test's own fixture may still hold connections.
PlatformTest::~PlatformTest() {
  EXPECT_EQ(platform().database.openConnections(), m_openBefore) << "connections were left open";
  EXPECT_EQ(platform().database.lentConnections(), m_lentBefore) << "connections were not given back to the pool";
  platform().reset();
}

}  // namespace scripted
