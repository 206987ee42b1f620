// zaroctl settings: values with their origin and reason, and what setting them writes.
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;

constexpr const char* kZaroIni = "config/zaro.ini";

class Settings : public zarotest::ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    if (!IsSkipped()) {
      mustInit();
    }
  }

  std::vector<std::string> server(int status = 0) const { return linesAbout("server", status); }
  std::vector<std::string> client(int status = 0) const { return linesAbout("client", status); }

  ProgramResult set(const std::vector<std::string>& settings) const {
    std::vector<std::string> arguments = {"settings", "set"};
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    return run(arguments);
  }

  std::string zaroIni() const { return zarotest::readFile(homeFile(kZaroIni)); }

  void addRow(const std::string& section, const std::string& name, const std::string& value) const {
    session()->run("INSERT INTO global_setting (section, name, value) VALUES ('" + section + "', '" + name + "', '" +
                   value + "')");
  }

 private:
  std::vector<std::string> linesAbout(const char* reader, int status) const {
    const ProgramResult result = run({"settings", reader});
    EXPECT_EQ(result.status, status) << result.err;
    EXPECT_EQ(result.err.empty(), status == 0) << result.err;
    return linesOf(result.out);
  }
};

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
  ASSERT_EQ(settings.size(), 9u);
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

TEST_P(Settings, setOnesAreShownBeforeAndAfter) {
  const ProgramResult result = set({"threads=32", "max_threads=128"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("policy_server\tthreads\t16\t32\t32", "policy_server\tmax_threads\t64\t128\t128"));
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t32\t32\tzaro.ini\t-"));
  EXPECT_EQ(value("SELECT value FROM global_setting WHERE section='policy_server' AND name='threads'"), "32");
}

TEST_P(Settings, everySettingCanBeSetAtOnce) {
  const ProgramResult result =
      set({"backlog=1", "keep-alive=no", "PolicyServerPort=2", "protocol=HTTPS", "policy_server.recv_timeout_secs=3",
           "policy_server.send_timeout_secs=4", "threads=5", "max_threads=6", "ldap_cache_TTL_minutes=7",
           "host=h.example.test", "policy_client.recv_timeout_secs=8", "policy_client.send_timeout_secs=9",
           "access_type=0", "enabled_server=10"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(linesOf(result.out).size(), 14u);
  EXPECT_THAT(server(),
              ElementsAre("policy_server\tbacklog\t1\t1\tzaro.ini\t-", "policy_server\tkeep-alive\tno\tno\tzaro.ini\t-",
                          "policy_server\tPolicyServerPort\t2\t2\tzaro.ini\t-",
                          "policy_server\tprotocol\tHTTPS\tHTTPS\tzaro.ini\t-",
                          "policy_server\trecv_timeout_secs\t3\t3\tzaro.ini\t-",
                          "policy_server\tsend_timeout_secs\t4\t4\tzaro.ini\t-",
                          "policy_server\tthreads\t5\t5\tzaro.ini\t-", "policy_server\tmax_threads\t6\t6\tzaro.ini\t-",
                          "LDAP_SVR_21\tldap_cache_TTL_minutes\t7\t7\tzaro.ini\t-"));
  EXPECT_THAT(client(), ElementsAre("policy_server\tPolicyServerPort\t2\t2\tzaro.ini\t-",
                                    "policy_server\tkeep-alive\tno\tno\tzaro.ini\t-",
                                    "policy_server\tprotocol\tHTTPS\tHTTPS\tzaro.ini\t-",
                                    "policy_client\thost\th.example.test\th.example.test\tzaro.ini\t-",
                                    "policy_client\trecv_timeout_secs\t8\t8\tzaro.ini\t-",
                                    "policy_client\tsend_timeout_secs\t9\t9\tzaro.ini\t-"));
}

TEST_P(Settings, commentsAndOrderOfTheFileStay) {
  std::string wanted = zaroIni();
  ASSERT_EQ(set({"host=h.example.test"}).status, 0);
  wanted.replace(wanted.find("host=127.0.0.1"), 14, "host=h.example.test");
  EXPECT_EQ(zaroIni(), wanted);
}

TEST_P(Settings, lifetimeGoesWhereItIsRead) {
  const ProgramResult result = set({"ldap_cache_TTL_minutes=60"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("LDAP_SVR_1\tldap_cache_TTL_minutes\t1440\t60\t60"));
  EXPECT_THAT(zaroIni(), HasSubstr("[LDAP_SVR_1]\n; Minutes.\nldap_cache_TTL_minutes=60\n"));
  EXPECT_THAT(zaroIni(), HasSubstr("[ldap-cache]\n; Minutes.\nldap_cache_TTL_minutes=1440\n"));
  ASSERT_EQ(set({"access_type=1"}).status, 0);
  EXPECT_THAT(linesOf(set({"ldap_cache_TTL_minutes=61"}).out),
              ElementsAre("ldap-cache\tldap_cache_TTL_minutes\t1440\t61\t61"));
}

TEST_P(Settings, commandsAtTheSameTimeLoseNothing) {
  const std::vector<std::string> changes = {
      "backlog=101", "keep-alive=no",  "PolicyServerPort=5061", "protocol=HTTPS",
      "threads=17",  "max_threads=65", "host=h.example",        "ldap_cache_TTL_minutes=1441"};
  std::vector<std::thread> commands;
  for (const std::string& change : changes) {
    commands.emplace_back([&] { EXPECT_EQ(set({change}).status, 0) << change; });
  }
  for (std::thread& command : commands) {
    command.join();
  }
  const std::string text = zaroIni();
  for (const std::string& change : changes) {
    EXPECT_THAT(text, HasSubstr("\n" + change + "\n"));
    const std::size_t sign = change.find('=');
    const std::string stored =
        value("SELECT min(value) || '-' || max(value) FROM global_setting WHERE name='" + change.substr(0, sign) + "'");
    EXPECT_EQ(stored, change.substr(sign + 1) + "-" + change.substr(sign + 1));
  }
}

TEST_P(Settings, writtenWordsAndNumbersHaveOneForm) {
  const ProgramResult result = set({"threads=0032", "keep-alive=NO", "protocol=https"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("policy_server\tkeep-alive\tyes\tno\tno", "policy_server\tprotocol\tHTTP\tHTTPS\tHTTPS",
                          "policy_server\tthreads\t16\t32\t32"));
}

TEST_P(Settings, absurdNeighboursAreBroughtDownInPassing) {
  replaceLine(kZaroIni, "backlog=", "backlog=5000");
  const ProgramResult result = set({"threads=32"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("policy_server\tbacklog\t5000\t1000\t1000", "policy_server\tthreads\t16\t32\t32"));
}

TEST_P(Settings, neighbourWithoutANumberHasToBeSetAsWell) {
  replaceLine(kZaroIni, "backlog=", "backlog=many");
  replaceLine(kZaroIni, "max_threads=", "");
  const std::string before = zaroIni();
  const ProgramResult bad = set({"threads=32"});
  EXPECT_EQ(bad.status, 78);
  EXPECT_EQ(
      bad.err,
      "zaroctl: nothing is written: [policy_server] backlog holds \"many\", which is not a number; set it as well\n");
  const ProgramResult missing = set({"threads=32", "backlog=5"});
  EXPECT_EQ(missing.status, 78);
  EXPECT_EQ(missing.err, "zaroctl: nothing is written: [policy_server] max_threads is missing; set it as well\n");
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(set({"threads=32", "backlog=5", "max_threads=40"}).status, 0);
}

TEST_P(Settings, ldapServerWithoutALifetimeIsRefused) {
  const std::string before = zaroIni();
  const ProgramResult result = set({"enabled_server=7"});
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.err, "zaroctl: nothing is written: [LDAP_SVR_15] ldap_cache_TTL_minutes is missing; set it as well\n");
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(set({"enabled_server=7", "ldap_cache_TTL_minutes=5"}).status, 0);
  EXPECT_THAT(server(), Contains("LDAP_SVR_15\tldap_cache_TTL_minutes\t5\t5\tzaro.ini\t-"));
}

TEST_P(Settings, ldapServerStaysWhenTheLifetimeCannotBeWritten) {
  session()->run("DROP TABLE global_setting");
  session()->run(
      "CREATE TABLE global_setting (section TEXT, name TEXT, value TEXT, PRIMARY KEY (section, name), CHECK (section <> "
      "'LDAP_SVR_15'))");
  const ProgramResult result = set({"enabled_server=7", "ldap_cache_TTL_minutes=5"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(server(), Contains("LDAP_SVR_1\tldap_cache_TTL_minutes\t1440\t1440\tzaro.ini\t-"));
}

TEST_P(Settings, ofAClientAloneNeedNoServer) {
  writeFile(kZaroIni,
            "[policy_server]\nPolicyServerPort=1\nkeep-alive=no\nprotocol=HTTP\n[policy_client]\nhost=a\n"
            "recv_timeout_secs=1\nsend_timeout_secs=1\n");
  const ProgramResult result = set({"host=b"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_client\thost\ta\tb\tb"));
}

TEST_P(Settings, thatCannotBeReadAfterwardsAreToldSo) {
  replaceLine(kZaroIni, "backlog=", "");
  const ProgramResult result = set({"policy_server.recv_timeout_secs=5"});
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(linesOf(result.out), ElementsAre("policy_server\trecv_timeout_secs\t60\t5\t-"));
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
  EXPECT_THAT(result.err, StartsWith("zaroctl: nothing is written: "));
  EXPECT_EQ(zaroIni(), before);
}

TEST_P(Settings, readOnlyFileIsToldAndLeft) {
  chmod(homeFile(kZaroIni).c_str(), 0444);
  const std::string before = zaroIni();
  for (const char* setting : {"threads=32", "host=other"}) {
    const ProgramResult result = set({setting});
    EXPECT_EQ(result.status, 77);
    EXPECT_THAT(linesOf(result.err), Contains(HasSubstr("the file is read-only")));
  }
  EXPECT_EQ(zaroIni(), before);
}

TEST_P(Settings, areWrittenTogetherOrNotAtAll) {
  const std::string before = zaroIni();
  session()->run("DROP TABLE global_setting");
  session()->run(
      "CREATE TABLE global_setting (section TEXT, name TEXT, value TEXT, PRIMARY KEY (section, name), CHECK (name <> "
      "'threads'))");
  const ProgramResult result = set({"backlog=7", "threads=8", "host=other"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("policy_server\tbacklog\t100\t100\t100", "policy_server\tthreads\t16\t16\t16",
                          "policy_client\thost\t127.0.0.1\t127.0.0.1\t127.0.0.1"));
  EXPECT_THAT(linesOf(result.err), ElementsAre(AllOf(StartsWith("zaroctl: settings [policy_server] backlog, "),
                                                     HasSubstr(" are not written: ")),
                                               "zaroctl: [policy_server] backlog has not become \"7\"",
                                               "zaroctl: [policy_server] threads has not become \"8\"",
                                               "zaroctl: [policy_client] host has not become \"other\""));
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(value("SELECT count(*) FROM global_setting"), "0");
}

TEST_P(Settings, fewerThreadsAtMostThanAtTheStartAreRefused) {
  const std::string before = zaroIni();
  for (const auto& settings : std::vector<std::vector<std::string>>{
           {"max_threads=15"}, {"threads=65"}, {"threads=8", "max_threads=7"}, {"max_threads=2", "backlog=7"}}) {
    const ProgramResult result = set(settings);
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("below threads, which would be "));
  }
  EXPECT_EQ(zaroIni(), before);
  EXPECT_EQ(value("SELECT count(*) FROM global_setting"), "0");
  EXPECT_EQ(set({"max_threads=16"}).status, 0);
  // Other settings can be set beside a pair that somebody wrote by hand.
  replaceLine(kZaroIni, "max_threads=", "max_threads=8");
  EXPECT_EQ(set({"backlog=7"}).status, 0);
}

// As a writer leaves it that dies between table and file.
TEST_P(Settings, differenceBetweenTableAndFileIsTold) {
  addRow("policy_server", "threads", "8");
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t16\t16\tzaro.ini\tthe database holds \"8\""));
  const ProgramResult found = run({"check"});
  EXPECT_EQ(found.status, 78);
  EXPECT_THAT(found.out, HasSubstr("which counts on this host: [policy_server] threads (\"8\", in the file \"16\"); "
                                   "zaroctl settings set KEY=VALUE writes both\n"));
  EXPECT_EQ(set({"threads=16"}).status, 0);
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_THAT(server(), Contains("policy_server\tthreads\t16\t16\tzaro.ini\t-"));
}

TEST_P(Settings, jsonOfSettingHasTheAskedOnesMarked) {
  replaceLine(kZaroIni, "backlog=", "backlog=5000");
  const auto document = nlohmann::json::parse(run({"settings", "set", "--json", "keep-alive=no"}).out);
  ASSERT_EQ(document.size(), 2u);
  EXPECT_EQ(document[0], (nlohmann::json{{"section", "policy_server"},
                                         {"key", "backlog"},
                                         {"before", "5000"},
                                         {"stored", "1000"},
                                         {"value", 1000},
                                         {"asked", false}}));
  EXPECT_EQ(document[1].at("asked"), true);
  EXPECT_EQ(document[1].at("value"), false);
}

ZARO_ON_EVERY_DATABASE(Settings);

struct WrongSetting {
  const char* label;
  const char* argument;
  const char* told;
};

const WrongSetting kWrongSettings[] = {
    {"noSign", "threads", "\"threads\" is not KEY=VALUE"},
    {"unknownKey", "thread=5", "no setting named \"thread\"; there are policy_server.backlog, "},
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
    {"emptyHost", "host=", "policy_client.host: \"\" is not the name or address of a host"},
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
