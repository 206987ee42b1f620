// Settings of the policy server, read and written.
#include <climits>
#include <utility>

#include "GlobalSetting.h"
#include "PolicyLog.h"
#include "ZaroErrC.h"
#include "policyserver/LeadingNumber.h"
#include "policyserver/SettingItems.h"

using ZARO::GlobalSettingIF;
using ZARO::GlobalSettingOnMem;
using namespace ZARO::settings;

namespace {

using Reading = ZaroPolicyServerInterface::Reading;

constexpr const char* kLdapSection = "LDAP";

constexpr const char* kTooLong = "[ERROR]Size of '%s' is too long, use default value %d.";
constexpr const char* kInvalid = "[ERROR]Value of '%s' is invalid, use default value %d.";
constexpr const char* kInvalidPort = "[ERROR]Port value '%s' is invalid, use default value '%d'.";
constexpr const char* kNothing = nullptr;

// What the settings are read into, one after the other: what was read before a failure counts.
struct Server {
  unsigned int* backlog;
  bool* keepAlive;
  unsigned int* port;
  ZaroPolicyServerInterface::Protocol* protocol;
  unsigned int* recvTimeout;
  unsigned int* sendTimeout;
  unsigned int* threads;
  unsigned int* maxThreads;
  unsigned int* cacheTtl;
};

void readKeepAlive(const std::string& text, const Server& server) {
  *server.keepAlive = isKeepAlive(text);
}

void readProtocol(const std::string& text, const Server& server) {
  *server.protocol = protocolOf(text);
  PolicyLog::log(LogLevel::Error, "Policy server will use protocal '%s'.",  // spelt as log watchers know it
                 *server.protocol == ZaroPolicyServerInterface::HTTPS ? "https" : "http");
}

struct Row {
  NumberRule rule;
  unsigned int* Server::*number;  // null for a word
  const char* whenNoNumber;       // logged then
  void (*readWord)(const std::string& text, const Server& server);
};

constexpr Row number(NumberRule rule, unsigned int* Server::*member, const char* whenNoNumber) {
  return {rule, member, whenNoNumber, nullptr};
}

constexpr Row word(const char* key, void (*read)(const std::string& text, const Server& server)) {
  return {wordRule(key), nullptr, kNothing, read};
}

// In the order in which a server reads them.
// clang-format off
constexpr Row kRows[] = {
    //                   port   longest     least greatest  fall-back                          if no number
    number({kBacklog,     false, 4,          0,    1000,     kCallers}, &Server::backlog,     kNothing),
    word(kKeepAlive, readKeepAlive),
    number({kPort,        true,  kAnyLength, 0,    UINT_MAX, kCallers}, &Server::port,        kInvalidPort),
    word(kProtocol, readProtocol),
    number({kRecvTimeout, false, 3,          0,    300,      kCallers}, &Server::recvTimeout, kNothing),
    number({kSendTimeout, false, 3,          0,    300,      kCallers}, &Server::sendTimeout, kNothing),
    number({kThreads,     false, 4,          1,    1000,     kCallers}, &Server::threads,     kNothing),
    number({kMaxThreads,  false, 4,          2,    1000,     kCallers}, &Server::maxThreads,  kNothing),
    number({kCacheTtl,    false, kAnyLength, 0,    UINT_MAX, 1440},     &Server::cacheTtl,    kInvalid),
};
// clang-format on

int shownNumber(unsigned int value) {
  return static_cast<int>(value);
}

// What is logged about a number.
const char* complaint(Reading reading, const Row& row) {
  switch (reading) {
    case ZaroPolicyServerInterface::AsStored:
      return kNothing;
    case ZaroPolicyServerInterface::TooLong:
      return kTooLong;
    case ZaroPolicyServerInterface::NotANumber:
      return row.whenNoNumber;
    default:
      return kInvalid;
  }
}

void readSetting(const Row& row, const std::string& text, const Server& server) {
  if (row.number == nullptr) {
    row.readWord(text, server);
    return;
  }
  unsigned int& value = *(server.*row.number);
  const char* message = complaint(ZaroPolicyServerInterface::readNumber(row.rule, text, value), row);
  if (message != kNothing) {
    PolicyLog::log(LogLevel::Error, message, text.c_str(), shownNumber(value));
  }
}

std::string cacheSectionOf(GlobalSettingOnMem& store) {
  std::string accessType;
  std::string enabledServer;
  const bool typeKnown = store.getItem("access_type", accessType, kLdapSection, kFile) == 0;
  const bool serverKnown =
      typeKnown && accessType != "1" && store.getItem("enabled_server", enabledServer, kLdapSection, kFile) == 0;
  return ZaroPolicyServerInterface::getCacheSection(typeKnown ? &accessType : nullptr,
                                                    serverKnown ? &enabledServer : nullptr);
}

unsigned int readSettings(const Server& server) {
  GlobalSettingOnMem* store = GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true);
  if (store == nullptr || !store->isLoaded()) {
    return ZaroErrC::ServerSetting;
  }
  const std::string cacheSection = cacheSectionOf(*store);
  Items serverItems;
  Items cacheItems;
  if (store->getItemsInSection(serverItems, kServerSection) != 0 ||
      store->getItemsInSection(cacheItems, cacheSection.c_str()) != 0) {
    PolicyLog::log(LogLevel::Error, "[ERROR]Can not retrieve items in section %s and %s.", kServerSection,
                   cacheSection.c_str());
    return ZaroErrC::ServerSetting;
  }
  for (const Row& row : kRows) {
    // The messages name the server's section for every key, the one that is read from elsewhere included.
    const std::string* text = find(row.number == &Server::cacheTtl ? cacheItems : serverItems, row.rule.key);
    if (text == nullptr) {
      PolicyLog::log(LogLevel::Error, "[ERROR]Can not find setting '%s' in section [%s].", row.rule.key, kServerSection);
      return ZaroErrC::ServerSetting;
    }
    PolicyLog::log(LogLevel::Error, "Read setting '%s' in section [%s], value is '%s'.", row.rule.key, kServerSection,
                   text->c_str());
    readSetting(row, *text, server);
  }
  return ZaroErrC::Success;
}

}  // namespace

unsigned int ZaroPolicyServerInterface::getSettingsFromDatabase(unsigned int& backlog, bool& bKeepAlive,
                                                                unsigned int& port, Protocol& protocol,
                                                                unsigned int& recvTimeoutSecs,
                                                                unsigned int& sendTimeoutSecs, unsigned int& threads,
                                                                unsigned int& maxThreads, unsigned int& cacheTTLMins,
                                                                bool bPrioritizeINI) {
  PolicyLog::log(LogLevel::Trace, "Enter ZaroPolicyServerInterface::getSettingsFromDatabase()");
  if (!bPrioritizeINI) {
    return ZaroErrC::ServerSetting;
  }
  const unsigned int code = readSettings({&backlog, &bKeepAlive, &port, &protocol, &recvTimeoutSecs, &sendTimeoutSecs,
                                          &threads, &maxThreads, &cacheTTLMins});
  if (code != ZaroErrC::Success) {
    return code;
  }
  PolicyLog::log(
      LogLevel::Trace,
      "ZaroPolicyServerInterface: getSettingsFromDatabase() backlog=%d bKeepAlive=%d port=%d protocol=%d recvTimeoutSecs=%d sendTimeoutSecs=%d threads=%d maxThreads=%d cacheTTLMins=%d bPrioritizeINI=%d",
      shownNumber(backlog), bKeepAlive, shownNumber(port), protocol, shownNumber(recvTimeoutSecs),
      shownNumber(sendTimeoutSecs), shownNumber(threads), shownNumber(maxThreads), shownNumber(cacheTTLMins), 1);
  PolicyLog::log(LogLevel::Trace, "Leave ZaroPolicyServerInterface: getSettingsFromDatabase()");
  return ZaroErrC::Success;
}

unsigned int ZaroPolicyServerInterface::setSettingsInDatabase(unsigned int backlog, bool bKeepAlive, unsigned int port,
                                                              Protocol protocol, unsigned int threads,
                                                              unsigned int maxThreads, unsigned int cacheTTLMins) {
  const auto numberText = [](unsigned int value) { return std::to_string(shownNumber(value)); };
  const std::pair<const char*, std::string> items[] = {
      {kBacklog, numberText(backlog)},
      {kKeepAlive, bKeepAlive ? "yes" : "no"},
      {kPort, numberText(port)},
      {kProtocol, protocol == HTTPS ? "HTTPS" : "HTTP"},
      {kThreads, numberText(threads)},
      {kMaxThreads, numberText(maxThreads)},
      {kCacheTtl, numberText(cacheTTLMins)},  // not where it is read from; other programs look for it here
  };
  GlobalSettingIF store;
  for (const auto& [key, value] : items) {
    if (store.setItem(key, value.c_str(), kServerSection, kFile) != 0) {
      return ZaroErrC::SettingNotWritten;
    }
  }
  return ZaroErrC::Success;
}

const NumberRule* ZaroPolicyServerInterface::findServerRule(const std::string& key) {
  return findRule(kRows, key);
}

std::string ZaroPolicyServerInterface::getCacheSection(const std::string* accessType, const std::string* enabledServer) {
  if (accessType != nullptr && *accessType == "1") {
    return "ldap-cache";
  }
  if (accessType == nullptr || enabledServer == nullptr || enabledServer->empty()) {
    return "LDAP_SVR_1";
  }
  // Unsigned, so that no stored text can make it overflow.
  const unsigned int server = leadingNumber<unsigned int>(enabledServer->c_str());
  return "LDAP_SVR_" + std::to_string(shownNumber(2 * server + 1));
}
