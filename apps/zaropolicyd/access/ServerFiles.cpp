#include "access/ServerFiles.h"

#include "ZaroRuntime/RuntimeError.h"
#include "access/TlsContext.h"
#include "installation/PrivateFile.h"

std::shared_ptr<const Tokens> readTokens(const ServerSettings& settings) {
  if (settings.tokenFile.empty()) {
    return nullptr;
  }
  const std::string lines = readPrivateFile(settings.tokenFile);
  try {
    return std::make_shared<const Tokens>(lines);
  } catch (const zaroruntime::RuntimeError& failure) {
    throw zaroruntime::RuntimeError(settings.tokenFile + ": " + failure.what(), failure.kind());
  }
}

void requireServerFiles(const ServerSettings& settings) {
  static_cast<void>(readTokens(settings));
  if (settings.https) {
    static_cast<void>(makeTlsContext(settings));
  }
}
