// A platform that does what a test says: every operation of platform/, driven and watched through one object.
//
//   TEST_F(PlatformTest, ...) {
//     scripted::platform().database.reply("ui_GetAdminId.sql [root]", Reply({"AdminID"}, {{"1"}}));
//     scripted::platform().faults.throwText(Point::FetchRow, "connection lost");
//     ... call the library ...
//     EXPECT_EQ(scripted::platform().log.lines(), LogLines{error("...")});
//   }
//
// The library keeps state of the process (the first successful `Init`, its pool): tests of it run as PROCESS_TESTs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted/Calls.h"
#include "scripted/Database.h"
#include "scripted/Environment.h"
#include "scripted/Faults.h"
#include "scripted/Ini.h"
#include "scripted/Log.h"
#include "scripted/Resources.h"
#include "scripted/Settings.h"
#include "scripted/Statements.h"

namespace scripted {

struct Platform {
  Calls calls;
  Faults faults;
  Log log;
  Environment environment;
  Statements statements;
  Database database;
  Ini ini;
  Passwords passwords;
  Settings settings;
  Resources resources;

  // Everything back to the start; the environment as the process got it.
  void reset();
};

// The process's platform.
Platform& platform();

// Starts every test with a fresh platform and without the library's environment variables, and ends it with the
// environment restored. A database connection that is then still open or on loan fails the test.
class PlatformTest : public testing::Test {
 protected:
  PlatformTest();
  ~PlatformTest() override;

 private:
  int m_openBefore;
  int m_lentBefore;
};

}  // namespace scripted
