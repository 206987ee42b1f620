// Settings of the policy server's clients.
#include <optional>

#include "GlobalSetting.h"
#include "PolicyLog.h"
#include "ZaroErrC.h"
#include "policyserver/SettingTable.h"

using ZARO::GlobalSettingIF;
using ZARO::GlobalSettingOnMem;
using namespace ZARO::settings;

namespace {

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

unsigned int readClient(Store& store, const Values& values) {
  if (!store.isUsable()) {
    return ZaroErrC::ClientSetting;
  }
  Items items;  // one for both sections: what the client's own lacks is taken from the server's
  if (!store.addSection(kServerSection, items)) {
    return ZaroErrC::ClientSetting;
  }
  const unsigned int code = readSection(Reader::Client, Section::Server, items, values);
  if (code != ZaroErrC::Success) {
    return code;
  }
  if (!store.addSection(kClientSection, items)) {
    return ZaroErrC::ClientSetting;
  }
  return readSection(Reader::Client, Section::Client, items, values);
}

}  // namespace

unsigned int ZaroPolicyServerInterface::getClientSettingsFromDatabase(std::string& host, unsigned int& port,
                                                                      bool& bKeepAlive, Protocol& protocol,
                                                                      unsigned int& recvTimeoutSecs,
                                                                      unsigned int& sendTimeoutSecs, bool bInMemory) {
  PolicyLog::log(LogLevel::Trace, "ZaroPolicyServerInterface: getClientSettingsFromDatabase() ...\n");
  Store store(bInMemory);
  Values values;
  values.port = &port;
  values.keepAlive = &bKeepAlive;
  values.protocol = &protocol;
  values.host = &host;
  values.recvTimeout = &recvTimeoutSecs;
  values.sendTimeout = &sendTimeoutSecs;
  const unsigned int code = readClient(store, values);
  if (code == ZaroErrC::Success) {
    PolicyLog::log(LogLevel::Trace, "ZaroPolicyServerInterface: getClientSettingsFromDatabase() !!!\n");
  }
  return code;
}
