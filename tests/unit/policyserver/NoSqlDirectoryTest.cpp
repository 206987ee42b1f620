// The list of policy servers in a gateway whose database layer has no statement directory: that layer is stood in for
// here, since the library's own never answers so.
#include <gtest/gtest.h>

#include <vector>

#include "KxSqlLoader.h"
#include "PolicyLog.h"
#include "RdbmsInterface.h"
#include "ZaroPolicyServerInterface.h"

namespace {

int objectsMade = 0;
int objectsDestroyed = 0;
int otherCalls = 0;

}  // namespace

namespace ZARO {

RdbmsInterface::RdbmsInterface() : m_conn(nullptr), m_inTransaction(false) {
  ++objectsMade;
}

RdbmsInterface::~RdbmsInterface() {
  ++objectsDestroyed;
  static_cast<void>(m_conn);
  static_cast<void>(m_inTransaction);
}

const char* RdbmsInterface::GetSqlPath() {
  return nullptr;
}

void RdbmsInterface::executeSQL(const char* /*sql*/) {
  ++otherCalls;
}

int RdbmsInterface::fetchNextRow() {
  ++otherCalls;
  return 1;
}

const char* RdbmsInterface::getColVal(const char* /*column*/) {
  ++otherCalls;
  return nullptr;
}

}  // namespace ZARO

KxSqlLoader::KxSqlLoader(const char* /*sqlDirectory*/) : m_impl(nullptr) {
  ++otherCalls;
}

KxSqlLoader::~KxSqlLoader() {
  static_cast<void>(m_impl);
}

void KxSqlLoader::loadSQL(char* /*buffer*/, int /*size*/, const char* /*fileName*/, ...) {
  ++otherCalls;
}

void PolicyLog::log(LogLevel /*level*/, const char* /*format*/, ...) {
  ++otherCalls;
}

namespace {

TEST(PolicyServerListWithoutStatementDirectory, hasItsOwnCodeAndNoMessage) {
  std::vector<PolicyServerInfo> servers(1);
  EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), 4005);
  EXPECT_EQ(servers.size(), 1u);
  EXPECT_EQ(objectsMade, 1);
  EXPECT_EQ(objectsDestroyed, 1);
  EXPECT_EQ(otherCalls, 0);
}

}  // namespace
