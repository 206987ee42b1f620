// Settings of policy clients: what is read, corrected and reported.
#include <string>
#include <vector>

#include "ZaroPolicyServerInterface.h"
#include "scripted/Prelude.h"

namespace {

using Interface = ZaroPolicyServerInterface;

// A client's settings, at first as the caller of the tests has them.
struct Client {
  std::string host = "before";
  unsigned int port = 11;
  bool keepAlive = true;
  Interface::Protocol protocol = Interface::HTTPS;
  unsigned int recvTimeout = 12;
  unsigned int sendTimeout = 13;

  unsigned int read(bool inMemory) {
    return Interface::getClientSettingsFromDatabase(host, port, keepAlive, protocol, recvTimeout, sendTimeout, inMemory);
  }

  std::string shown() const {
    return host + " " + std::to_string(port) + (keepAlive ? " yes" : " no") +
           (protocol == Interface::HTTPS ? " https " : " http ") + std::to_string(recvTimeout) + " " +
           std::to_string(sendTimeout);
  }
};

constexpr const char* kCallersValues = "before 11 yes https 12 13";
constexpr const char* kStoredValues = "server.example.test 5070 no http 60 61";

constexpr const char* kEntered = "ZaroPolicyServerInterface: getClientSettingsFromDatabase() ...\n";
constexpr const char* kLeft = "ZaroPolicyServerInterface: getClientSettingsFromDatabase() !!!\n";
constexpr const char* kSectionFailed =
    "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving items from section policy_server.";

// Both stores, each as the parameter says.
class PolicyClientSettings : public scripted::PlatformTest, public testing::WithParamInterface<bool> {
 protected:
  PolicyClientSettings() { fill(); }

  static bool inMemory() { return GetParam(); }
  static scripted::SettingsStore& store() {
    return inMemory() ? platform().settings.inMemory : platform().settings.stored;
  }

  // Every setting, whose values are `kStoredValues`.
  static void fill() {
    store().set("policy_server", "PolicyServerPort", "5070");
    store().set("policy_server", "keep-alive", "no");
    store().set("policy_server", "protocol", "HTTP");
    store().set("policy_client", "host", "server.example.test");
    store().set("policy_client", "recv_timeout_secs", "60");
    store().set("policy_client", "send_timeout_secs", "61");
  }

  unsigned int read() { return m_client.read(inMemory()); }

  Client m_client;
};

INSTANTIATE_TEST_SUITE_P(, PolicyClientSettings, testing::Bool(),
                         [](const auto& tested) { return std::string(tested.param ? "inMemory" : "stored"); });

TEST_P(PolicyClientSettings, areReadWithoutReportingValues) {
  EXPECT_EQ(read(), 0u);
  EXPECT_EQ(m_client.shown(), kStoredValues);
  EXPECT_EQ(platform().log.lines(), (LogLines{trace(kEntered), trace(kLeft)}));
}

TEST_P(PolicyClientSettings, callsOfTheStoreComeInOrder) {
  platform().calls.clear();
  EXPECT_EQ(read(), 0u);
  std::vector<std::string> calls = platform().calls.beginningWith("GlobalSetting");
  if (inMemory()) {
    EXPECT_THAT(calls, ElementsAre("GlobalSettingOnMem::Instance(null, true, null, null, null, null, true)",
                                   "GlobalSettingOnMem.getItemsInSection(\"policy_server\")",
                                   "GlobalSettingOnMem.getItemsInSection(\"policy_client\")"));
  } else {
    EXPECT_THAT(calls,
                ElementsAre("GlobalSettingIF()", "GlobalSettingIF.getItemsInSection(\"policy_server\", \"zaro.ini\")",
                            "GlobalSettingIF.getItemsInSection(\"policy_client\", \"zaro.ini\")"));
    EXPECT_EQ(platform().calls.countOf("~GlobalSettingIF"), 1u);
  }
}

TEST_P(PolicyClientSettings, otherStoreIsNotAsked) {
  platform().settings.inMemoryExists = inMemory();
  (inMemory() ? platform().settings.stored : platform().settings.inMemory).failSection("policy_server");
  EXPECT_EQ(read(), 0u);
}

TEST_P(PolicyClientSettings, unreadableSectionIsReportedAsTheServers) {
  store().failSection("policy_server", 9);
  EXPECT_EQ(read(), 1608u);
  EXPECT_EQ(m_client.shown(), kCallersValues);
  EXPECT_EQ(platform().log.lines(), (LogLines{trace(kEntered), error(kSectionFailed)}));
}

TEST_P(PolicyClientSettings, unreadableClientSectionIsReportedAsTheServersToo) {
  store().failSection("policy_client", 9);
  EXPECT_EQ(read(), 1608u);
  EXPECT_EQ(m_client.shown(), "before 5070 no http 12 13");
  EXPECT_EQ(platform().log.lines(), (LogLines{trace(kEntered), error(kSectionFailed)}));
}

struct MissingCase {
  const char* section;
  const char* key;
  const char* wantMessage;
  unsigned int wantCode;
  const char* wantValues;
};

// In the order in which they are read.
const MissingCase kMissingCases[] = {
    {"policy_server", "PolicyServerPort",
     "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving PolicyServerPort from section policy_server.",
     1608, kCallersValues},
    {"policy_server", "keep-alive",
     "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving keep-alive from section policy_server.",
     1608, "before 5070 yes https 12 13"},
    {"policy_server", "protocol",
     "ZaroPolicyServerInterface::getSettingsFromDatabase: Error retrieving protocol from section policy_server.", 1608,
     "before 5070 no https 12 13"},
    {"policy_client", "host",
     "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving host from section policy_client.",
     1608, "before 5070 no http 12 13"},
    {"policy_client", "recv_timeout_secs",
     "ZaroPolicyServerInterface::getSettingsFromDatabase: Error retrieving recv_timeout_secs from section policy_client.",
     1608, "server.example.test 5070 no http 12 13"},
    {"policy_client", "send_timeout_secs",
     "ZaroPolicyServerInterface::getSettingsFromDatabase: Error retrieving send_timeout_secs from section policy_client.",
     1609, "server.example.test 5070 no http 60 13"},
};

TEST_P(PolicyClientSettings, firstMissingKeyEndsTheReading) {
  for (std::size_t i = 0; i < std::size(kMissingCases); ++i) {
    const MissingCase& c = kMissingCases[i];
    SCOPED_TRACE(c.key);
    platform().reset();
    fill();
    for (std::size_t gone = i; gone < std::size(kMissingCases); ++gone) {
      store().erase(kMissingCases[gone].section, kMissingCases[gone].key);
    }
    Client client;
    EXPECT_EQ(client.read(inMemory()), c.wantCode);
    EXPECT_EQ(client.shown(), c.wantValues);
    EXPECT_EQ(platform().log.lines(), (LogLines{trace(kEntered), error(c.wantMessage)}));
  }
}

TEST_P(PolicyClientSettings, missingSendTimeoutAloneHasTheServersCode) {
  store().erase("policy_client", "send_timeout_secs");
  EXPECT_EQ(read(), 1609u);
  fill();
  store().erase("policy_client", "recv_timeout_secs");
  EXPECT_EQ(read(), 1608u);
}

TEST_P(PolicyClientSettings, clientSectionIsNotReadWhenTheServersLacksAKey) {
  store().erase("policy_server", "protocol");
  platform().calls.clear();
  EXPECT_EQ(read(), 1608u);
  EXPECT_EQ(platform().calls.countOf(inMemory() ? "GlobalSettingOnMem.getItemsInSection"
                                                : "GlobalSettingIF.getItemsInSection"),
            1u);
}

TEST_P(PolicyClientSettings, whatTheClientsSectionLacksIsTakenFromTheServers) {
  store().erase("policy_client", "host");
  store().erase("policy_client", "recv_timeout_secs");
  store().erase("policy_client", "send_timeout_secs");
  store().set("policy_server", "host", "other");
  store().set("policy_server", "recv_timeout_secs", "5");
  store().set("policy_server", "send_timeout_secs", "6");
  EXPECT_EQ(read(), 0u);
  EXPECT_EQ(m_client.shown(), "other 5070 no http 5 6");
}

TEST_P(PolicyClientSettings, clientsSectionGoesBeforeTheServers) {
  store().set("policy_server", "host", "other");
  store().set("policy_server", "recv_timeout_secs", "5");
  store().set("policy_server", "send_timeout_secs", "6");
  EXPECT_EQ(read(), 0u);
  EXPECT_EQ(m_client.shown(), kStoredValues);
}

TEST_P(PolicyClientSettings, serversKeysInTheClientsSectionComeTooLate) {
  store().set("policy_client", "PolicyServerPort", "1");
  store().set("policy_client", "keep-alive", "yes");
  store().set("policy_client", "protocol", "HTTPS");
  EXPECT_EQ(read(), 0u);
  EXPECT_EQ(m_client.shown(), kStoredValues);
}

TEST_P(PolicyClientSettings, hostIsTakenAsItStands) {
  for (const char* host : {"", " ", "2001:db8::1", "%s", "a b"}) {
    store().set("policy_client", "host", host);
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.host, host);
  }
}

struct WordCase {
  const char* text;
  bool want;
};

TEST_P(PolicyClientSettings, keepAliveIsYesInAnyCase) {
  for (const WordCase& c :
       {WordCase{"yes", true}, {"YES", true}, {"Yes", true}, {"no", false}, {"", false}, {"yes ", false}, {"1", false}}) {
    SCOPED_TRACE(c.text);
    store().set("policy_server", "keep-alive", c.text);
    m_client.keepAlive = !c.want;
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.keepAlive, c.want);
  }
}

TEST_P(PolicyClientSettings, protocolIsHttpsInAnyCaseAndElseHttp) {
  for (const WordCase& c :
       {WordCase{"https", true}, {"HTTPS", true}, {"hTTps", true}, {"http", false}, {"", false}, {"https ", false}}) {
    SCOPED_TRACE(c.text);
    store().set("policy_server", "protocol", c.text);
    m_client.protocol = c.want ? Interface::HTTP : Interface::HTTPS;
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.protocol, c.want ? Interface::HTTPS : Interface::HTTP);
  }
  EXPECT_THAT(platform().log.texts(LogLevel::Error), IsEmpty());
}

struct NumberCase {
  const char* text;
  unsigned int want;
};

const NumberCase kPortCases[] = {
    {"1", 1},      {"65535", 65535}, {"00080", 80}, {"0", 5060},   {"65536", 5060}, {"", 5060},
    {"-80", 5060}, {"+80", 5060},    {" 80", 5060}, {"80 ", 5060}, {"x", 5060},     {"99999999999999999999", 5060},
};

TEST_P(PolicyClientSettings, portIsAValidOneOr5060) {
  for (const NumberCase& c : kPortCases) {
    SCOPED_TRACE(c.text);
    store().set("policy_server", "PolicyServerPort", c.text);
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.port, c.want);
  }
  EXPECT_THAT(platform().log.texts(LogLevel::Error), IsEmpty());
}

const NumberCase kTimeoutCases[] = {
    {"0", 0},
    {"1", 1},
    {"299", 299},
    {"300", 300},
    {"301", 300},
    {"999", 300},
    {"1000", 300},
    {"005", 5},
    {"0005", 300},
    {"", 0},
    {"x", 0},
    {"-5", 0},
    {"+5", 0},
    {" 5", 0},
    {"5 ", 0},
    {"5x", 0},
    {"longer than any", 0},
    {"99999999999999999999", 300},
};

TEST_P(PolicyClientSettings, timeoutsAreAtMost300AndZeroWithoutANumber) {
  for (const NumberCase& c : kTimeoutCases) {
    SCOPED_TRACE(c.text);
    store().set("policy_client", "recv_timeout_secs", c.text);
    store().set("policy_client", "send_timeout_secs", "7");
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.recvTimeout, c.want);
    EXPECT_EQ(m_client.sendTimeout, 7u);
    store().set("policy_client", "recv_timeout_secs", "8");
    store().set("policy_client", "send_timeout_secs", c.text);
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(m_client.recvTimeout, 8u);
    EXPECT_EQ(m_client.sendTimeout, c.want);
  }
  EXPECT_THAT(platform().log.texts(LogLevel::Error), IsEmpty());
}

TEST_P(PolicyClientSettings, exceptionsOfTheStorePass) {
  platform().faults.throwText(Point::SettingsRead, "lost", 2);
  EXPECT_THROW(read(), const char*);
  EXPECT_EQ(m_client.shown(), "before 5070 no http 12 13") << "what was read before it counts";
  platform().faults.throwOther(Point::SettingsRead);
  EXPECT_THROW(read(), OtherFailure);
}

class PolicyClientSettingsInMemory : public scripted::PlatformTest {};

TEST_F(PolicyClientSettingsInMemory, storeThatIsNotThereOrNotLoadedIsNotReported) {
  for (const bool exists : {false, true}) {
    platform().reset();
    platform().settings.inMemoryExists = exists;
    platform().settings.inMemoryIsLoaded = false;
    Client client;
    EXPECT_EQ(client.read(true), 1608u);
    EXPECT_EQ(client.shown(), kCallersValues);
    EXPECT_EQ(platform().log.lines(), LogLines{trace(kEntered)});
    EXPECT_EQ(platform().calls.countOf("GlobalSettingOnMem.getItemsInSection"), 0u);
  }
}

TEST_F(PolicyClientSettingsInMemory, clientsNumbersHaveRules) {
  for (const char* key : {"PolicyServerPort", "recv_timeout_secs", "send_timeout_secs"}) {
    ASSERT_NE(Interface::findClientRule(key), nullptr) << key;
    EXPECT_STREQ(Interface::findClientRule(key)->key, key);
  }
  for (const char* key : {"host", "keep-alive", "protocol", "backlog", ""}) {
    EXPECT_EQ(Interface::findClientRule(key), nullptr) << key;
  }
  unsigned int value = 1;
  EXPECT_EQ(Interface::readNumber(*Interface::findClientRule("PolicyServerPort"), "x", value), Interface::NotANumber);
  EXPECT_EQ(value, 5060u);
}

}  // namespace
