// Settings as the file of a host has them, and what policy servers, their clients and the mail filter make of them.
#include <string>

#include "FuzzInput.h"
#include "FuzzInstallation.h"
#include "QuietErrors.h"
#include "store/ClientSettings.h"
#include "store/DefaultedSettings.h"
#include "store/FilterSettings.h"
#include "store/ServerSettings.h"

namespace {

using zaroruntime::Installation;
using zaroruntime::Settings;

bool isPath(const std::string& path) {
  return path.empty() || (path[0] == '/' && path.find_first_of(std::string("\n\r\0", 3)) == std::string::npos);
}

void checkFilter(const Installation& installation, const Settings& stored) {
  const ReadSettings read = readAsFilter(stored);
  const auto settings = valueOf([&] { return filterSettings(installation, stored); });
  FUZZ_CHECK(!settings || read.isComplete());
  if (settings) {
    FUZZ_CHECK(settings->pollSeconds >= 1 && settings->pollSeconds <= 3600);
    FUZZ_CHECK((settings->socketMode & ~0777U) == 0 && (settings->socketMode & 0600U) == 0600);
    FUZZ_CHECK(!settings->decisions.header.empty() && settings->decisions.header.find(':') == std::string::npos);
    FUZZ_CHECK(settings->socket.find("unix:/") == 0 || settings->socket.find("inet") == 0);
    FUZZ_CHECK(isPath(settings->stateDirectory) && !settings->stateDirectory.empty());
  }
}

void checkServer(const Installation& installation, const Settings& stored) {
  if (const auto settings = valueOf([&] { return serverSettings(installation, stored); })) {
    FUZZ_CHECK(settings->port >= 1 && settings->port <= 65535);
    FUZZ_CHECK(settings->threads >= 1 && settings->threads <= settings->maxThreads);
    FUZZ_CHECK(settings->backlog >= 1);
    FUZZ_CHECK(isLoopback(settings->address) || !settings->clientCa.empty() || !settings->tokenFile.empty());
    FUZZ_CHECK(!settings->https || (!settings->certificate.empty() && !settings->privateKey.empty()));
    for (const std::string* path :
         {&settings->certificate, &settings->privateKey, &settings->clientCa, &settings->tokenFile}) {
      FUZZ_CHECK(isPath(*path));
    }
  }
}

void checkClient(const Installation& installation, const Settings& stored) {
  if (const auto settings = valueOf([&] { return clientSettings(installation, stored); })) {
    FUZZ_CHECK(settings->port >= 1 && settings->port <= 65535);
    for (const PolicyServerAddress& server : settings->servers) {
      // What a URL is made of.
      FUZZ_CHECK(!server.host.empty() && server.host.find_first_of(std::string("/@?#% \n\0", 8)) == std::string::npos);
      FUZZ_CHECK(server.port == settings->port);
    }
    FUZZ_CHECK(settings->receiveTimeout.count() >= 0 && settings->sendTimeout.count() >= 0);
    for (const std::string* path : {&settings->ca, &settings->certificate, &settings->privateKey, &settings->tokenFile}) {
      FUZZ_CHECK(isPath(*path));
    }
  }
}

}  // namespace

// The first byte says whether the database is thought to have failed: then the same texts count as what was kept of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzInstallation directory;
  if (size == 0) {
    return 0;
  }
  const QuietErrors quiet;
  directory.write("config/zaro.ini", textOf(data + 1, size - 1));
  const Installation installation(directory.home());
  auto stored = valueOf([&] { return zaroruntime::readSettings(installation); });
  if (!stored) {
    return 0;
  }
  for (const auto& [section, settings] : stored->sections) {
    for (const auto& [key, setting] : settings) {
      FUZZ_CHECK((section + key + setting.value).find_first_of(std::string("\n\0", 2)) == std::string::npos);
    }
  }
  stored->databaseFailure = (data[0] & 1U) != 0 ? "the database does not answer" : "";
  checkFilter(installation, *stored);
  checkServer(installation, *stored);
  checkClient(installation, *stored);
  return 0;
}
