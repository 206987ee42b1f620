// Settings of the policy server, read and written.
#include "GlobalSetting.h"
#include "PolicyLog.h"
#include "ZaroErrC.h"
#include "policyserver/LeadingNumber.h"
#include "policyserver/SettingTable.h"

using ZARO::GlobalSettingOnMem;
using namespace ZARO::settings;

namespace {

constexpr const char* kLdapSection = "LDAP";

std::string cacheSectionOf(GlobalSettingOnMem& store) {
  std::string accessType;
  std::string enabledServer;
  const bool typeKnown = store.getItem("access_type", accessType, kLdapSection, kFile) == 0;
  const bool serverKnown =
      typeKnown && accessType != "1" && store.getItem("enabled_server", enabledServer, kLdapSection, kFile) == 0;
  return ZaroPolicyServerInterface::getCacheSection(typeKnown ? &accessType : nullptr,
                                                    serverKnown ? &enabledServer : nullptr);
}

unsigned int readServer(const Values& values) {
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
  const unsigned int code = readSection(Reader::Server, Section::Server, serverItems, values);
  return code != ZaroErrC::Success ? code : readSection(Reader::Server, Section::Cache, cacheItems, values);
}

int shownNumber(unsigned int value) {
  return static_cast<int>(value);
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
  Values values;
  values.backlog = &backlog;
  values.keepAlive = &bKeepAlive;
  values.port = &port;
  values.protocol = &protocol;
  values.recvTimeout = &recvTimeoutSecs;
  values.sendTimeout = &sendTimeoutSecs;
  values.threads = &threads;
  values.maxThreads = &maxThreads;
  values.cacheTtl = &cacheTTLMins;
  const unsigned int code = readServer(values);
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
  Values values;
  values.backlog = &backlog;
  values.keepAlive = &bKeepAlive;
  values.port = &port;
  values.protocol = &protocol;
  values.threads = &threads;
  values.maxThreads = &maxThreads;
  values.cacheTtl = &cacheTTLMins;
  return writeSettings(values);
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
