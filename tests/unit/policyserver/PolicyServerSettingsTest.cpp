// Settings of policy servers: what is read, corrected, written and reported.
#include <climits>
#include <string>
#include <vector>

#include "ZaroPolicyServerInterface.h"
#include "scripted/Prelude.h"

namespace {

using Interface = ZaroPolicyServerInterface;

constexpr const char* kSection = "policy_server";

const char* const kKeys[] = {"backlog",  "keep-alive",        "PolicyServerPort",
                             "protocol", "recv_timeout_secs", "send_timeout_secs",
                             "threads",  "max_threads",       "ldap_cache_TTL_minutes"};

// A server's settings, at first as the caller of the tests has them.
struct Server {
  unsigned int backlog = 11;
  bool keepAlive = true;
  unsigned int port = 12;
  Interface::Protocol protocol = Interface::HTTPS;
  unsigned int recvTimeout = 13;
  unsigned int sendTimeout = 14;
  unsigned int threads = 15;
  unsigned int maxThreads = 16;
  unsigned int cacheTtl = 17;

  unsigned int read(bool prioritizeIni = true) {
    return Interface::getSettingsFromDatabase(backlog, keepAlive, port, protocol, recvTimeout, sendTimeout, threads,
                                              maxThreads, cacheTtl, prioritizeIni);
  }

  std::string shown() const {
    std::string text = std::to_string(backlog);
    text += keepAlive ? " yes" : " no";
    text += " " + std::to_string(port);
    text += protocol == Interface::HTTPS ? " https" : " http";
    for (const unsigned int number : {recvTimeout, sendTimeout, threads, maxThreads, cacheTtl}) {
      text += " " + std::to_string(number);
    }
    return text;
  }
};

constexpr const char* kCallersValues = "11 yes 12 https 13 14 15 16 17";
constexpr const char* kStoredValues = "100 no 5060 http 60 61 20 64 1000";

LogLines entered() {
  return {trace("Enter ZaroPolicyServerInterface::getSettingsFromDatabase()")};
}

class PolicyServerSettings : public PlatformTest {
 protected:
  PolicyServerSettings() { store(); }

  // A store with every setting, whose values are `kStoredValues`.
  static void store() {
    const char* const values[] = {"100", "no", "5060", "HTTP", "60", "61", "20", "64"};
    for (std::size_t i = 0; i < std::size(values); ++i) {
      set(kKeys[i], values[i]);
    }
    platform().settings.inMemory.set("LDAP", "access_type", "0");
    platform().settings.inMemory.set("LDAP", "enabled_server", "0");
    setTtl("1000");
  }

  static void set(const std::string& key, const std::string& value) {
    platform().settings.inMemory.set(kSection, key, value);
  }
  static void setTtl(const std::string& value, const std::string& section = "LDAP_SVR_1") {
    platform().settings.inMemory.set(section, "ldap_cache_TTL_minutes", value);
  }

  // Lines that are logged about one key, those before and behind it left out.
  static LogLines linesAbout(const std::string& key) {
    LogLines found;
    bool inside = false;
    for (const scripted::LogLine& line : platform().log.lines()) {
      if (line.text.compare(0, 12, "Read setting") == 0) {
        inside = line.text.find("'" + key + "'") != std::string::npos;
      }
      if (inside && line.level == LogLevel::Error) {
        found.push_back(line);
      }
    }
    return found;
  }

  static std::string readLine(const std::string& key, const std::string& value) {
    return "Read setting '" + key + "' in section [policy_server], value is '" + value + "'.";
  }

  Server m_server;
};

// --- The whole ---

TEST_F(PolicyServerSettings, areReadInOrderAndReported) {
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_EQ(m_server.shown(), kStoredValues);
  EXPECT_EQ(
      platform().log.lines(),
      (LogLines{
          trace("Enter ZaroPolicyServerInterface::getSettingsFromDatabase()"),
          error("Read setting 'backlog' in section [policy_server], value is '100'."),
          error("Read setting 'keep-alive' in section [policy_server], value is 'no'."),
          error("Read setting 'PolicyServerPort' in section [policy_server], value is '5060'."),
          error("Read setting 'protocol' in section [policy_server], value is 'HTTP'."),
          error("Policy server will use protocal 'http'."),
          error("Read setting 'recv_timeout_secs' in section [policy_server], value is '60'."),
          error("Read setting 'send_timeout_secs' in section [policy_server], value is '61'."),
          error("Read setting 'threads' in section [policy_server], value is '20'."),
          error("Read setting 'max_threads' in section [policy_server], value is '64'."),
          error("Read setting 'ldap_cache_TTL_minutes' in section [policy_server], value is '1000'."),
          trace("ZaroPolicyServerInterface: getSettingsFromDatabase() backlog=100 bKeepAlive=0 port=5060 protocol=0 recvTimeoutSecs=60 sendTimeoutSecs=61 threads=20 maxThreads=64 cacheTTLMins=1000 bPrioritizeINI=1"),
          trace("Leave ZaroPolicyServerInterface: getSettingsFromDatabase()"),
      }));
}

TEST_F(PolicyServerSettings, summaryShowsEveryOutput) {
  set("keep-alive", "yes");
  set("protocol", "HTTPS");
  setTtl("4294967295");
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_THAT(
      platform().log.texts(LogLevel::Trace),
      testing::Contains(
          "ZaroPolicyServerInterface: getSettingsFromDatabase() backlog=100 bKeepAlive=1 port=5060 protocol=1 recvTimeoutSecs=60 sendTimeoutSecs=61 threads=20 maxThreads=64 cacheTTLMins=-1 bPrioritizeINI=1"));
}

TEST_F(PolicyServerSettings, callsOfTheStoreComeInOrder) {
  platform().calls.clear();
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_THAT(platform().calls.beginningWith("GlobalSetting"),
              ElementsAre("GlobalSettingOnMem::Instance(null, true, null, null, null, null, true)",
                          "GlobalSettingOnMem.getItem(\"access_type\", \"LDAP\", \"zaro.ini\")",
                          "GlobalSettingOnMem.getItem(\"enabled_server\", \"LDAP\", \"zaro.ini\")",
                          "GlobalSettingOnMem.getItemsInSection(\"policy_server\")",
                          "GlobalSettingOnMem.getItemsInSection(\"LDAP_SVR_1\")"));
}

TEST_F(PolicyServerSettings, areOfferedFromMemoryAlone) {
  EXPECT_EQ(m_server.read(false), 1609u);
  EXPECT_EQ(m_server.shown(), kCallersValues);
  EXPECT_EQ(platform().log.lines(), entered());
  EXPECT_THAT(platform().calls.beginningWith("GlobalSetting"), IsEmpty());
}

TEST_F(PolicyServerSettings, storeThatIsNotThereIsNotReported) {
  platform().settings.inMemoryExists = false;
  EXPECT_EQ(m_server.read(), 1609u);
  EXPECT_EQ(m_server.shown(), kCallersValues);
  EXPECT_EQ(platform().log.lines(), entered());
}

TEST_F(PolicyServerSettings, storeThatIsNotLoadedIsNotReported) {
  platform().settings.inMemoryIsLoaded = false;
  EXPECT_EQ(m_server.read(), 1609u);
  EXPECT_EQ(m_server.shown(), kCallersValues);
  EXPECT_EQ(platform().log.lines(), entered());
  EXPECT_THAT(platform().calls.beginningWith("GlobalSettingOnMem.get"), IsEmpty());
}

TEST_F(PolicyServerSettings, exceptionsOfTheStorePass) {
  for (const Point point : {Point::SettingsInstance, Point::SettingsRead}) {
    platform().faults.throwText(point, "lost");
    EXPECT_THROW(m_server.read(), const char*);
    platform().faults.throwOther(point);
    EXPECT_THROW(m_server.read(), OtherFailure);
  }
}

// --- Sections ---

TEST_F(PolicyServerSettings, unreadableServerSectionIsNamedWithTheOther) {
  platform().settings.inMemory.failSection(kSection, 7);
  EXPECT_EQ(m_server.read(), 1609u);
  EXPECT_EQ(m_server.shown(), kCallersValues);
  LogLines wanted = entered();
  wanted.push_back(error("[ERROR]Can not retrieve items in section policy_server and LDAP_SVR_1."));
  EXPECT_EQ(platform().log.lines(), wanted);
  EXPECT_EQ(platform().calls.countOf("GlobalSettingOnMem.getItemsInSection"), 1u) << "the other is not tried";
}

TEST_F(PolicyServerSettings, unreadableCacheSectionIsNamedWithTheOther) {
  platform().settings.inMemory.set("LDAP", "access_type", "1");
  platform().settings.inMemory.failSection("ldap-cache");
  EXPECT_EQ(m_server.read(), 1609u);
  EXPECT_EQ(m_server.shown(), kCallersValues);
  LogLines wanted = entered();
  wanted.push_back(error("[ERROR]Can not retrieve items in section policy_server and ldap-cache."));
  EXPECT_EQ(platform().log.lines(), wanted);
}

struct CacheSectionCase {
  const char* label;
  const char* accessType;     // null: cannot be read
  const char* enabledServer;  // null: cannot be read
  const char* want;
  bool wantServerRead;
};

const CacheSectionCase kCacheSectionCases[] = {
    {"one", "1", "2", "ldap-cache", false},
    {"zero", "0", "2", "LDAP_SVR_5", true},
    {"empty type", "", "2", "LDAP_SVR_5", true},
    {"type with a blank", "1 ", "2", "LDAP_SVR_5", true},
    {"type with a zero before", "01", "2", "LDAP_SVR_5", true},
    {"type unreadable", nullptr, "2", "LDAP_SVR_1", false},
    {"server unreadable", "0", nullptr, "LDAP_SVR_1", true},
    {"server empty", "0", "", "LDAP_SVR_1", true},
    {"server zero", "0", "0", "LDAP_SVR_1", true},
    {"server no number", "0", "x", "LDAP_SVR_1", true},
    {"server with blanks and a zero before", "0", " 02", "LDAP_SVR_5", true},
    {"server with letters behind", "0", "2x", "LDAP_SVR_5", true},
    {"server negative", "0", "-1", "LDAP_SVR_-1", true},
    {"largest server", "0", "1073741823", "LDAP_SVR_2147483647", true},
    {"server that does not fit wraps", "0", "1073741824", "LDAP_SVR_-2147483647", true},
};

TEST_F(PolicyServerSettings, lifetimeIsReadFromTheSectionOfTheLdapServer) {
  for (const CacheSectionCase& c : kCacheSectionCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    store();
    scripted::SettingsStore& memory = platform().settings.inMemory;
    memory.erase("LDAP", "access_type");
    memory.erase("LDAP", "enabled_server");
    if (c.accessType != nullptr) {
      memory.set("LDAP", "access_type", c.accessType);
    }
    if (c.enabledServer != nullptr) {
      memory.set("LDAP", "enabled_server", c.enabledServer);
    }
    setTtl("2222", c.want);
    EXPECT_EQ(m_server.read(), 0u);
    EXPECT_EQ(m_server.cacheTtl, 2222u);
    EXPECT_EQ(platform().calls.countOf("GlobalSettingOnMem.getItem"), c.wantServerRead ? 2u : 1u);

    const std::string type = c.accessType != nullptr ? c.accessType : "";
    const std::string server = c.enabledServer != nullptr ? c.enabledServer : "";
    EXPECT_EQ(Interface::getCacheSection(c.accessType != nullptr ? &type : nullptr,
                                         c.enabledServer != nullptr ? &server : nullptr),
              c.want);
  }
}

TEST_F(PolicyServerSettings, lifetimeInTheServersSectionIsNotRead) {
  set("ldap_cache_TTL_minutes", "5");
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_EQ(m_server.cacheTtl, 1000u);
}

TEST_F(PolicyServerSettings, otherKeysInTheCacheSectionAreNotRead) {
  platform().settings.inMemory.set("LDAP_SVR_1", "backlog", "5");
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_EQ(m_server.backlog, 100u);
}

// --- Missing keys ---

TEST_F(PolicyServerSettings, firstMissingKeyEndsTheReading) {
  // What has been read when each key is missed.
  const char* const wantValues[] = {
      "11 yes 12 https 13 14 15 16 17",   "100 yes 12 https 13 14 15 16 17", "100 no 12 https 13 14 15 16 17",
      "100 no 5060 https 13 14 15 16 17", "100 no 5060 http 13 14 15 16 17", "100 no 5060 http 60 14 15 16 17",
      "100 no 5060 http 60 61 15 16 17",  "100 no 5060 http 60 61 20 16 17", "100 no 5060 http 60 61 20 64 17",
  };
  for (std::size_t i = 0; i < std::size(kKeys); ++i) {
    SCOPED_TRACE(kKeys[i]);
    platform().reset();
    store();
    // Those behind it too: they are not told.
    for (std::size_t gone = i; gone < std::size(kKeys); ++gone) {
      platform().settings.inMemory.erase(kSection, kKeys[gone]);
      platform().settings.inMemory.erase("LDAP_SVR_1", kKeys[gone]);
    }
    Server server;
    EXPECT_EQ(server.read(), 1609u);
    EXPECT_EQ(server.shown(), wantValues[i]);
    const LogLines lines = platform().log.lines();
    EXPECT_EQ(lines.back(),
              error(std::string("[ERROR]Can not find setting '") + kKeys[i] + "' in section [policy_server]."));
    const std::size_t aboutProtocol = i > 3 ? 1 : 0;
    EXPECT_EQ(lines.size(), 1 + i + aboutProtocol + 1);
  }
}

TEST_F(PolicyServerSettings, emptySectionMissesTheFirstKey) {
  platform().settings.inMemory = {};
  EXPECT_EQ(m_server.read(), 1609u);
  EXPECT_EQ(platform().log.lines().back(), error("[ERROR]Can not find setting 'backlog' in section [policy_server]."));
}

TEST_F(PolicyServerSettings, keysAreCaseSensitive) {
  platform().settings.inMemory.erase(kSection, "backlog");
  set("Backlog", "5");
  EXPECT_EQ(m_server.read(), 1609u);
}

// --- Words ---

struct WordCase {
  const char* text;
  bool want;
};

TEST_F(PolicyServerSettings, keepAliveIsYesInAnyCase) {
  for (const WordCase& c : {WordCase{"yes", true},
                            {"YES", true},
                            {"yEs", true},
                            {"no", false},
                            {"", false},
                            {"yes ", false},
                            {" yes", false},
                            {"yess", false},
                            {"y", false},
                            {"1", false},
                            {"true", false}}) {
    SCOPED_TRACE(c.text);
    platform().log.clear();
    set("keep-alive", c.text);
    Server server;
    server.keepAlive = !c.want;
    EXPECT_EQ(server.read(), 0u);
    EXPECT_EQ(server.keepAlive, c.want);
    EXPECT_EQ(linesAbout("keep-alive"), LogLines{error(readLine("keep-alive", c.text))});
  }
}

TEST_F(PolicyServerSettings, protocolIsHttpsInAnyCaseAndElseHttp) {
  for (const WordCase& c : {WordCase{"https", true},
                            {"HTTPS", true},
                            {"Https", true},
                            {"http", false},
                            {"", false},
                            {"https ", false},
                            {"httpss", false},
                            {"ftp", false},
                            {"1", false}}) {
    SCOPED_TRACE(c.text);
    platform().log.clear();
    set("protocol", c.text);
    Server server;
    server.protocol = c.want ? Interface::HTTP : Interface::HTTPS;
    EXPECT_EQ(server.read(), 0u);
    EXPECT_EQ(server.protocol, c.want ? Interface::HTTPS : Interface::HTTP);
    EXPECT_EQ(linesAbout("protocol"),
              (LogLines{error(readLine("protocol", c.text)), error(c.want ? "Policy server will use protocal 'https'."
                                                                          : "Policy server will use protocal 'http'.")}));
  }
}

// --- Numbers ---

constexpr unsigned int kCallers = 77;  // what the caller's variable holds

struct NumberCase {
  const char* text;
  unsigned int want;
  const char* wantMessage;  // up to the text; null: none
};

constexpr const char* kTooLong = "[ERROR]Size of '";
constexpr const char* kInvalid = "[ERROR]Value of '";

std::string clampMessage(const char* begin, const std::string& text, unsigned int number) {
  return begin + text +
         (begin == std::string(kTooLong) ? "' is too long, use default value " : "' is invalid, use default value ") +
         std::to_string(static_cast<int>(number)) + ".";
}

const NumberCase kNoNumberCases[] = {
    {"", kCallers, nullptr},    {" ", kCallers, nullptr},  {"abc", kCallers, nullptr},
    {"-1", kCallers, nullptr},  {"+5", kCallers, nullptr}, {" 5", kCallers, nullptr},
    {"5 ", kCallers, nullptr},  {"5x", kCallers, nullptr}, {"5.0", kCallers, nullptr},
    {"0x5", kCallers, nullptr}, {"%s", kCallers, nullptr}, {"longer than any", kCallers, nullptr},
};

const NumberCase kBacklogCases[] = {
    {"0", 0, nullptr},
    {"1", 1, nullptr},
    {"999", 999, nullptr},
    {"1000", 1000, nullptr},
    {"0005", 5, nullptr},
    {"00005", 1000, kTooLong},
    {"1001", 1000, kInvalid},
    {"9999", 1000, kInvalid},
    {"10000", 1000, kTooLong},
    {"00000", 1000, kTooLong},
    {"99999999999999999999", 1000, kTooLong},
};

const NumberCase kTimeoutCases[] = {
    {"0", 0, nullptr},       {"1", 1, nullptr},
    {"299", 299, nullptr},   {"300", 300, nullptr},
    {"005", 5, nullptr},     {"0005", 300, kTooLong},
    {"301", 300, kInvalid},  {"999", 300, kInvalid},
    {"1000", 300, kTooLong}, {"99999999999999999999", 300, kTooLong},
};

const NumberCase kThreadsCases[] = {
    {"0", 1, kInvalid},       {"0000", 1, kInvalid},     {"1", 1, nullptr},         {"2", 2, nullptr},
    {"0001", 1, nullptr},     {"00001", 1000, kTooLong}, {"999", 999, nullptr},     {"1000", 1000, nullptr},
    {"1001", 1000, kInvalid}, {"9999", 1000, kInvalid},  {"10000", 1000, kTooLong},
};

const NumberCase kMaxThreadsCases[] = {
    {"0", 2, kInvalid},       {"1", 2, kInvalid},        {"0001", 2, kInvalid},     {"2", 2, nullptr},
    {"3", 3, nullptr},        {"0002", 2, nullptr},      {"00002", 1000, kTooLong}, {"1000", 1000, nullptr},
    {"1001", 1000, kInvalid}, {"10000", 1000, kTooLong},
};

const NumberCase kTtlCases[] = {
    {"0", 0, nullptr},
    {"1", 1, nullptr},
    {"12345", 12345, nullptr},
    {"0000000000005", 5, nullptr},
    {"2147483648", 2147483648u, nullptr},
    {"4294967295", 4294967295u, nullptr},
    {"4294967296", 0, nullptr},
    {"4294967301", 5, nullptr},
    {"99999999999999999999", 4294967295u, nullptr},
};

const NumberCase kTtlNoNumberCases[] = {
    {"", 1440, kInvalid},   {"abc", 1440, kInvalid}, {"-1", 1440, kInvalid}, {"+5", 1440, kInvalid},
    {" 5", 1440, kInvalid}, {"5 ", 1440, kInvalid},  {"5x", 1440, kInvalid}, {"%s%n", 1440, kInvalid},
};

class PolicyServerNumbers : public PolicyServerSettings {
 protected:
  template <std::size_t Size>
  static void expectRead(const char* key, unsigned int Server::*number, const NumberCase (&cases)[Size]) {
    for (const NumberCase& c : cases) {
      SCOPED_TRACE(std::string(key) + " '" + c.text + "'");
      platform().reset();
      store();
      if (key == std::string("ldap_cache_TTL_minutes")) {
        setTtl(c.text);
      } else {
        set(key, c.text);
      }
      Server server;
      server.*number = kCallers;
      EXPECT_EQ(server.read(), 0u);
      EXPECT_EQ(server.*number, c.want);
      LogLines wanted = {error(readLine(key, c.text))};
      if (c.wantMessage != nullptr) {
        wanted.push_back(error(clampMessage(c.wantMessage, c.text, c.want)));
      }
      EXPECT_EQ(linesAbout(key), wanted);
    }
  }
};

TEST_F(PolicyServerNumbers, backlogIsAtMost1000) {
  expectRead("backlog", &Server::backlog, kBacklogCases);
  expectRead("backlog", &Server::backlog, kNoNumberCases);
}

TEST_F(PolicyServerNumbers, timeoutsAreAtMost300) {
  expectRead("recv_timeout_secs", &Server::recvTimeout, kTimeoutCases);
  expectRead("recv_timeout_secs", &Server::recvTimeout, kNoNumberCases);
  expectRead("send_timeout_secs", &Server::sendTimeout, kTimeoutCases);
  expectRead("send_timeout_secs", &Server::sendTimeout, kNoNumberCases);
}

TEST_F(PolicyServerNumbers, threadsAreBetween1And1000) {
  expectRead("threads", &Server::threads, kThreadsCases);
  expectRead("threads", &Server::threads, kNoNumberCases);
}

TEST_F(PolicyServerNumbers, mostThreadsAreBetween2And1000) {
  expectRead("max_threads", &Server::maxThreads, kMaxThreadsCases);
  expectRead("max_threads", &Server::maxThreads, kNoNumberCases);
}

TEST_F(PolicyServerNumbers, lifetimeHasNoBoundAndAFallback) {
  expectRead("ldap_cache_TTL_minutes", &Server::cacheTtl, kTtlCases);
  expectRead("ldap_cache_TTL_minutes", &Server::cacheTtl, kTtlNoNumberCases);
}

TEST_F(PolicyServerNumbers, callersValueIsNotJudged) {
  set("backlog", "none");
  set("threads", "none");
  m_server.backlog = 100000;
  m_server.threads = 0;
  EXPECT_EQ(m_server.read(), 0u);
  EXPECT_EQ(m_server.backlog, 100000u);
  EXPECT_EQ(m_server.threads, 0u);
}

struct PortCase {
  const char* text;
  bool valid;
  unsigned int want;
};

const PortCase kPortCases[] = {
    {"1", true, 1},      {"80", true, 80},   {"65535", true, 65535},
    {"00080", true, 80}, {"0", false, 0},    {"65536", false, 0},
    {"", false, 0},      {"http", false, 0}, {"-80", false, 0},
    {"+80", false, 0},   {" 80", false, 0},  {"80 ", false, 0},
    {"80x", false, 0},   {"%d", false, 0},   {"99999999999999999999", false, 0},
};

TEST_F(PolicyServerNumbers, portIsAValidOneOrTheCallers) {
  for (const PortCase& c : kPortCases) {
    SCOPED_TRACE(c.text);
    platform().log.clear();
    set("PolicyServerPort", c.text);
    Server server;
    server.port = kCallers;
    EXPECT_EQ(server.read(), 0u);
    EXPECT_EQ(server.port, c.valid ? c.want : kCallers);
    LogLines wanted = {error(readLine("PolicyServerPort", c.text))};
    if (!c.valid) {
      wanted.push_back(error(std::string("[ERROR]Port value '") + c.text + "' is invalid, use default value '77'."));
    }
    EXPECT_EQ(linesAbout("PolicyServerPort"), wanted);
  }
}

// --- Rules, as programs ask for them ---

TEST_F(PolicyServerNumbers, everyNumberHasARule) {
  for (const char* key : kKeys) {
    const bool word = key == std::string("keep-alive") || key == std::string("protocol");
    const Interface::NumberRule* rule = Interface::findServerRule(key);
    ASSERT_EQ(rule == nullptr, word) << key;
    if (rule != nullptr) {
      EXPECT_STREQ(rule->key, key);
      EXPECT_EQ(rule->isPort, key == std::string("PolicyServerPort"));
    }
  }
  EXPECT_EQ(Interface::findServerRule("host"), nullptr);
  EXPECT_EQ(Interface::findServerRule(""), nullptr);
}

struct ReadingCase {
  const char* key;
  const char* text;
  Interface::Reading want;
  unsigned int wantValue;
};

const ReadingCase kReadingCases[] = {
    {"max_threads", "5", Interface::AsStored, 5},
    {"max_threads", "1", Interface::TooLow, 2},
    {"max_threads", "1001", Interface::TooHigh, 1000},
    {"max_threads", "00005", Interface::TooLong, 1000},
    {"max_threads", "five", Interface::NotANumber, kCallers},
    {"PolicyServerPort", "70000", Interface::NotANumber, kCallers},
    {"PolicyServerPort", "7000", Interface::AsStored, 7000},
    {"ldap_cache_TTL_minutes", "x", Interface::NotANumber, 1440},
    {"ldap_cache_TTL_minutes", "4294967295", Interface::AsStored, UINT_MAX},
};

TEST_F(PolicyServerNumbers, rulesSayWhatBecameOfAText) {
  for (const ReadingCase& c : kReadingCases) {
    SCOPED_TRACE(std::string(c.key) + " '" + c.text + "'");
    unsigned int value = kCallers;
    EXPECT_EQ(Interface::readNumber(*Interface::findServerRule(c.key), c.text, value), c.want);
    EXPECT_EQ(value, c.wantValue);
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

// --- Writing ---

class PolicyServerSettingsWritten : public PlatformTest {
 protected:
  static std::vector<SettingWrite> writes(const std::vector<std::string>& values) {
    const char* const keys[] = {"backlog", "keep-alive",  "PolicyServerPort",      "protocol",
                                "threads", "max_threads", "ldap_cache_TTL_minutes"};
    std::vector<SettingWrite> result;
    for (std::size_t i = 0; i < values.size(); ++i) {
      result.push_back({keys[i], values[i], kSection, "zaro.ini"});
    }
    return result;
  }
};

TEST_F(PolicyServerSettingsWritten, areSevenInOrder) {
  EXPECT_EQ(Interface::setSettingsInDatabase(1, true, 2, Interface::HTTPS, 3, 4, 5), 0u);
  EXPECT_EQ(platform().settings.writes, writes({"1", "yes", "2", "HTTPS", "3", "4", "5"}));
  EXPECT_EQ(platform().calls.countOf("GlobalSettingIF"), 1u);
  EXPECT_EQ(platform().calls.countOf("~GlobalSettingIF"), 1u);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(PolicyServerSettingsWritten, areNotJudged) {
  EXPECT_EQ(Interface::setSettingsInDatabase(2147483647u, false, 0, Interface::HTTP, 0, 100000, 2147483648u), 0u);
  EXPECT_EQ(platform().settings.writes, writes({"2147483647", "no", "0", "HTTP", "0", "100000", "-2147483648"}));
  platform().settings.writes.clear();
  EXPECT_EQ(Interface::setSettingsInDatabase(UINT_MAX, false, UINT_MAX, Interface::HTTP, 0, 0, 0), 0u);
  EXPECT_EQ(platform().settings.writes, writes({"-1", "no", "-1", "HTTP", "0", "0", "0"}));
}

TEST_F(PolicyServerSettingsWritten, everyProtocolButHttpsIsHttp) {
  for (const int protocol : {0, 2, -1, 100}) {
    platform().settings.writes.clear();
    EXPECT_EQ(Interface::setSettingsInDatabase(1, true, 2, static_cast<Interface::Protocol>(protocol), 3, 4, 5), 0u);
    EXPECT_EQ(platform().settings.writes.at(3).value, "HTTP") << protocol;
  }
}

TEST_F(PolicyServerSettingsWritten, firstFailureEndsTheWriting) {
  const std::vector<SettingWrite> all = writes({"1", "yes", "2", "HTTPS", "3", "4", "5"});
  for (std::size_t i = 0; i < all.size(); ++i) {
    SCOPED_TRACE(all[i].key);
    for (const int code : {1, -1, 1610}) {
      platform().reset();
      platform().settings.failingWrites[all[i].key] = code;
      EXPECT_EQ(Interface::setSettingsInDatabase(1, true, 2, Interface::HTTPS, 3, 4, 5), 1610u);
      EXPECT_EQ(platform().settings.writes,
                std::vector<SettingWrite>(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i) + 1));
      EXPECT_EQ(platform().calls.countOf("~GlobalSettingIF"), 1u);
      EXPECT_THAT(platform().log.lines(), IsEmpty());
    }
  }
}

TEST_F(PolicyServerSettingsWritten, exceptionsOfTheStorePass) {
  platform().faults.throwText(Point::SettingsWrite, "lost", 3);
  EXPECT_THROW(Interface::setSettingsInDatabase(1, true, 2, Interface::HTTPS, 3, 4, 5), const char*);
  EXPECT_EQ(platform().settings.writes.size(), 2u);
}

}  // namespace
