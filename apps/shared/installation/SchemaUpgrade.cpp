#include "installation/SchemaUpgrade.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"

namespace fs = std::filesystem;
using zaroruntime::Dialect;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

// PostgreSQL: how long a lock is waited for. Later transactions wait behind it.
constexpr const char* kLockTimeOut = "SET LOCAL lock_timeout = '15s'";

struct TakenBack {};

// The version that a script leads to, by its file's name: NNNN-WHAT.sql. Nothing for other files.
std::optional<int> versionOf(const fs::path& file) {
  constexpr std::size_t kDigits = 4;
  const std::string name = file.stem().string();
  const bool isScript = file.extension() == ".sql" && name.size() > kDigits + 1 && name[kDigits] == '-' &&
                        name.find_first_not_of("0123456789") == kDigits;
  return isScript ? std::make_optional(std::stoi(name.substr(0, kDigits))) : std::nullopt;
}

std::vector<UpgradeScript> scriptsIn(const std::string& directory) {
  std::vector<UpgradeScript> scripts;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure); !failure && entry != fs::directory_iterator();
       entry.increment(failure)) {
    if (const auto version = versionOf(entry->path())) {
      scripts.push_back({*version, entry->path().string()});
    }
  }
  if (failure) {
    throw RuntimeError(directory + ": cannot list the upgrade scripts: " + failure.message(), FailureKind::Configuration);
  }
  std::sort(scripts.begin(), scripts.end(), [](const UpgradeScript& one, const UpgradeScript& other) {
    return one.version != other.version ? one.version < other.version : one.path < other.path;
  });
  return scripts;
}

}  // namespace

std::string UpgradeScript::name() const {
  return fs::path(path).filename().string();
}

SchemaUpgrade::SchemaUpgrade(zaroruntime::SqlSession& session, const std::string& directory, int target)
    : m_session(session), m_directory(directory), m_target(target) {
  if (session.dialect() == Dialect::Other) {
    throw RuntimeError("the upgrade scripts are for SQLite and PostgreSQL; a database of your own has its own",
                       FailureKind::Configuration);
  }
}

int SchemaUpgrade::version() {
  const auto version = zaroruntime::installedSchemaVersion(m_session);
  if (!version) {
    throw RuntimeError("there is no table schema_version: zaroctl init makes the schema", FailureKind::Configuration);
  }
  return *version;
}

SchemaUpgrade::Scripts SchemaUpgrade::pending() {
  const int from = version();
  if (from > m_target) {
    throw RuntimeError(
        "schema version " + std::to_string(from) + ", but this program works on version " + std::to_string(m_target),
        FailureKind::Configuration);
  }
  if (from == m_target) {
    return {};
  }
  const Scripts all = scriptsIn(m_directory);
  Scripts wanted;
  for (int next = from + 1; next <= m_target; ++next) {
    const auto isNext = [next](const UpgradeScript& script) { return script.version == next; };
    if (std::count_if(all.begin(), all.end(), isNext) != 1) {
      throw RuntimeError(m_directory + ": there is not exactly one script for version " + std::to_string(next),
                         FailureKind::Configuration);
    }
    wanted.push_back(*std::find_if(all.begin(), all.end(), isNext));
  }
  return wanted;
}

SchemaUpgrade::Scripts SchemaUpgrade::run() {
  Scripts done;
  for (const UpgradeScript& script : pending()) {
    bool isOurs = false;
    _transaction([&] {
      isOurs = version() < script.version;
      if (isOurs) {
        _runScript(script);
      }
    });
    if (isOurs) {
      done.push_back(script);
    }
  }
  return done;
}

SchemaUpgrade::Scripts SchemaUpgrade::tryOut() {
  Scripts scripts;
  try {
    _transaction([&] {
      scripts = pending();
      for (const UpgradeScript& script : scripts) {
        _runScript(script);
      }
      throw TakenBack();
    });
  } catch (const TakenBack&) {
  }
  return scripts;
}

void SchemaUpgrade::_transaction(const std::function<void()>& work) {
  const bool isSqlite = m_session.dialect() == Dialect::SQLite;
  if (isSqlite) {
    m_session.run("PRAGMA foreign_keys = OFF");  // within a transaction it has no effect
  }
  try {
    m_session.runAsTransaction([&] {
      if (!isSqlite) {
        m_session.run(kLockTimeOut);
        m_session.run("LOCK TABLE schema_version IN ACCESS EXCLUSIVE MODE");
      }
      work();
    });
  } catch (const RuntimeError& failure) {
    if (failure.kind() != FailureKind::Contention) {
      throw;
    }
    throw RuntimeError(std::string("other programs kept the database busy; try again: ") + failure.what(),
                       failure.kind());
  }
  if (isSqlite) {
    m_session.run("PRAGMA foreign_keys = ON");
  }
}

void SchemaUpgrade::_runScript(const UpgradeScript& script) {
  const std::size_t before = _danglingReferences();
  m_session.runStatementsOf(script.path);
  if (version() != script.version) {
    throw RuntimeError(script.path + ": does not make version " + std::to_string(script.version),
                       FailureKind::Configuration);
  }
  if (_danglingReferences() > before) {
    throw RuntimeError(script.path + ": leaves rows that refer to nothing", FailureKind::Data);
  }
}

// PostgreSQL never has any.
std::size_t SchemaUpgrade::_danglingReferences() {
  return m_session.dialect() == Dialect::SQLite ? m_session.rows("PRAGMA foreign_key_check").size() : 0;
}
