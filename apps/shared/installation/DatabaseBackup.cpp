#include "installation/DatabaseBackup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "ZaroRuntime/SqlSession.h"
#include "installation/Files.h"

namespace fs = std::filesystem;
using zaroruntime::Dialect;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 10;  // seconds

// An empty file beside the place where the copy will be, which goes unless the copy got its name.
class UnfinishedCopy {
 public:
  explicit UnfinishedCopy(const fs::path& place)
      : m_place(place.string()),
        m_directory(place.parent_path().string()),
        m_path((place.parent_path() / ".backup-XXXXXX").string()) {
    const int descriptor = mkstemp(m_path.data());
    if (descriptor < 0) {
      throwErrno(m_directory, "cannot make a file there", FailureKind::Creation);
    }
    close(descriptor);
    m_journal = m_path + "-journal";
  }
  ~UnfinishedCopy() {
    if (!m_isNamed) {
      unlink(m_path.c_str());
    }
    unlink(m_journal.c_str());
  }
  UnfinishedCopy(const UnfinishedCopy&) = delete;
  UnfinishedCopy& operator=(const UnfinishedCopy&) = delete;

  const std::string& path() const { return m_path; }
  // Takes no memory once the copy has its name.
  void nameIt() {
    bringToDisk(m_path);
    moveWithoutReplacing(m_path, m_place);
    m_isNamed = true;
    tryToBringToDisk(m_directory);
  }

 private:
  const std::string m_place;
  const std::string m_directory;
  std::string m_path;
  std::string m_journal;
  bool m_isNamed = false;
};

// Opens a copy in the form in which it was written, so that it stays one file. It may be of any version: one is made
// before an upgrade.
void requireSound(const std::string& path, zaroruntime::DataSource source, zaroruntime::DatabaseSettings settings,
                  const zaroruntime::Installation& installation) {
  settings.database = path;
  source.options = {{"JournalMode", "DELETE"}};
  SqlSession copy(source, settings, installation, kConnectTimeOut);
  const std::string found = copy.value("PRAGMA integrity_check").value_or("no answer");
  if (found != "ok") {
    throw RuntimeError("the copy is damaged, and is not kept: " + found, FailureKind::Data);
  }
  if (!copy.rows("PRAGMA foreign_key_check").empty()) {
    throw RuntimeError("the copy holds rows that refer to nothing, and is not kept; see zaroctl check",
                       FailureKind::Data);
  }
  if (!copy.value(zaroruntime::kSchemaVersionQuery)) {
    throw RuntimeError("the copy has no version of the schema, and is not kept; see zaroctl check", FailureKind::Data);
  }
}

}  // namespace

DatabaseBackup backUpDatabase(const std::string& file) {
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto settings = zaroruntime::readDatabaseSettings(installation);
  const auto source = zaroruntime::readDataSource(installation, settings.dataSource);
  if (source.dialect != Dialect::SQLite) {
    throw RuntimeError(
        "the database is on a server, whose own programs back it up, such as pg_dump; zaroctl export takes "
        "the policy out of it",
        FailureKind::Refused);
  }
  const fs::path place = fs::absolute(file);
  if (fs::exists(fs::symlink_status(place))) {
    throw RuntimeError(place.string() + ": exists; a backup replaces nothing", FailureKind::Creation);
  }
  UnfinishedCopy copy(place);
  SqlSession(source, settings, installation, kConnectTimeOut).run("VACUUM INTO " + zaroruntime::sqlLiteral(copy.path()));
  requireSound(copy.path(), source, settings, installation);
  DatabaseBackup backup{place.string(), fs::file_size(copy.path())};
  copy.nameIt();
  return backup;
}
