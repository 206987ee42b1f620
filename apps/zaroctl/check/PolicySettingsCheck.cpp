#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "check/Checks.h"

using zaroruntime::IniFile;

void checkPolicySettings(const zaroruntime::Installation& installation, Findings& findings) {
  const std::string path = installation.settingsIni();
  findings.check("policy settings", [&] {
    const IniFile ini(path, IniFile::Malformed::Refused);
    for (const char* section : {"policy_server", "policy_client"}) {
      if (!ini.hasSection(section)) {
        throw zaroruntime::RuntimeError(path + ": section [" + section + "] is missing");
      }
    }
    return path + ": readable";
  });
}
