// Settings of the policy server's clients.
#include <climits>
#include <optional>

#include "GlobalSetting.h"
#include "PolicyLog.h"
#include "ZaroErrC.h"
#include "policyserver/SettingItems.h"

using ZARO::GlobalSettingIF;
using ZARO::GlobalSettingOnMem;
using namespace ZARO::settings;

namespace {

// What the settings are read into, one after the other: what was read before a failure, also of a store that throws,
// counts.
struct Client {
  std::string* host;
  unsigned int* port;
  bool* keepAlive;
  ZaroPolicyServerInterface::Protocol* protocol;
  unsigned int* recvTimeout;
  unsigned int* sendTimeout;
};

void readKeepAlive(const std::string& text, const Client& client) {
  *client.keepAlive = isKeepAlive(text);
}

void readProtocol(const std::string& text, const Client& client) {
  *client.protocol = protocolOf(text);
}

void readHost(const std::string& text, const Client& client) {
  *client.host = text;
}

// What is logged about a missing key. Some are reported under the name of the server's operation; log watchers match
// them so.
constexpr const char* kOwnName =
    "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving %s from section %s.";
constexpr const char* kServersName =
    "ZaroPolicyServerInterface::getSettingsFromDatabase: Error retrieving %s from section %s.";

struct Row {
  NumberRule rule;
  unsigned int* Client::*number;  // null for a word
  void (*readWord)(const std::string& text, const Client& client);
  const char* section;
  const char* whenMissing;
  unsigned int codeWhenMissing;
};

constexpr Row number(NumberRule rule, unsigned int* Client::*member, const char* section, const char* whenMissing,
                     unsigned int codeWhenMissing = ZaroErrC::ClientSetting) {
  return {rule, member, nullptr, section, whenMissing, codeWhenMissing};
}

constexpr Row word(const char* key, void (*read)(const std::string& text, const Client& client), const char* section,
                   const char* whenMissing) {
  return {wordRule(key), nullptr, read, section, whenMissing, ZaroErrC::ClientSetting};
}

constexpr unsigned int kServersCode = ZaroErrC::ServerSetting;  // callers know it so

// In the order in which a client reads them, section by section.
// clang-format off
constexpr Row kRows[] = {
    //                   port   longest     least greatest  fall-back
    number({kPort,        true,  kAnyLength, 0,    UINT_MAX, 5060}, &Client::port,        kServerSection, kOwnName),
    word(kKeepAlive, readKeepAlive, kServerSection, kOwnName),
    word(kProtocol, readProtocol, kServerSection, kServersName),
    word(kHost, readHost, kClientSection, kOwnName),
    number({kRecvTimeout, false, 3,          0,    300,      0},    &Client::recvTimeout, kClientSection, kServersName),
    number({kSendTimeout, false, 3,          0,    300,      0},    &Client::sendTimeout, kClientSection, kServersName,
           kServersCode),
};
// clang-format on

// The store that a client asks for.
class Store {
 public:
  explicit Store(bool inMemory) {
    if (inMemory) {
      m_memory = GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true);
    } else {
      m_stored.emplace();
    }
  }

  bool isUsable() const { return m_stored.has_value() || (m_memory != nullptr && m_memory->isLoaded()); }

  // Adds a section's items, in the place of those that are there already. False is logged.
  bool addSection(const char* section, Items& items) {
    const int code =
        m_stored ? m_stored->getItemsInSection(items, section, kFile) : m_memory->getItemsInSection(items, section);
    if (code != 0) {
      // Names the server's section whichever it was; log watchers match it so.
      PolicyLog::log(LogLevel::Error,
                     "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving items from section %s.",
                     kServerSection);
    }
    return code == 0;
  }

 private:
  GlobalSettingOnMem* m_memory = nullptr;
  std::optional<GlobalSettingIF> m_stored;
};

unsigned int readSettings(Store& store, const Client& client) {
  if (!store.isUsable()) {
    return ZaroErrC::ClientSetting;
  }
  Items items;  // one for both sections: what the client's own lacks is taken from the server's
  const char* section = nullptr;
  for (const Row& row : kRows) {
    if (row.section != section && !store.addSection(row.section, items)) {
      return ZaroErrC::ClientSetting;
    }
    section = row.section;
    const std::string* text = find(items, row.rule.key);
    if (text == nullptr) {
      PolicyLog::log(LogLevel::Error, row.whenMissing, row.rule.key, row.section);
      return row.codeWhenMissing;
    }
    if (row.number != nullptr) {
      ZaroPolicyServerInterface::readNumber(row.rule, *text, *(client.*row.number));
    } else {
      row.readWord(*text, client);
    }
  }
  return ZaroErrC::Success;
}

}  // namespace

unsigned int ZaroPolicyServerInterface::getClientSettingsFromDatabase(std::string& host, unsigned int& port,
                                                                      bool& bKeepAlive, Protocol& protocol,
                                                                      unsigned int& recvTimeoutSecs,
                                                                      unsigned int& sendTimeoutSecs, bool bInMemory) {
  PolicyLog::log(LogLevel::Trace, "ZaroPolicyServerInterface: getClientSettingsFromDatabase() ...\n");
  Store store(bInMemory);
  const unsigned int code =
      readSettings(store, {&host, &port, &bKeepAlive, &protocol, &recvTimeoutSecs, &sendTimeoutSecs});
  if (code == ZaroErrC::Success) {
    PolicyLog::log(LogLevel::Trace, "ZaroPolicyServerInterface: getClientSettingsFromDatabase() !!!\n");
  }
  return code;
}

const NumberRule* ZaroPolicyServerInterface::findClientRule(const std::string& key) {
  return findRule(kRows, key);
}
