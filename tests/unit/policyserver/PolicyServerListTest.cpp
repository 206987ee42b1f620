// The list of registered policy servers.
#include <string>
#include <vector>

#include "ProcessTest.h"
#include "ZaroPolicyServerInterface.h"
#include "db/InstallationTest.h"
#include "scripted/Prelude.h"

namespace {

constexpr const char* kStatement = "ui_GetComponentInfo.sql [P]";

// A server as a test compares it.
std::string shown(const PolicyServerInfo& server) {
  return std::to_string(server.scannerId) + " " + server.ipAddr + " " + std::to_string(server.agentPort);
}

class PolicyServerList : public PlatformTest {
 protected:
  static void setRows(const std::vector<Row>& rows) {
    platform().database.reply(kStatement, Reply({"scanner_id", "ip_addr", "agent_port"}, rows));
  }

  int read() { return ZaroPolicyServerInterface::getPolicyServerInfo(m_servers); }

  std::vector<std::string> servers() const {
    std::vector<std::string> texts;
    for (const PolicyServerInfo& server : m_servers) {
      texts.push_back(shown(server));
    }
    return texts;
  }

  std::vector<PolicyServerInfo> m_servers;
};

TEST_F(PolicyServerList, recordIsZeroAtFirst) {
  const PolicyServerInfo server;
  EXPECT_EQ(shown(server), "0  0");
}

TEST_F(PolicyServerList, callsComeInOrder) {
  setRows({{"1", "192.0.2.10", "15505"}});
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxDbConnect#1()", "KxDbConnect#1.connect(\"\", \"\", \"\", \"\")", "KxSqlLoader(\"\")",
                          "KxSqlLoader.loadSQL(1024, \"ui_GetComponentInfo.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_GetComponentInfo.sql [P]\", 0)", "KxDbConnect#1.fetchNextRow()",
                          "KxDbConnect#1.getColVal(\"scanner_id\")", "KxDbConnect#1.getColVal(\"ip_addr\")",
                          "KxDbConnect#1.getColVal(\"agent_port\")", "KxDbConnect#1.fetchNextRow()", "~KxDbConnect#1()"));
}

TEST_F(PolicyServerList, everyRowIsAServerInItsOrder) {
  setRows({{"3", "2001:db8::12", "15505"}, {"1", "192.0.2.10", "1"}, {"2", "", "65535"}});
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(servers(), ElementsAre("3 2001:db8::12 15505", "1 192.0.2.10 1", "2  65535"));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(PolicyServerList, isAppendedToWhatIsThere) {
  m_servers.resize(1);
  m_servers[0].scannerId = 77;
  setRows({{"1", "192.0.2.10", "15505"}});
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(servers(), ElementsAre("77  0", "1 192.0.2.10 15505", "1 192.0.2.10 15505"));
}

TEST_F(PolicyServerList, maybeThereIsNone) {
  setRows({});
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(m_servers, IsEmpty());
}

TEST_F(PolicyServerList, everyCodeButZeroEndsTheRows) {
  for (const int code : {1, -1, 2, 100}) {
    platform().reset();
    m_servers.clear();
    platform().database.reply(kStatement,
                              Reply({"scanner_id", "ip_addr", "agent_port"}, {{"1", "a", "2"}}).endingRowsWith(code));
    EXPECT_EQ(read(), 0) << code;
    EXPECT_THAT(servers(), ElementsAre("1 a 2"));
  }
}

struct NumberCase {
  const char* label;
  const char* text;
  int want;
};

const NumberCase kNumberCases[] = {
    {"plain", "12", 12},
    {"empty", "", 0},
    {"letters", "abc", 0},
    {"letters behind", "12abc", 12},
    {"blanks before and behind", " 12 ", 12},
    {"plus", "+12", 12},
    {"negative", "-12", -12},
    {"leading zeros are decimal", "0012", 12},
    {"hexadecimal stops at x", "0x1F", 0},
    {"largest", "2147483647", 2147483647},
    {"above keeps its bits", "2147483648", -2147483647 - 1},
    {"largest of 32 bits", "4294967295", -1},
    {"above 32 bits wraps", "4294967301", 5},
    {"far above is the end of the widest", "99999999999999999999", -1},
    {"smallest", "-2147483648", -2147483647 - 1},
    {"below wraps", "-99999999999", -1215752191},
    {"far below is the end of the widest", "-99999999999999999999", 0},
};

TEST_F(PolicyServerList, numbersAreTakenAsFarAsTheyGo) {
  for (const NumberCase& c : kNumberCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    m_servers.clear();
    setRows({{c.text, "a", c.text}});
    EXPECT_EQ(read(), 0);
    ASSERT_EQ(m_servers.size(), 1u);
    EXPECT_EQ(m_servers[0].scannerId, c.want);
    EXPECT_EQ(m_servers[0].agentPort, c.want);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

struct NullCase {
  const char* column;
  Row row;
  const char* wantNamed;
  std::size_t wantReads;
};

const NullCase kNullCases[] = {
    {"scanner_id", {kNull, "c", "3"}, "ScannerID", 7},
    {"scanner_id before the others", {kNull, kNull, kNull}, "ScannerID", 7},
    {"ip_addr", {"3", kNull, "3"}, "IP_Addr", 8},
    {"ip_addr before agent_port", {"3", kNull, kNull}, "IP_Addr", 8},
    {"agent_port", {"3", "c", kNull}, "AgentPort", 9},
};

TEST_F(PolicyServerList, nullColumnEndsTheReading) {
  for (const NullCase& c : kNullCases) {
    SCOPED_TRACE(c.column);
    platform().reset();
    m_servers.clear();
    setRows({{"1", "a", "1"}, {"2", "b", "2"}, c.row, {"4", "d", "4"}});
    EXPECT_EQ(read(), 1002);
    EXPECT_THAT(servers(), ElementsAre("1 a 1", "2 b 2"));
    EXPECT_EQ(platform().calls.countOf("KxDbConnect.getColVal"), c.wantReads);
    EXPECT_EQ(platform().log.lines(),
              LogLines{error(std::string("ZaroPolicyServerInterface::getPolicyServerInfo: could not retrieve ") +
                             c.wantNamed + " from NULL string for statement " + kStatement)});
  }
}

TEST_F(PolicyServerList, missingColumnReadsAsNull) {
  platform().database.reply(kStatement, Reply({"scanner_id", "IP_Addr", "agent_port"}, {{"1", "a", "1"}}));
  EXPECT_EQ(read(), 1002);
}

struct ThrowCase {
  const char* label;
  Point point;
  int passage;
  std::size_t wantServers;
};

const ThrowCase kThrowCases[] = {
    {"loader", Point::LoaderMade, 1, 0},
    {"load", Point::Load, 1, 0},
    {"load half way", Point::LoadAfterWrite, 1, 0},
    {"execution", Point::Execute, 1, 0},
    {"first row", Point::FetchRow, 1, 0},
    {"scanner_id", Point::ColumnText, 1, 0},
    {"ip_addr", Point::ColumnText, 2, 0},
    {"agent_port", Point::ColumnText, 3, 0},
    {"second row", Point::FetchRow, 2, 1},
    {"scanner_id of the second row", Point::ColumnText, 4, 1},
    {"end of the rows", Point::FetchRow, 3, 2},
};

TEST_F(PolicyServerList, thrownTextIsLoggedAlone) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    m_servers.clear();
    setRows({{"1", "a", "1"}, {"2", "b", "2"}});
    platform().faults.throwText(c.point, "100% lost", c.passage);
    EXPECT_EQ(read(), 4002);
    EXPECT_EQ(m_servers.size(), c.wantServers);
    EXPECT_EQ(platform().log.lines(), LogLines{error("pszErr=100% lost")});
    EXPECT_EQ(platform().database.openConnections(), 0);
  }
}

TEST_F(PolicyServerList, otherExceptionsPass) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{"1", "a", "1"}, {"2", "b", "2"}});
    platform().faults.throwOther(c.point, c.passage);
    EXPECT_THROW(read(), OtherFailure);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

TEST_F(PolicyServerList, missingStatementFileIsADatabaseFailure) {
  platform().statements.remove("ui_GetComponentInfo.sql");
  EXPECT_EQ(read(), 4002);
  EXPECT_EQ(platform().log.lines(), LogLines{error("pszErr=no statement file ui_GetComponentInfo.sql")});
}

TEST_F(PolicyServerList, statementHas1024Bytes) {
  for (const std::size_t length : {1023u, 1024u}) {
    platform().reset();
    m_servers.clear();
    const std::string text(length - 1, 's');  // and the parameter
    platform().statements.setText("ui_GetComponentInfo.sql", text + "%s");
    platform().database.reply(text + "P", Reply({"scanner_id", "ip_addr", "agent_port"}, {{"1", "a", "1"}}));
    EXPECT_EQ(read(), length == 1023 ? 0 : 4002);
    EXPECT_EQ(m_servers.size(), length == 1023 ? 1u : 0u);
  }
}

TEST_F(PolicyServerList, withoutAConnectionThereIsNone) {
  platform().faults.throwText(Point::ConnectionMade, "no server");
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(m_servers, IsEmpty());
  EXPECT_EQ(platform().log.lines(), LogLines{error("RdbmsInterface::RdbmsInterface: Exception \"no server\" thrown")});
}

TEST_F(PolicyServerList, refusedConnectionIsADatabaseFailure) {
  platform().faults.throwText(Point::Connect, "no server");
  EXPECT_EQ(read(), 4002);
  EXPECT_EQ(platform().log.lines(), (LogLines{error("RdbmsInterface::RdbmsInterface: Exception \"no server\" thrown"),
                                              error("pszErr=not connected")}));
}

class PolicyServerListOfAnInstallation : public InstallationTest {};

PROCESS_TEST_F(PolicyServerListOfAnInstallation, connectionOfThePoolIsGivenBackOnEveryPath) {
  ASSERT_TRUE(initPooled());
  std::vector<PolicyServerInfo> servers;
  const auto lookAt = [&](const Reply& reply, int want) {
    platform().database.replyToFile("ui_GetComponentInfo.sql", reply);
    EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), want);
    EXPECT_EQ(platform().database.lentConnections(), 0);
  };
  lookAt(Reply({"scanner_id", "ip_addr", "agent_port"}, {{"1", "a", "1"}}), 0);
  EXPECT_EQ(platform().statements.last().directory, "/opt/gw/sql");
}

PROCESS_TEST_F(PolicyServerListOfAnInstallation, connectionIsGivenBackAfterANullColumn) {
  ASSERT_TRUE(initPooled());
  platform().database.replyToFile("ui_GetComponentInfo.sql", Reply({"scanner_id"}, {{kNull}}));
  std::vector<PolicyServerInfo> servers;
  EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), 1002);
  EXPECT_EQ(platform().database.lentConnections(), 0);
  platform().faults.throwText(Point::Execute, "lost");
  EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), 4002);
  EXPECT_EQ(platform().database.lentConnections(), 0);
}

}  // namespace
