// The policy server's settings and list and the administrators' rule order, from program to files and database.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/LastFailure.h"
#include "miscUtils.h"
#include "support/LibraryTest.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using ZARO::RdbmsInterface;
using Interface = ZaroPolicyServerInterface;

// --- Settings ---

class PolicySettings : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  std::string path() const { return home().installation().settingsIni(); }

  void set(const char* section, const char* key, const std::string& value) const {
    zaroruntime::IniFile ini(path());
    ini.set(section, key, value);
    ini.write(path(), 0644);
  }
  void remove(const std::string& line) const {
    std::string text = zarotest::readFile(path());
    text.erase(text.find(line), line.size());
    home().directory().write("config/zaro.ini", text);
  }

  static std::string readServer() {
    unsigned int backlog = 1, port = 2, recvTimeout = 3, sendTimeout = 4, threads = 5, maxThreads = 6, cacheTtl = 7;
    bool keepAlive = false;
    Interface::Protocol protocol = Interface::HTTP;
    const unsigned int code = Interface::getSettingsFromDatabase(backlog, keepAlive, port, protocol, recvTimeout,
                                                                 sendTimeout, threads, maxThreads, cacheTtl, true);
    std::string text = code != 0 ? "code " + std::to_string(code) + ": " : "";
    for (const unsigned int number : {backlog, keepAlive ? 1u : 0u, port, protocol == Interface::HTTPS ? 1u : 0u,
                                      recvTimeout, sendTimeout, threads, maxThreads, cacheTtl}) {
      text += std::to_string(number) + " ";
    }
    return text;
  }

  static std::string readClient(bool inMemory) {
    std::string host = "none";
    unsigned int port = 2, recvTimeout = 3, sendTimeout = 4;
    bool keepAlive = false;
    Interface::Protocol protocol = Interface::HTTP;
    const unsigned int code =
        Interface::getClientSettingsFromDatabase(host, port, keepAlive, protocol, recvTimeout, sendTimeout, inMemory);
    std::string text = code != 0 ? "code " + std::to_string(code) + ": " : "";
    text += host + " ";
    for (const unsigned int number :
         {port, keepAlive ? 1u : 0u, protocol == Interface::HTTPS ? 1u : 0u, recvTimeout, sendTimeout}) {
      text += std::to_string(number) + " ";
    }
    return text;
  }
};

TEST_P(PolicySettings, thoseOfAHostAreSound) {
  inOwnProcess([&] {
    EXPECT_EQ(readServer(), "100 1 5060 0 60 60 16 64 1440 ");
    EXPECT_EQ(readClient(true), "127.0.0.1 5060 1 0 60 60 ");
    EXPECT_EQ(readClient(false), "127.0.0.1 5060 1 0 60 60 ");
  });
  EXPECT_THAT(log(), Not(HasSubstr("[ERROR]")));
}

TEST_P(PolicySettings, absurdValuesAreBroughtDown) {
  set("policy_server", "backlog", "100000");
  set("policy_server", "PolicyServerPort", "0");
  set("policy_server", "recv_timeout_secs", "301");
  set("policy_server", "threads", "0");
  set("policy_server", "max_threads", "none");
  set("LDAP_SVR_1", "ldap_cache_TTL_minutes", "-1");
  set("policy_client", "send_timeout_secs", "soon");
  inOwnProcess([&] {
    EXPECT_EQ(readServer(), "1000 1 2 0 300 60 1 6 1440 ");
    EXPECT_EQ(readClient(true), "127.0.0.1 5060 1 0 60 0 ");
  });
  EXPECT_THAT(log(), HasSubstr("[ERROR]Size of '100000' is too long, use default value 1000."));
  EXPECT_THAT(log(), HasSubstr("[ERROR]Port value '0' is invalid, use default value '2'."));
  EXPECT_THAT(log(), HasSubstr("[ERROR]Value of '301' is invalid, use default value 300."));
  EXPECT_THAT(log(), HasSubstr("[ERROR]Value of '0' is invalid, use default value 1."));
  EXPECT_THAT(log(), HasSubstr("[ERROR]Value of '-1' is invalid, use default value 1440."));
}

TEST_P(PolicySettings, whatIsWrittenIsReadButForTheLifetime) {
  inOwnProcess([&] {
    EXPECT_EQ(Interface::setSettingsInDatabase(10, false, 20, Interface::HTTPS, 30, 40, 50), 0u);
    EXPECT_EQ(readServer(), "10 0 20 1 60 60 30 40 1440 ");
    EXPECT_EQ(readClient(true), "127.0.0.1 20 0 1 60 60 ");
    EXPECT_EQ(readClient(false), "127.0.0.1 20 0 1 60 60 ");
  });
  EXPECT_EQ(zaroruntime::IniFile(path()).get("policy_server", "ldap_cache_TTL_minutes"), "50");
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting WHERE section='policy_server'"), "7");
}

TEST_P(PolicySettings, whatTheFileLacksIsSharedThroughTheDatabase) {
  remove("backlog=100\n");
  remove("host=127.0.0.1\n");
  home().sql("INSERT INTO global_setting (section, name, value) VALUES ('policy_server', 'backlog', '55')");
  home().sql("INSERT INTO global_setting (section, name, value) VALUES ('policy_client', 'host', 'shared.example.test')");
  inOwnProcess([&] {
    EXPECT_EQ(readServer(), "55 1 5060 0 60 60 16 64 1440 ");
    EXPECT_EQ(readClient(true), "shared.example.test 5060 1 0 60 60 ");
    EXPECT_EQ(readClient(false), "shared.example.test 5060 1 0 60 60 ");
  });
}

TEST_P(PolicySettings, lifetimeFollowsTheLdapServer) {
  set("LDAP", "enabled_server", "2");
  set("LDAP_SVR_5", "ldap_cache_TTL_minutes", "5");
  set("ldap-cache", "ldap_cache_TTL_minutes", "6");
  inOwnProcess([&] {
    EXPECT_EQ(readServer(), "100 1 5060 0 60 60 16 64 5 ");
    set("LDAP", "access_type", "1");
    EXPECT_EQ(readServer(), "100 1 5060 0 60 60 16 64 6 ");
  });
}

TEST_P(PolicySettings, missingKeyHasItsCode) {
  remove("host=127.0.0.1\n");
  remove("PolicyServerPort=5060\n");
  inOwnProcess([&] {
    EXPECT_EQ(readServer(), "code 1609: 100 1 2 0 3 4 5 6 7 ");
    EXPECT_EQ(readClient(true), "code 1608: none 2 0 0 3 4 ");
    set("policy_server", "PolicyServerPort", "7000");
    EXPECT_EQ(readClient(false), "code 1608: none 7000 1 0 3 4 ");
  });
  EXPECT_THAT(log(), HasSubstr("[ERROR]Can not find setting 'PolicyServerPort' in section [policy_server]."));
}

TEST_P(PolicySettings, fileThatCannotBeUsedHasItsCodes) {
  const auto expectCodes = [&] {
    inOwnProcess([&] {
      EXPECT_EQ(readServer(), "code 1609: 1 0 2 0 3 4 5 6 7 ");
      EXPECT_EQ(readClient(true), "code 1608: none 2 0 0 3 4 ");
      EXPECT_EQ(readClient(false), "code 1608: none 2 0 0 3 4 ");
      EXPECT_EQ(Interface::setSettingsInDatabase(10, false, 20, Interface::HTTPS, 30, 40, 50), 1610u);
    });
  };
  const std::string text = zarotest::readFile(path());
  fs::remove(path());
  expectCodes();
  fs::create_directory(path());
  expectCodes();
  fs::remove(path());
  home().directory().write("config/zaro.ini", text + "junk\n");
  expectCodes();
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "0");
}

TEST_P(PolicySettings, readOnlyFileIsReadAndNotWritten) {
  chmod(path().c_str(), 0444);
  inOwnProcess([&] {
    EXPECT_EQ(Interface::setSettingsInDatabase(10, false, 20, Interface::HTTPS, 30, 40, 50), 1610u);
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("the file is read-only"));
    EXPECT_EQ(readServer(), "100 1 5060 0 60 60 16 64 1440 ");
  });
}

TEST_P(PolicySettings, failureOfTheThirdLeavesTheFirstTwoWritten) {
  home().sql("DELETE FROM global_setting");
  // The table takes no port.
  home().sql("DROP TABLE global_setting");
  home().sql(
      "CREATE TABLE global_setting (section TEXT, name TEXT, value TEXT, PRIMARY KEY (section, name), CHECK (name <> "
      "'PolicyServerPort'))");
  inOwnProcess([&] {
    EXPECT_EQ(Interface::setSettingsInDatabase(10, false, 20, Interface::HTTPS, 30, 40, 50), 1610u);
    EXPECT_EQ(readServer(), "10 0 5060 0 60 60 16 64 1440 ");
  });
}

ZARO_ON_EVERY_DATABASE(PolicySettings);

// --- List of servers ---

class PolicyServers : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  void addComponent(const std::string& values) const {
    home().sql("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (" + values + ")");
  }

  static std::string list() {
    std::vector<PolicyServerInfo> servers;
    const int code = Interface::getPolicyServerInfo(servers);
    std::string text = code != 0 ? "code " + std::to_string(code) + ": " : "";
    for (const PolicyServerInfo& server : servers) {
      text += std::to_string(server.scannerId) + "=" + server.ipAddr + ":" + std::to_string(server.agentPort) + " ";
    }
    return text;
  }

  static bool initialise() { return RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr); }
};

TEST_P(PolicyServers, areListedByNumberWithoutOtherComponents) {
  addComponent("3, 'P', '2001:db8::12', 65535");
  addComponent("1, 'P', '192.0.2.10', 1");
  addComponent("2147483647, 'P', 'o''brien', 15505");
  addComponent("2, 'S', '192.0.2.11', 15506");
  for (const bool pooled : {false, true}) {
    inOwnProcess([&] {
      ASSERT_TRUE(pooled ? RdbmsInterface::Init(1, nullptr, nullptr, nullptr, nullptr, nullptr) : initialise());
      for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(list(), "1=192.0.2.10:1 3=2001:db8::12:65535 2147483647=o'brien:15505 ");
      }
    });
  }
}

TEST_P(PolicyServers, maybeThereIsNone) {
  addComponent("2, 'S', '192.0.2.11', 15506");
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    EXPECT_EQ(list(), "");
  });
}

TEST_P(PolicyServers, nullColumnEndsTheList) {
  for (const char* type : {"scanner_id", "ip_addr", "agent_port"}) {
    const std::string column = type;
    home().directory().write(
        "sql/ui_GetComponentInfo.sql",
        "SELECT NULLIF(a, 3) AS \"scanner_id\", NULLIF(b, 'x') AS \"ip_addr\", NULLIF(c, 3) AS \"agent_port\" FROM "
        "(SELECT 1 AS a, 'a' AS b, 1 AS c UNION ALL SELECT 2, 'b', 2 UNION ALL SELECT " +
            std::string(column == "scanner_id" ? "3" : "4") + (column == "ip_addr" ? ", 'x'" : ", 'c'") +
            (column == "agent_port" ? ", 3" : ", 4") + ") AS rows_of_three WHERE '%s'='P' ORDER BY c");
    inOwnProcess([&] {
      ASSERT_TRUE(initialise());
      EXPECT_EQ(list(), "code 1002: 1=a:1 2=b:2 ") << column;
    });
  }
  EXPECT_THAT(log(), HasSubstr("could not retrieve ScannerID from NULL string for statement SELECT"));
  EXPECT_THAT(log(), HasSubstr("could not retrieve IP_Addr from NULL string for statement SELECT"));
  EXPECT_THAT(log(), HasSubstr("could not retrieve AgentPort from NULL string for statement SELECT"));
}

TEST_P(PolicyServers, failuresOfTheDatabaseHaveTheirCode) {
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    home().sql("DROP TABLE component");
    EXPECT_EQ(list(), "code 4002: ");
    fs::remove(home().directory().path("sql/ui_GetComponentInfo.sql"));
    EXPECT_EQ(list(), "code 4002: ");
  });
  EXPECT_THAT(log(), HasSubstr("pszErr="));
  EXPECT_THAT(log(), HasSubstr("ui_GetComponentInfo.sql: cannot open"));
}

ZARO_ON_EVERY_DATABASE(PolicyServers);

// --- Rule order ---

class StoredRuleOrder : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  void setSwitch(const std::string& value) const {
    home().sql("INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', '" + value +
               "')");
  }
  void addRow(const std::string& rank, const std::string& group, const std::string& name) const {
    home().sql("INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (" + rank + ", " + group +
               ", '" + name + "')");
  }
  void writeStatement(const std::string& name, const std::string& text) const {
    home().directory().write("sql/" + name, text);
  }

  // "on 1 8" or "off", or the code and what was read before it.
  static std::string read(bool verify = true) {
    RdbmsInterface db;
    bool manual = true;
    std::vector<ZaroFilter::FilterType> order;
    const int code = miscUtils::getUserDefinedRuleOrder(db, manual, order, verify);
    std::string text = code != 0 ? "code " + std::to_string(code) + " " : "";
    text += manual ? "on" : "off";
    for (const ZaroFilter::FilterType filter : order) {
      text += " " + std::to_string(filter);
    }
    return text;
  }

  void inLibrary(const std::function<void()>& body) const {
    inOwnProcess([&] {
      ASSERT_TRUE(RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr));
      body();
    });
  }

  // Texts that the library logged at level 1.
  std::vector<std::string> errors() const {
    std::vector<std::string> found;
    const std::string text = log();
    for (std::size_t at = text.find("error: miscUtils::"); at != std::string::npos;
         at = text.find("error: miscUtils::", at + 1)) {
      found.push_back(text.substr(at + 18, text.find('\n', at) - at - 18));
    }
    return found;
  }
};

TEST_P(StoredRuleOrder, rowsComeInTheOrderOfTheirRanks) {
  setSwitch("on");
  addRow("3", "6", "Other");
  addRow("1", "4", "Spam");
  addRow("2", "2", "Attachment");
  inLibrary([&] { EXPECT_EQ(read(), "on 8 2 3 4 5 14 15 16 30"); });
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_P(StoredRuleOrder, ranksAreNumbersAndNotTexts) {
  setSwitch("on");
  addRow("10", "1", "Virus");
  addRow("9", "4", "Spam");
  addRow("-1", "3", "Size");
  inLibrary([&] { EXPECT_EQ(read(), "on 6 7 8 1"); });
  EXPECT_THAT(errors(), ElementsAre("_verifyFilterNames: expected order 1 != dbOrder -1 for filter: 3; Size",
                                    "_verifyFilterNames: expected order 2 != dbOrder 9 for filter: 4; Spam",
                                    "_verifyFilterNames: expected order 3 != dbOrder 10 for filter: 1; Virus"));
}

TEST_P(StoredRuleOrder, switchDecides) {
  addRow("1", "4", "Spam");
  inLibrary([&] {
    EXPECT_EQ(read(), "code 1002 off") << "nothing is stored";
    setSwitch("off");
    EXPECT_EQ(read(), "off");
    home().sql("UPDATE global_setting SET value='On'");
    EXPECT_EQ(read(), "off");
    home().sql("UPDATE global_setting SET value='on'");
    EXPECT_EQ(read(), "on 8");
    home().sql("DELETE FROM manual_rule_order");
    EXPECT_EQ(read(), "on");
    home().sql("UPDATE global_setting SET section='email-Scan'");
    EXPECT_EQ(read(), "code 1002 off");
  });
}

TEST_P(StoredRuleOrder, unknownGroupsAndRepeatedOnesAreReported) {
  setSwitch("on");
  addRow("1", "0", "None");
  addRow("2", "3", "Size");
  addRow("3", "7", "Xel");
  addRow("4", "3", "Size");
  addRow("6", "5", "content");
  inLibrary([&] { EXPECT_EQ(read(), "on 6 7 6 7 9 10 11 12 13"); });
  EXPECT_THAT(errors(),
              ElementsAre("getUserDefinedRuleOrder: Invalid filter id 0", "_verifyFilterNames: unexpected filter type 0",
                          "getUserDefinedRuleOrder: Invalid filter id 7", "_verifyFilterNames: unexpected filter type 7",
                          "_verifyFilterNames: expected order 5 != dbOrder 6 for filter: 5; content",
                          "_verifyFilterNames: expected name content for  ZaroFilter::Size"));
}

TEST_P(StoredRuleOrder, verificationIsOnRequest) {
  setSwitch("on");
  addRow("9", "4", "x");
  inLibrary([&] { EXPECT_EQ(read(false), "on 8"); });
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_P(StoredRuleOrder, nullColumnsAreReported) {
  setSwitch("on");
  const std::string rows =
      "SELECT NULLIF(a, 9) AS \"FilterID\", NULLIF(b, 9) AS \"RuleOrder\", NULLIF(c, 'x') AS \"FilterType\" FROM ";
  inLibrary([&] {
    writeStatement("ui_GetManualOrderSetting.sql", rows + "(SELECT 4 AS a, 9 AS b, 'Spam' AS c) AS one");
    EXPECT_EQ(read(), "on 8");
    writeStatement("ui_GetManualOrderSetting.sql", rows + "(SELECT 4 AS a, 1 AS b, 'x' AS c) AS one");
    EXPECT_EQ(read(), "on 8");
    writeStatement("ui_GetManualOrderSetting.sql",
                   rows + "(SELECT 4 AS a, 1 AS b, 'Spam' AS c UNION ALL SELECT 9, 2, 'Virus') AS two ORDER BY b");
    EXPECT_EQ(read(), "code 1002 off 8");
    writeStatement("ui_GetGlobalSettingValue.sql", "SELECT NULL AS \"value\" WHERE '%s%s'<>''");
    EXPECT_EQ(read(), "code 1002 off");
  });
  const auto found = errors();
  ASSERT_EQ(found.size(), 4u);
  EXPECT_EQ(found[0], "_verifyFilterNames: failed to retrieve RuleOrder from NULL string for filterId 4");
  EXPECT_EQ(found[1], "_verifyFilterNames: failed to retrieve FilterType for filterId 4");
  EXPECT_THAT(found[2], HasSubstr("failed to retrieve FilterID from NULL string for statement SELECT"));
  EXPECT_THAT(found[3], HasSubstr("could not retrieve manualRuleOrder setting for statement SELECT NULL"));
}

TEST_P(StoredRuleOrder, onlyTheFirstRowOfTheSwitchCounts) {
  addRow("1", "4", "Spam");
  inLibrary([&] {
    writeStatement("ui_GetGlobalSettingValue.sql",
                   "SELECT v AS \"value\" FROM (SELECT 1 AS n, 'on' AS v UNION ALL SELECT 2, 'off') AS two WHERE "
                   "'%s%s'<>'' ORDER BY n");
    EXPECT_EQ(read(), "on 8");
  });
}

TEST_P(StoredRuleOrder, failuresOfTheDatabaseHaveTheirCode) {
  setSwitch("on");
  inLibrary([&] {
    home().sql("DROP TABLE manual_rule_order");
    EXPECT_EQ(read(), "code 1003 off");
    home().sql("DROP TABLE global_setting");
    EXPECT_EQ(read(), "code 1003 off");
    // More than the buffer of 256 bytes takes.
    writeStatement("ui_GetGlobalSettingValue.sql",
                   "SELECT 'on' AS \"value\" WHERE '%s%s'<>'" + std::string(256, 'x') + "'");
    EXPECT_EQ(read(), "code 1003 off");
  });
  EXPECT_THAT(errors(), Contains(HasSubstr("thrown for statement SELECT filter_id")));
  EXPECT_THAT(errors(), Contains(HasSubstr("its buffer has 256")));
}

ZARO_ON_EVERY_DATABASE(StoredRuleOrder);

}  // namespace
