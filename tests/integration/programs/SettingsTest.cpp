// zaroctl settings: values with their origin and reason, and what setting them writes.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "programs/ProgramTest.h"
#include "support/HostSettings.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using zarotest::kHostSettings;
using zarotest::linesOf;
using zarotest::ProgramResult;

constexpr const char* kZaroIni = "config/zaro.ini";
constexpr const char* kDefault = "\tdefault\t-";

// As init makes an installation: all hosts share the settings.
class SharedSettings : public zarotest::ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    if (!IsSkipped()) {
      mustInit();
    }
  }

  // Without the settings that have a default and are not stored.
  std::vector<std::string> server(int status = 0) const { return storedLines("server", status); }
  std::vector<std::string> client(int status = 0) const { return storedLines("client", status); }

  ProgramResult set(const std::vector<std::string>& settings) const { return change({"settings", "set"}, settings); }
  ProgramResult setHere(const std::vector<std::string>& settings) const {
    return change({"settings", "set", "--host"}, settings);
  }
  std::string shared(const std::string& section, const std::string& name) const {
    return value("SELECT max(value) FROM global_setting WHERE section='" + section + "' AND name='" + name + "'");
  }
  ProgramResult change(std::vector<std::string> arguments, const std::vector<std::string>& settings) const {
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    return run(arguments);
  }

  std::string zaroIni() const { return zarotest::readFile(homeFile(kZaroIni)); }

  void addRow(const std::string& section, const std::string& name, const std::string& value) const {
    session()->run("INSERT INTO global_setting (section, name, value) VALUES ('" + section + "', '" + name + "', '" +
                   value + "')");
  }

  // The database refuses rows for which the condition does not hold.
  void refuseRows(const std::string& condition) const {
    const auto database = session();
    database->run("ALTER TABLE global_setting RENAME TO old_setting");
    database->run("CREATE TABLE global_setting (section TEXT, name TEXT, value TEXT, PRIMARY KEY (section, name), CHECK (" +
                  condition + "))");
    database->run("INSERT INTO global_setting SELECT section, name, value FROM old_setting");
  }

  // A second host on the same database. SQLite's databases have one.
  std::string secondHome() const { return directory().path("second"); }

 private:
  std::vector<std::string> storedLines(const char* reader, int status) const {
    std::vector<std::string> lines = linesAbout(reader, status);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return testing::Matches(EndsWith(kDefault))(line); }),
                lines.end());
    return lines;
  }
  std::vector<std::string> linesAbout(const char* reader, int status) const {
    const ProgramResult result = run({"settings", reader});
    EXPECT_EQ(result.status, status) << result.err;
    EXPECT_EQ(result.err.empty(), status == 0) << result.err;
    return linesOf(result.out);
  }
};

// A host that shares nothing.
class Settings : public SharedSettings {
 protected:
  void SetUp() override {
    SharedSettings::SetUp();
    if (!IsSkipped()) {
      writeFile(kZaroIni, kHostSettings);
      session()->run("DELETE FROM global_setting");
    }
  }
};

TEST_P(SharedSettings, areThoseOfTheDatabase) {
  EXPECT_THAT(server(), AllOf(testing::SizeIs(9), testing::Each(HasSubstr("\tdatabase\t-")),
                              Contains("policy_server\tthreads\t16\t16\tdatabase\t-"),
                              Contains("LDAP_SVR_1\tldap_cache_TTL_minutes\t1440\t1440\tdatabase\t-")));
  EXPECT_THAT(client(), AllOf(testing::SizeIs(6), testing::Each(HasSubstr("\tdatabase\t-")),
                              Contains("policy_client\thost\t127.0.0.1\t127.0.0.1\tdatabase\t-")));
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(SharedSettings, ofTheFilterAreDefaultsUntilTheyAreSet) {
  const ProgramResult fresh = run({"settings", "filter"});
  EXPECT_EQ(fresh.status, 0) << fresh.err;
  EXPECT_THAT(linesOf(fresh.out),
              AllOf(testing::Each(EndsWith("\t-\tdefault\t-")), Contains("mail_filter\tpoll_secs\t5\t-\tdefault\t-")));
  ASSERT_EQ(set({"mail_filter.poll_secs=7"}).status, 0);
  addRow("mail_filter", "socket_mode", "0007");
  const ProgramResult changed = run({"settings", "filter"});
  EXPECT_EQ(changed.status, 78);
  EXPECT_THAT(
      linesOf(changed.out),
      AllOf(Contains("mail_filter\tpoll_secs\t7\t7\tdatabase\t-"),
            Contains("mail_filter\tsocket_mode\t-\t0007\tdatabase\ta mode that keeps the filter itself from its socket")));
}

TEST_P(SharedSettings, areSetForAllHosts) {
  const std::string before = zaroIni();
  const ProgramResult result = set({"threads=32", "max_threads=0128"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_server\tthreads\tdatabase\t16\t32\t32\tdatabase",
                                               "policy_server\tmax_threads\tdatabase\t64\t128\t128\tdatabase"));
  EXPECT_EQ(zaroIni(), before);
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t32\t32\tdatabase\t-"));
}

TEST_P(SharedSettings, areLeftAloneByAHostOfItsOwnMind) {
  const ProgramResult result = setHere({"threads=8"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_server\tthreads\tzaro.ini\t-\t8\t8\tzaro.ini"));
  EXPECT_THAT(zaroIni(), HasSubstr("[policy_server]\nthreads=8\n"));
  EXPECT_EQ(shared("policy_server", "threads"), "16");
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t8\t8\tzaro.ini\tthe database holds \"16\""));
  EXPECT_EQ(run({"check"}).status, 0);
  const ProgramResult others = set({"threads=17"});
  EXPECT_EQ(others.status, 0);
  EXPECT_THAT(linesOf(others.out), ElementsAre("policy_server\tthreads\tdatabase\t16\t17\t8\tzaro.ini"));
  EXPECT_EQ(others.err,
            "zaroctl: [policy_server] threads: zaro.ini of this host holds \"8\", which goes before; --host changes "
            "that\n");
}

TEST_P(SharedSettings, ofAnotherHostAreNotTakenForShared) {
  ASSERT_EQ(setHere({"backlog=7"}).status, 0);
  ASSERT_EQ(set({"threads=32"}).status, 0);
  EXPECT_EQ(shared("policy_server", "backlog"), "100");
}

TEST_P(SharedSettings, ofAHostCanBeSetWhileTheDatabaseIsDown) {
  replaceLine("config/database.ini", "DataSourceName", "DataSourceName=nowhere");
  const ProgramResult result = setHere({"host=h.example.test"});
  EXPECT_THAT(zaroIni(), HasSubstr("[policy_client]\nhost=h.example.test\n"));
  EXPECT_THAT(result.out, StartsWith("policy_client\thost\tzaro.ini\t-\th.example.test\t"));
}

TEST_P(SharedSettings, ofASecondHostAreThere) {
  if (GetParam() == zarotest::Dialect::SQLite) {
    GTEST_SKIP() << "another installation has another database";
  }
  ASSERT_EQ(set({"threads=32"}).status, 0);
  session()->run("DELETE FROM global_setting WHERE name = 'backlog'");
  ASSERT_EQ(init(secondHome()).status, 0);
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t32\t32\tdatabase\t-"));
  EXPECT_EQ(shared("policy_server", "backlog"), "100");
}

TEST_P(SharedSettings, thatAreMissingAreFoundByCheck) {
  session()->run("DELETE FROM global_setting WHERE name = 'max_threads'");
  const ProgramResult found = run({"check"});
  EXPECT_EQ(found.status, 78);
  EXPECT_THAT(found.out, HasSubstr("[policy_server] max_threads is missing; zaroctl settings set KEY=VALUE sets it"));
}

TEST_P(SharedSettings, ofTheServersProgramAreSetAndShown) {
  ASSERT_EQ(set({"address=192.0.2.1", "policy_server.token_file=config/token", "client_ca="}).status, 0);
  EXPECT_THAT(server(), AllOf(Contains("policy_server\taddress\t192.0.2.1\t192.0.2.1\tdatabase\t-"),
                              Contains("policy_server\ttoken_file\tconfig/token\tconfig/token\tdatabase\t-")));
  for (const char* wrong : {"address=policy.example.test", "address=", "token_file=a\nb"}) {
    EXPECT_EQ(set({wrong}).status, 64) << wrong;
  }
}

// Each of which it can use.
TEST_P(SharedSettings, withWhichNoServerStartsAreTold) {
  const struct {
    const char* setting;
    const char* otherwise;
    const char* told;
  } kRows[] = {
      {"protocol=HTTPS", "protocol=HTTP", "[policy_server] protocol: HTTPS takes a certificate and a private_key"},
      {"policy_server.client_ca=config/ca.pem", "policy_server.client_ca=", "clients show certificates over HTTPS only"},
      {"address=0.0.0.0", "address=127.0.0.1", "where clients have to prove themselves"},
  };
  EXPECT_THAT(run({"check"}).out, Not(HasSubstr("policy server settings")));
  for (const auto& row : kRows) {
    const ProgramResult result = set({row.setting});
    EXPECT_EQ(result.status, 0) << "the server's host may have the rest: " << result.err;
    EXPECT_THAT(result.err, AllOf(HasSubstr("a policy server does not start with them: "), HasSubstr(row.told)));
    const ProgramResult found = run({"check"});
    EXPECT_EQ(found.status, 78) << row.setting;
    EXPECT_THAT(found.out, AllOf(HasSubstr("wrong\tpolicy server settings\t"), HasSubstr(row.told)));
    EXPECT_EQ(set({row.otherwise}).err, "");
  }
  EXPECT_EQ(set({"protocol=HTTPS", "policy_server.certificate=config/c.pem", "policy_server.private_key=config/k.pem",
                 "policy_server.client_ca=config/ca.pem", "address=0.0.0.0"})
                .err,
            "");
}

TEST_P(SharedSettings, withOneSocketForMilterAndDelegationAreTold) {
  const char* told = "[mail_filter] policy_socket: ";
  const ProgramResult result = set({"mail_filter.policy_socket=unix:run/zarofilterd.sock"});
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err, AllOf(HasSubstr(told), HasSubstr("is the socket of the milter as well")));
  const ProgramResult found = run({"check"});
  EXPECT_EQ(found.status, 78);
  EXPECT_THAT(found.out, HasSubstr(told));
  EXPECT_EQ(set({"mail_filter.policy_socket=unix:run/policy.sock"}).status, 0);
  EXPECT_THAT(run({"check"}).out, Not(HasSubstr(told)));
}

TEST_P(SharedSettings, thatTheServersProgramCannotUseAreTold) {
  addRow("policy_server", "address", "policy.example.test");
  const ProgramResult shown = run({"settings", "server"});
  EXPECT_EQ(shown.status, 78);
  EXPECT_THAT(shown.err, HasSubstr("[policy_server] address: \"policy.example.test\" is not an IP address"));
  EXPECT_THAT(run({"check"}).out, HasSubstr("[policy_server] address: \"policy.example.test\" is not an IP address"));
}

// --- Showing ---

TEST_P(Settings, ofAServerAreShownWithTheirOrigin) {
  EXPECT_THAT(
      server(),
      ElementsAre("policy_server\tbacklog\t100\t100\tzaro.ini\t-", "policy_server\tkeep-alive\tyes\tyes\tzaro.ini\t-",
                  "policy_server\tPolicyServerPort\t5060\t5060\tzaro.ini\t-",
                  "policy_server\tprotocol\tHTTP\tHTTP\tzaro.ini\t-",
                  "policy_server\trecv_timeout_secs\t60\t60\tzaro.ini\t-",
                  "policy_server\tsend_timeout_secs\t60\t60\tzaro.ini\t-",
                  "policy_server\tthreads\t16\t16\tzaro.ini\t-", "policy_server\tmax_threads\t64\t64\tzaro.ini\t-",
                  "LDAP_SVR_1\tldap_cache_TTL_minutes\t1440\t1440\tzaro.ini\t-"));
}

TEST_P(Settings, ofAClientAreShownWithTheirOrigin) {
  EXPECT_THAT(client(), ElementsAre("policy_server\tPolicyServerPort\t5060\t5060\tzaro.ini\t-",
                                    "policy_server\tkeep-alive\tyes\tyes\tzaro.ini\t-",
                                    "policy_server\tprotocol\tHTTP\tHTTP\tzaro.ini\t-",
                                    "policy_client\thost\t127.0.0.1\t127.0.0.1\tzaro.ini\t-",
                                    "policy_client\trecv_timeout_secs\t60\t60\tzaro.ini\t-",
                                    "policy_client\tsend_timeout_secs\t60\t60\tzaro.ini\t-"));
}

TEST_P(Settings, whatTheFileLacksComesFromTheDatabase) {
  replaceLine(kZaroIni, "backlog=", "");
  replaceLine(kZaroIni, "host=", "");
  addRow("policy_server", "backlog", "55");
  addRow("policy_server", "threads", "99");
  addRow("policy_client", "host", "shared.example.test");
  EXPECT_THAT(server(), Contains("policy_server\tbacklog\t55\t55\tdatabase\t-"));
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t16\t16\tzaro.ini\tthe database holds \"99\""));
  EXPECT_THAT(client(), Contains("policy_client\thost\tshared.example.test\tshared.example.test\tdatabase\t-"));
}

struct Clamped {
  const char* line;      // of the file
  const char* replaced;  // begins so
  const char* want;      // line of the server's settings
};

const Clamped kClamped[] = {
    {"backlog=1001", "backlog=", "policy_server\tbacklog\t1000\t1001\tzaro.ini\tabove 1000"},
    {"backlog=10000", "backlog=", "policy_server\tbacklog\t1000\t10000\tzaro.ini\tlonger than 4 digits"},
    {"threads=0", "threads=", "policy_server\tthreads\t1\t0\tzaro.ini\tbelow 1"},
    {"max_threads=1", "max_threads=", "policy_server\tmax_threads\t2\t1\tzaro.ini\tbelow 2"},
    {"recv_timeout_secs=301", "recv_timeout_secs=", "policy_server\trecv_timeout_secs\t300\t301\tzaro.ini\tabove 300"},
    {"keep-alive=maybe", "keep-alive=", "policy_server\tkeep-alive\tno\tmaybe\tzaro.ini\tneither yes nor no"},
    {"protocol=ftp", "protocol=", "policy_server\tprotocol\tHTTP\tftp\tzaro.ini\tneither HTTP nor HTTPS"},
    {"protocol=https", "protocol=", "policy_server\tprotocol\tHTTPS\thttps\tzaro.ini\t-"},
    {"PolicyServerPort=70000", "PolicyServerPort=",
     "policy_server\tPolicyServerPort\t-\t70000\tzaro.ini\tnot a port; the server's own default counts"},
    {"threads=many",
     "threads=", "policy_server\tthreads\t-\tmany\tzaro.ini\tnot a number; the server's own default counts"},
    {"threads=", "threads=", "policy_server\tthreads\t-\t\tzaro.ini\tnot a number; the server's own default counts"},
};

TEST_P(Settings, absurdValuesAreShownWithTheReason) {
  const std::string before = zaroIni();
  for (const Clamped& c : kClamped) {
    SCOPED_TRACE(c.line);
    writeFile(kZaroIni, before);
    replaceLine(kZaroIni, c.replaced, c.line);
    EXPECT_THAT(server(), Contains(c.want));
  }
}

TEST_P(Settings, clientsHaveFallbacksOfTheirOwn) {
  replaceLine(kZaroIni, "PolicyServerPort=", "PolicyServerPort=x");
  replaceLine(kZaroIni, "[policy_client]", "[policy_client]\nrecv_timeout_secs=x\nsend_timeout_secs=999\n[other]");
  addRow("policy_client", "host", "shared.example.test");
  EXPECT_THAT(client(), Contains("policy_server\tPolicyServerPort\t5060\tx\tzaro.ini\tnot a port"));
  EXPECT_THAT(client(), Contains("policy_client\trecv_timeout_secs\t0\tx\tzaro.ini\tnot a number"));
  EXPECT_THAT(client(), Contains("policy_client\tsend_timeout_secs\t300\t999\tzaro.ini\tabove 300"));
}

TEST_P(Settings, whatTheClientsSectionLacksIsTheServers) {
  replaceLine(kZaroIni, "[policy_client]", "[policy_client]\nhost=a\nsend_timeout_secs=7\n[other]");
  EXPECT_THAT(client(), Contains("policy_server\trecv_timeout_secs\t60\t60\tzaro.ini\t-"));
}

TEST_P(Settings, lifetimeIsShownWithTheSectionThatIsRead) {
  replaceLine(kZaroIni, "access_type=", "access_type=1");
  EXPECT_THAT(server(), Contains("ldap-cache\tldap_cache_TTL_minutes\t1440\t1440\tzaro.ini\t-"));
  replaceLine(kZaroIni, "access_type=", "access_type=0");
  replaceLine(kZaroIni, "enabled_server=", "enabled_server=2");
  addRow("LDAP_SVR_5", "ldap_cache_TTL_minutes", "5");
  EXPECT_THAT(server(), Contains("LDAP_SVR_5\tldap_cache_TTL_minutes\t5\t5\tdatabase\t-"));
}

TEST_P(Settings, firstMissingOneIsTold) {
  replaceLine(kZaroIni, "PolicyServerPort=", "");
  replaceLine(kZaroIni, "max_threads=", "");
  EXPECT_THAT(
      server(78),
      ElementsAre("policy_server\tbacklog\t100\t100\tzaro.ini\t-", "policy_server\tkeep-alive\tyes\tyes\tzaro.ini\t-",
                  "policy_server\tPolicyServerPort\t-\t-\t-\tmissing",
                  "policy_server\tprotocol\t-\tHTTP\tzaro.ini\tnot read: one before it is missing",
                  "policy_server\trecv_timeout_secs\t-\t60\tzaro.ini\tnot read: one before it is missing",
                  "policy_server\tsend_timeout_secs\t-\t60\tzaro.ini\tnot read: one before it is missing",
                  "policy_server\tthreads\t-\t16\tzaro.ini\tnot read: one before it is missing",
                  "policy_server\tmax_threads\t-\t-\t-\tmissing",
                  "LDAP_SVR_1\tldap_cache_TTL_minutes\t-\t1440\tzaro.ini\tnot read: one before it is missing"));
  EXPECT_EQ(
      run({"settings", "server"}).err,
      "zaroctl: a policy server cannot read its settings (code 1609): [policy_server] PolicyServerPort is missing\n");
  EXPECT_EQ(run({"settings", "client"}).err,
            "zaroctl: a client cannot read its settings (code 1608): [policy_server] PolicyServerPort is missing\n");
}

TEST_P(Settings, jsonHasOneObjectForEach) {
  replaceLine(kZaroIni, "backlog=", "backlog=1001");
  const ProgramResult result = run({"settings", "server", "--json"});
  EXPECT_EQ(result.status, 0);
  const auto settings = nlohmann::json::parse(result.out);
  ASSERT_EQ(settings.size(), 14u);
  EXPECT_EQ(settings[0], (nlohmann::json{{"section", "policy_server"},
                                         {"key", "backlog"},
                                         {"value", 1000},
                                         {"stored", "1001"},
                                         {"from", "zaro.ini"},
                                         {"note", "above 1000"}}));
  EXPECT_EQ(settings[1].at("value"), true);
  EXPECT_EQ(settings[1].at("note"), nullptr);
  EXPECT_EQ(settings[3].at("value"), "HTTP");
}

TEST_P(Settings, terminalGetsATable) {
  const ProgramResult result = zarotest::zaroctlOnTerminal({"settings", "server", "--home", home()}, "");
  EXPECT_THAT(linesOf(result.out)[0], testing::MatchesRegex("SECTION +KEY +VALUE +STORED +FROM +NOTE"));
}

TEST_P(Settings, fileAnswersAloneWhileTheDatabaseIsDown) {
  replaceLine("config/database.ini", "DataSourceName", "DataSourceName=nowhere");
  const ProgramResult result = run({"settings", "server"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(result.out), Contains("policy_server\tthreads\t16\t16\tzaro.ini\t-"));
  EXPECT_THAT(result.err, StartsWith("zaroctl: zaro.ini answers alone: "));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

TEST_P(Settings, unusableFileIsAFailureInOneLine) {
  const std::string before = zaroIni();
  const auto expectFailure = [&](const std::string& why) {
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"settings", "server"}, {"settings", "client"}, {"settings", "set", "threads=17"}}) {
      const ProgramResult result = run(command);
      EXPECT_EQ(result.status, 78);
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(result.err, "zaroctl: " + homeFile(kZaroIni) + ": " + why + "\n");
    }
  };
  writeFile(kZaroIni, before + "threads 17\n");
  expectFailure("line " + std::to_string(linesOf(before).size() + 1) +
                " is neither a section, a key with a value nor a comment");
  fs::remove(homeFile(kZaroIni));
  expectFailure("cannot open: No such file or directory");
}

// --- Setting ---

TEST_P(SharedSettings, everySettingCanBeSetAtOnce) {
  const ProgramResult result =
      set({"backlog=1", "keep-alive=no", "PolicyServerPort=2", "protocol=HTTPS", "policy_server.recv_timeout_secs=3",
           "policy_server.send_timeout_secs=4", "threads=5", "max_threads=6", "ldap_cache_TTL_minutes=7",
           "host=h.example.test", "policy_client.recv_timeout_secs=8", "policy_client.send_timeout_secs=9",
           "access_type=0", "enabled_server=10"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(linesOf(result.out).size(), 14u);
  EXPECT_THAT(server(),
              ElementsAre("policy_server\tbacklog\t1\t1\tdatabase\t-", "policy_server\tkeep-alive\tno\tno\tdatabase\t-",
                          "policy_server\tPolicyServerPort\t2\t2\tdatabase\t-",
                          "policy_server\tprotocol\tHTTPS\tHTTPS\tdatabase\t-",
                          "policy_server\trecv_timeout_secs\t3\t3\tdatabase\t-",
                          "policy_server\tsend_timeout_secs\t4\t4\tdatabase\t-",
                          "policy_server\tthreads\t5\t5\tdatabase\t-", "policy_server\tmax_threads\t6\t6\tdatabase\t-",
                          "LDAP_SVR_21\tldap_cache_TTL_minutes\t7\t7\tdatabase\t-"));
  EXPECT_THAT(client(), ElementsAre("policy_server\tPolicyServerPort\t2\t2\tdatabase\t-",
                                    "policy_server\tkeep-alive\tno\tno\tdatabase\t-",
                                    "policy_server\tprotocol\tHTTPS\tHTTPS\tdatabase\t-",
                                    "policy_client\thost\th.example.test\th.example.test\tdatabase\t-",
                                    "policy_client\trecv_timeout_secs\t8\t8\tdatabase\t-",
                                    "policy_client\tsend_timeout_secs\t9\t9\tdatabase\t-"));
}

TEST_P(Settings, commentsAndOrderOfTheFileStay) {
  std::string wanted = zaroIni();
  ASSERT_EQ(setHere({"host=h.example.test"}).status, 0);
  wanted.replace(wanted.find("host=127.0.0.1"), 14, "host=h.example.test");
  EXPECT_EQ(zaroIni(), wanted);
}

TEST_P(SharedSettings, lifetimeGoesWhereItIsRead) {
  const ProgramResult result = set({"ldap_cache_TTL_minutes=60"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("LDAP_SVR_1\tldap_cache_TTL_minutes\tdatabase\t1440\t60\t60\tdatabase"));
  EXPECT_EQ(shared("LDAP_SVR_1", "ldap_cache_TTL_minutes"), "60");
  EXPECT_EQ(shared("ldap-cache", "ldap_cache_TTL_minutes"), "1440");
  ASSERT_EQ(set({"access_type=1"}).status, 0);
  EXPECT_THAT(linesOf(set({"ldap_cache_TTL_minutes=61"}).out),
              ElementsAre("ldap-cache\tldap_cache_TTL_minutes\tdatabase\t1440\t61\t61\tdatabase"));
}

TEST_P(SharedSettings, commandsAtTheSameTimeLoseNothing) {
  const std::vector<std::string> changes = {
      "backlog=101", "keep-alive=no",  "PolicyServerPort=5061", "protocol=HTTPS",
      "threads=17",  "max_threads=65", "host=h.example",        "ldap_cache_TTL_minutes=1441"};
  std::vector<std::thread> commands;
  for (const std::string& change : changes) {
    commands.emplace_back([&] { EXPECT_EQ(set({change}).status, 0) << change; });
    commands.emplace_back([&] { EXPECT_EQ(setHere({change}).status, 0) << change; });
  }
  for (std::thread& command : commands) {
    command.join();
  }
  const std::string text = zaroIni();
  for (const std::string& change : changes) {
    EXPECT_THAT(text, HasSubstr("\n" + change + "\n"));
    const std::size_t sign = change.find('=');
    const std::string name = change.substr(0, sign);
    const char* section = name == "host" ? "policy_client" : name[0] == 'l' ? "LDAP_SVR_1" : "policy_server";
    EXPECT_EQ(shared(section, name), change.substr(sign + 1));
  }
}

TEST_P(Settings, writtenWordsAndNumbersHaveOneForm) {
  const ProgramResult result = setHere({"threads=0032", "keep-alive=NO", "protocol=https"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_server\tkeep-alive\tzaro.ini\tyes\tno\tno\tzaro.ini",
                                               "policy_server\tprotocol\tzaro.ini\tHTTP\tHTTPS\tHTTPS\tzaro.ini",
                                               "policy_server\tthreads\tzaro.ini\t16\t32\t32\tzaro.ini"));
}

TEST_P(Settings, ldapServerWithoutALifetimeIsRefused) {
  const std::string before = zaroIni();
  const ProgramResult result = setHere({"enabled_server=7"});
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.err, "zaroctl: nothing is written: [LDAP_SVR_15] ldap_cache_TTL_minutes is missing; set it as well\n");
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(setHere({"enabled_server=7", "ldap_cache_TTL_minutes=5"}).status, 0);
  EXPECT_THAT(server(), Contains("LDAP_SVR_15\tldap_cache_TTL_minutes\t5\t5\tzaro.ini\t-"));
}

TEST_P(SharedSettings, ldapServerStaysWhenTheLifetimeCannotBeWritten) {
  refuseRows("section <> 'LDAP_SVR_15'");
  const ProgramResult result = set({"enabled_server=7", "ldap_cache_TTL_minutes=5"});
  EXPECT_EQ(result.status, 65);
  EXPECT_EQ(shared("LDAP", "enabled_server"), "0");
}

TEST_P(Settings, ofAClientAloneNeedNoServer) {
  writeFile(kZaroIni,
            "[policy_server]\nPolicyServerPort=1\nkeep-alive=no\nprotocol=HTTP\n[policy_client]\nhost=a\n"
            "recv_timeout_secs=1\nsend_timeout_secs=1\n");
  const ProgramResult result = setHere({"host=b"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_client\thost\tzaro.ini\ta\tb\tb\tzaro.ini"));
}

TEST_P(Settings, thatCannotBeReadAfterwardsAreToldSo) {
  replaceLine(kZaroIni, "backlog=", "");
  const ProgramResult result = setHere({"policy_server.recv_timeout_secs=5"});
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_server\trecv_timeout_secs\tzaro.ini\t60\t5\t-\tzaro.ini"));
  EXPECT_EQ(result.err,
            "zaroctl: the settings were written, but a policy server cannot read its settings (code 1609): "
            "[policy_server] backlog is missing\n");
}

TEST_P(Settings, nothingIsWrittenWhileTheDatabaseIsDown) {
  const std::string before = zaroIni();
  replaceLine("config/database.ini", "DataSourceName", "DataSourceName=nowhere");
  const ProgramResult result = set({"threads=32"});
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(zaroIni(), before);
}

TEST_P(Settings, readOnlyFileIsToldAndLeft) {
  chmod(homeFile(kZaroIni).c_str(), 0444);
  const std::string before = zaroIni();
  for (const char* setting : {"threads=32", "host=other"}) {
    const ProgramResult result = setHere({setting});
    EXPECT_EQ(result.status, 77);
    EXPECT_THAT(linesOf(result.err), Contains(HasSubstr("the file is read-only")));
  }
  EXPECT_EQ(zaroIni(), before);
}

TEST_P(SharedSettings, areWrittenTogetherOrNotAtAll) {
  refuseRows("name <> 'threads' OR value <> '8'");
  const ProgramResult result = set({"backlog=7", "threads=8", "host=other"});
  EXPECT_EQ(result.status, 65);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(shared("policy_server", "backlog"), "100");
  EXPECT_EQ(shared("policy_client", "host"), "127.0.0.1");
}

TEST_P(SharedSettings, fewerThreadsAtMostThanAtTheStartAreRefused) {
  const std::string before = zaroIni();
  for (const auto& settings : std::vector<std::vector<std::string>>{
           {"max_threads=15"}, {"threads=65"}, {"threads=8", "max_threads=7"}, {"max_threads=2", "backlog=7"}}) {
    const ProgramResult result = set(settings);
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("below threads, which would be "));
  }
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(shared("policy_server", "max_threads"), "64");
  EXPECT_EQ(set({"max_threads=16"}).status, 0);
  // Other settings can be set beside a pair that was written by hand.
  session()->run("UPDATE global_setting SET value = '8' WHERE name = 'max_threads'");
  EXPECT_EQ(set({"backlog=7"}).status, 0);
}

TEST_P(SharedSettings, jsonOfSettingTellsTheLayers) {
  const auto document = nlohmann::json::parse(run({"settings", "set", "--json", "keep-alive=no"}).out);
  ASSERT_EQ(document.size(), 1u);
  EXPECT_EQ(document[0], (nlohmann::json{{"section", "policy_server"},
                                         {"key", "keep-alive"},
                                         {"layer", "database"},
                                         {"before", "yes"},
                                         {"stored", "no"},
                                         {"value", false},
                                         {"from", "database"}}));
}

ZARO_ON_EVERY_DATABASE(SharedSettings);
ZARO_ON_EVERY_DATABASE(Settings);

struct WrongSetting {
  const char* label;
  const char* argument;
  const char* told;
};

const WrongSetting kWrongSettings[] = {
    {"noSign", "threads", "\"threads\" is not KEY=VALUE"},
    {"unknownKey", "nothing=5", "no setting named \"nothing\"; there are policy_server.backlog, "},
    {"mistypedKey", "thread=5", "no setting named \"thread\"; did you mean threads?"},
    {"mistypedName", "mail_filter.shado=yes", "did you mean mail_filter.shadow?"},
    {"unknownSection", "policy.threads=5", "no setting named \"policy.threads\""},
    {"emptyKey", "=5", "no setting named \"\""},
    {"ambiguous", "recv_timeout_secs=5",
     "say policy_server.recv_timeout_secs or policy_client.recv_timeout_secs: there are two settings named"},
    {"tooLow", "threads=0", "policy_server.threads: \"0\" is below 1"},
    {"tooHigh", "backlog=1001", "policy_server.backlog: \"1001\" is above 1000"},
    {"tooLong", "backlog=00001", "policy_server.backlog: \"00001\" is above 1000"},
    {"empty", "threads=", "policy_server.threads: \"\" is not a number"},
    {"sign", "threads=-5", "policy_server.threads: \"-5\" is not a number"},
    {"blank", "threads= 5", "policy_server.threads: \" 5\" is not a number"},
    {"letters", "max_threads=5x", "policy_server.max_threads: \"5x\" is not a number"},
    {"portZero", "PolicyServerPort=0", "policy_server.PolicyServerPort: \"0\" is not a port"},
    {"portTooHigh", "PolicyServerPort=65536", "policy_server.PolicyServerPort: \"65536\" is not a port"},
    {"timeoutTooHigh", "policy_client.send_timeout_secs=301", "policy_client.send_timeout_secs: \"301\" is above 300"},
    {"lifetimeTooHigh", "ldap_cache_TTL_minutes=2147483648", "\"2147483648\" is above 2147483647"},
    {"lifetimeThatWraps", "ldap_cache_TTL_minutes=4294967301", "\"4294967301\" is above 2147483647"},
    {"lifetimeOfManyDigits", "ldap_cache_TTL_minutes=18446744073709551621", "is above 2147483647"},
    {"word", "keep-alive=true", "policy_server.keep-alive: \"true\" is neither yes nor no"},
    {"protocol", "protocol=ftp", "policy_server.protocol: \"ftp\" is neither HTTP nor HTTPS"},
    {"noHost", "host=a,", "policy_client.host: \"a,\" is not the name or address of a host"},
    {"hostAndMore", "host=a/b", "policy_client.host: \"a/b\" is not the name or address of a host"},
    {"hostWithBlank", "host=a b", "policy_client.host: \"a b\" is not the name or address of a host"},
    {"hostWithLineEnd", "host=a\nb", "policy_client.host: \"a\\nb\" is not the name or address of a host"},
    {"ldapServer", "enabled_server=1073741824", "LDAP.enabled_server: \"1073741824\" is above 1073741823"},
};

class WrongSettingOf : public testing::TestWithParam<WrongSetting> {};

TEST_P(WrongSettingOf, theProgramIsRefusedBeforeAnythingIsRead) {
  const ProgramResult result = zarotest::zaroctl({"--home", "/nowhere/at/all", "settings", "set", GetParam().argument});
  EXPECT_EQ(result.status, 64);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, StartsWith("zaroctl: "));
  EXPECT_THAT(result.err, HasSubstr(GetParam().told));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(, WrongSettingOf, testing::ValuesIn(kWrongSettings),
                         [](const auto& tested) { return std::string(tested.param.label); });

TEST(SettingsSet, sameSettingTwiceIsRefused) {
  const ProgramResult result =
      zarotest::zaroctl({"--home", "/nowhere", "settings", "set", "threads=5", "policy_server.threads=6"});
  EXPECT_EQ(result.status, 64);
  EXPECT_EQ(result.err, "zaroctl: policy_server.threads stands there twice\n");
}

}  // namespace
