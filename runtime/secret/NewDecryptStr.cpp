#include "NewDecryptStr.h"

#include <cstring>
#include <exception>
#include <string>

#include "PolicyLog.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/StoredPassword.h"

int NewDecryptStr(char* text) {
  if (text == nullptr || !zaroruntime::isEncryptedPassword(text)) {
    return 0;
  }
  try {
    const auto installation = zaroruntime::Installation::fromEnvironment();
    const std::string clear = zaroruntime::decryptPassword(text, installation.secretKey());
    std::memcpy(text, clear.c_str(), clear.size() + 1);
    return 1;
  } catch (const std::exception& failure) {
    // The caller now takes the stored text for the password, and its refusal by the database would mislead.
    PolicyLog::log(LogLevel::Error, "NewDecryptStr: %s", failure.what());
    return 0;
  }
}
