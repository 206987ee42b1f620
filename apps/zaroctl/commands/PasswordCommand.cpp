// password [--clear]
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StoredPassword.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/DelayedSignals.h"
#include "console/PasswordInput.h"
#include "installation/Files.h"
#include "store/Transaction.h"

namespace fs = std::filesystem;
using zaroruntime::FailureKind;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;

namespace {

constexpr const char* kSection = "Database_Settings";

// The file itself where the name is a link, which would be replaced otherwise.
std::string settingsFile(const Installation& installation) {
  std::error_code failure;
  const fs::path file = fs::canonical(installation.databaseIni(), failure);
  return failure ? installation.databaseIni() : file.string();  // opening it says what is wrong
}

IniFile readSettings(const std::string& path) {
  IniFile ini(path, IniFile::Malformed::Refused);
  if (!ini.hasSection(kSection)) {
    throw RuntimeError(path + ": section [" + kSection + "] is missing", FailureKind::Configuration);
  }
  return ini;
}

std::string valueOf(const IniFile& ini, const char* key) {
  return ini.get(kSection, key).value_or("");
}

// Makes the key if there is none: for the owner of the settings, who need not be this user.
std::string encryptedPassword(const std::string& password, const std::string& keyPath, const std::string& settingsPath) {
  if (fs::exists(fs::symlink_status(keyPath))) {
    return zaroruntime::encryptPassword(password, keyPath);
  }
  zaroruntime::createSecretKey(keyPath);
  try {
    std::string stored = zaroruntime::encryptPassword(password, keyPath);
    copyOwner(settingsPath, keyPath);
    return stored;
  } catch (...) {
    std::remove(keyPath.c_str());
    throw;
  }
}

// Replaces the file; owner, group and permissions stay.
void replaceSettings(const IniFile& ini, const std::string& path) {
  struct stat before = {};
  if (::stat(path.c_str(), &before) != 0) {
    throwErrno(path, "cannot look up its permissions");
  }
  const std::string changed = path + ".changed";
  try {
    ini.write(changed, 0600);
    copyOwner(path, changed);
    if (::chmod(changed.c_str(), before.st_mode & 07777) != 0) {
      throwErrno(changed, "cannot set permissions");
    }
    bringToDisk(changed);
    if (std::rename(changed.c_str(), path.c_str()) != 0) {
      throwErrno(path, "cannot be replaced");
    }
    tellCommittedChange();
  } catch (...) {
    std::remove(changed.c_str());
    throw;
  }
  tryToBringToDisk(fs::path(path).parent_path().string());
}

std::string askedPassword(const IniFile& ini, bool clear) {
  if (clear) {
    return "";
  }
  const std::string user = valueOf(ini, "UserId");
  return readNewPassword(user.empty() ? "the database's user" : user, "with --clear the stored one is removed");
}

ExitCode setPassword(Output& out, bool clear) {
  const auto installation = Installation::fromEnvironment();
  const std::string path = settingsFile(installation);
  const std::string password = askedPassword(readSettings(path), clear);

  const DelayedSignals delayed;
  const DirectoryLock lock(fs::path(path).parent_path().string());
  IniFile ini = readSettings(path);  // not as it was before the password was typed
  if (clear) {
    ini.set(kSection, "Password", "");
  } else {
    zaroruntime::requireSettingsFit(
        {valueOf(ini, "DataSourceName"), valueOf(ini, "UserId"), password, valueOf(ini, "Database")});
    ini.set(kSection, "Password", encryptedPassword(password, installation.secretKey(), path));
  }
  replaceSettings(ini, path);
  delayed.forget();  // it is done

  out.record({{"file", path}, {"password", clear ? "removed" : "stored encrypted"}});
  return ExitCode::Found;
}

}  // namespace

void addPassword(CommandTree& tree) {
  const auto clear = std::make_shared<bool>(false);
  CLI::App* command =
      tree.add("password", "Store the password of the database's user",
               {"zaroctl --home /opt/gateway password", "zaroctl password < password-file", "zaroctl password --clear"},
               [clear](Output& out) { return setPassword(out, *clear); });
  command->add_flag("--clear", *clear,
                    "Remove the stored password; without it one is asked for, or read from standard input");
}
