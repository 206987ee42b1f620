// schema status, schema upgrade
#include <memory>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "installation/SchemaUpgrade.h"
#include "installation/Skeleton.h"

using zaroruntime::DataSource;
using zaroruntime::Dialect;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 10;  // seconds

// The installation's database, whatever its version.
struct Database {
  Installation installation = Installation::fromEnvironment();
  zaroruntime::DatabaseSettings settings = zaroruntime::readDatabaseSettings(installation);
  DataSource source = zaroruntime::readDataSource(installation, settings.dataSource);
  SqlSession session{source, settings, installation, kConnectTimeOut};

  std::string scripts(const std::string& skeleton) const {
    return skeletonDirectory(skeleton) + "/sql/" + zaroruntime::dialectName(source.dialect) + "/upgrade";
  }
};

Json namesOf(const SchemaUpgrade::Scripts& scripts) {
  Json names = Json::array();
  for (const UpgradeScript& script : scripts) {
    names.push_back(script.name());
  }
  return names;
}

// What fails says which database it is about.
template <typename Work>
auto onDatabase(Database& database, const std::string& skeleton, Work work) {
  try {
    SchemaUpgrade upgrade(database.session, database.scripts(skeleton), zaroruntime::kSchemaVersion);
    return work(upgrade);
  } catch (const RuntimeError& failure) {
    throw RuntimeError("database " + database.settings.database + ": " + failure.what(), failure.kind());
  }
}

ExitCode printStatus(Output& out, const std::string& skeleton) {
  Database database;
  return onDatabase(database, skeleton, [&](SchemaUpgrade& upgrade) {
    const auto pending = upgrade.pending();
    out.record({{"database", database.settings.database},
                {"version", upgrade.version()},
                {"program", zaroruntime::kSchemaVersion},
                {"pending", namesOf(pending)}});
    return pending.empty() ? ExitCode::Found : ExitCode::NotFound;
  });
}

ExitCode upgradeSchema(Output& out, const std::string& skeleton, bool dryRun) {
  Database database;
  return onDatabase(database, skeleton, [&](SchemaUpgrade& upgrade) {
    const int before = upgrade.version();
    const auto scripts = dryRun ? upgrade.tryOut() : upgrade.run();
    out.record({{"database", database.settings.database},
                {"before", before},
                {"version", dryRun ? before : zaroruntime::kSchemaVersion},
                {dryRun ? "tried" : "run", namesOf(scripts)}});
    return ExitCode::Found;
  });
}

void addSkeletonOption(CLI::App& command, std::string& skeleton) {
  command.add_option("--skeleton", skeleton, "Where the files of an installation, and with them the scripts, are")
      ->type_name("DIR");
}

}  // namespace

void addSchemaStatus(CommandTree& tree) {
  const auto skeleton = std::make_shared<std::string>();
  CLI::App* command =
      tree.add("schema status", "Show the version of the database's schema, and what an upgrade would run",
               {"zaroctl schema status"}, [skeleton](Output& out) { return printStatus(out, *skeleton); });
  addSkeletonOption(*command, *skeleton);
}

void addSchemaUpgrade(CommandTree& tree) {
  const auto skeleton = std::make_shared<std::string>();
  const auto dryRun = std::make_shared<bool>(false);
  CLI::App* command = tree.add("schema upgrade", "Bring the database to the schema of this program",
                               {"zaroctl schema upgrade --dry-run", "zaroctl schema upgrade"},
                               [skeleton, dryRun](Output& out) { return upgradeSchema(out, *skeleton, *dryRun); });
  command->add_flag("--dry-run", *dryRun, "Run the scripts in one transaction, and take it back");
  addSkeletonOption(*command, *skeleton);
}
