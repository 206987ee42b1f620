// init [DIR]
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "ZaroRuntime/SettingsStore.h"
#include "ZaroRuntime/StoredPassword.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/DelayedSignals.h"
#include "console/PasswordInput.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "installation/NewInstallation.h"
#include "installation/Skeleton.h"
#include "store/ClientSettings.h"
#include "store/Database.h"
#include "store/PolicySettings.h"
#include "store/SettingTable.h"
#include "store/Transaction.h"

namespace fs = std::filesystem;
using zaroruntime::FailureKind;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 10;  // seconds
constexpr const char* kDataSource = "zaro";
constexpr const char* kSqlite = "sqlite";
constexpr const char* kPostgresql = "postgresql";
constexpr const char* kServerGroup = "PostgreSQL";

struct Arguments {
  std::string directory;
  std::string dialect = kSqlite;
  std::string host = "localhost";
  unsigned short port = 5432;
  std::string database = "zaro";
  std::string user = "zaro";
  std::string sslMode = "prefer";
  bool noPassword = false;
  bool sample = false;
  bool filterOnly = false;
  std::string policyServer;
  std::string skeleton;
  std::vector<const CLI::Option*> serverOptions;  // only --db postgresql takes them
};

std::string targetDirectory(const Arguments& arguments) {
  if (!arguments.directory.empty()) {
    return arguments.directory;
  }
  const char* home = std::getenv("ZARO_HOME");
  if (home == nullptr || *home == '\0') {
    throw UsageError("name the directory to make: zaroctl init DIR");
  }
  return home;
}

void refuseServerOptions(const Arguments& arguments) {
  for (const CLI::Option* option : arguments.serverOptions) {
    if (option->count() != 0) {
      throw UsageError(option->get_name() + " is for --db postgresql");
    }
  }
}

void copySkeleton(NewInstallation& installation, const std::string& skeleton, const std::string& dialect) {
  installation.copy(skeleton + "/config", "config");
  installation.copy(skeleton + "/sql/" + dialect, "sql");
  if (fs::exists(skeleton + "/resources")) {
    installation.copy(skeleton + "/resources", "resources");
  }
  fs::create_directory(installation.workDirectory() + "/data");
}

using Values = std::vector<std::pair<const char*, std::string>>;

void setValues(const std::string& path, const char* section, const Values& values) {
  IniFile ini(path);
  for (const auto& value : values) {
    ini.set(section, value.first, value.second);
  }
  ini.write(path, 0600);  // publishing gives it its own permissions
}

void configure(const Installation& installation, const Arguments& arguments, const std::string& password) {
  zaroruntime::createSecretKey(installation.secretKey());
  if (arguments.dialect != kPostgresql) {
    // The skeleton's settings are those of the embedded database; its file must be there before it is opened.
    std::ofstream database(installation.path("data/zaro.db"));
    if (!database) {
      throw RuntimeError(installation.path("data/zaro.db") + ": cannot be made", FailureKind::Creation);
    }
    return;
  }
  zaroruntime::requireSettingsFit({kDataSource, arguments.user, password, arguments.database});
  setValues(installation.odbcIni(), kDataSource,
            {{"Driver", "psqlodbcw.so"},
             {"Servername", arguments.host},
             {"Port", std::to_string(arguments.port)},
             {"SSLmode", arguments.sslMode}});
  setValues(installation.databaseIni(), "Database_Settings",
            {{"UserId", arguments.user},
             {"Password", arguments.noPassword ? "" : zaroruntime::encryptPassword(password, installation.secretKey())},
             {"Database", arguments.database}});
}

struct DatabaseResult {
  const char* schema;
  bool sample;
  bool changed;
};

bool hasRows(SqlSession& session) {
  for (const char* table : {"administrator", "entity", "named_object", "policy_rule", "component", "manual_rule_order"}) {
    if (session.value(std::string("SELECT 1 FROM ") + table + " LIMIT 1")) {
      return true;
    }
  }
  return false;
}

DatabaseResult prepareDatabase(const Installation& installation, const std::string& skeleton, bool sample,
                               const std::function<void()>& beforeCommit) {
  const auto settings = zaroruntime::readDatabaseSettings(installation);
  const auto source = zaroruntime::readDataSource(installation, settings.dataSource);
  SqlSession session(source, settings, installation, kConnectTimeOut);
  const auto version = zaroruntime::installedSchemaVersion(session);
  if (version) {
    requireOwnSchema(session, settings.database);
  }
  if (version && sample && hasRows(session)) {
    throw RuntimeError("database " + settings.database + " holds data already; the sample is for an empty one",
                       FailureKind::Refused);
  }
  std::vector<std::string> scripts;
  if (!version) {
    scripts.push_back(installation.sqlDirectory() + "/schema.sql");
  }
  if (sample) {
    scripts.push_back(skeleton + "/sample/sample.sql");
  }
  bool added = false;
  try {
    session.runScripts(scripts, [&] {
      added = addMissingSettings(session);
      beforeCommit();
    });
  } catch (const RuntimeError& failure) {
    // A COMMIT in doubt is none where the file goes with the unfinished installation: what it failed of is all there is to tell.
    if (session.dialect() == zaroruntime::Dialect::SQLite) {
      std::rethrow_if_nested(failure);
    }
    throw;
  }
  return {version ? "kept" : "created", sample, added || !scripts.empty()};
}

// The driver closes a database without a word also when SQLite could not bring its log into the file.
void requireWholeDatabase(const Installation& installation) {
  const std::string log = installation.path("data/zaro.db-wal");
  std::error_code absent;
  const auto size = fs::file_size(log, absent);
  if (!absent && size != 0) {
    throw RuntimeError(installation.path("data/zaro.db") +
                           ": what was stored stands in its log only, and could not be brought into the file (is there "
                           "room for it?)",
                       FailureKind::File);
  }
}

// The result of either kind of installation has the keys of both; what is printed line by line, only what it has.
ExitCode tellOf(Output& out, const Json& made) {
  Json document = {{"home", nullptr},           {"database", nullptr}, {"schema", nullptr},
                   {"schema_version", nullptr}, {"sample", nullptr},   {"policy_server", nullptr}};
  document.update(made);
  out.record(made, document);
  return ExitCode::Found;
}

// On a server the work of the scripts stays, whatever becomes of the directory.
void publish(NewInstallation& made, const Arguments& arguments, const DatabaseResult& database) {
  try {
    made.publish();
  } catch (const RuntimeError& failure) {
    if (arguments.dialect != kPostgresql || !database.changed) {
      throw;
    }
    throw RuntimeError(failure.what() + ("; database " + arguments.database) +
                           " has been filled already: init without --sample keeps what it holds",
                       failure.kind());
  }
}

ExitCode makeInstallation(Output& out, const Arguments& arguments) {
  const bool server = arguments.dialect == kPostgresql;
  if (!server) {
    refuseServerOptions(arguments);
  }
  const std::string target = targetDirectory(arguments);
  const std::string skeleton = skeletonDirectory(arguments.skeleton);
  const bool withPassword = server && !arguments.noPassword;
  const std::string password =
      withPassword ? readNewPassword(arguments.user + " at " + arguments.host, "with --no-password none is stored") : "";
  // They name files of the installation in use; a new one has the usual names.
  unsetenv("ZARO_DB_INI");
  unsetenv("ZARO_DB_DIR");

  const DelayedSignals delayed;
  NewInstallation made(target);
  const Installation installation(made.workDirectory());
  copySkeleton(made, skeleton, arguments.dialect);
  configure(installation, arguments, password);
  const DatabaseResult database =
      prepareDatabase(installation, skeleton, arguments.sample, [&delayed] { delayed.throwIfInterrupted(); });
  if (!server) {
    requireWholeDatabase(installation);
  }
  // From here on a signal comes too late.
  publish(made, arguments, database);
  tellCommittedChange();
  delayed.forget();
  return tellOf(out, {{"home", made.target()},
                      {"database", arguments.dialect},
                      {"schema", database.schema},
                      {"schema_version", zaroruntime::kSchemaVersion},
                      {"sample", database.sample}});
}

// --- A host that has a mail filter and no database ---

// What its filter and a client of policy servers read; the filter's own settings have defaults.
std::vector<zaroruntime::SettingText> settingsOfFilterHost(const std::string& policyServer) {
  std::vector<zaroruntime::SettingText> texts;
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, SettingReader::Client)) {
      const bool isHost = setting.kind == SettingKind::Hosts;
      texts.push_back({nameOf(setting.section), setting.key, isHost ? policyServer : setting.initial});
    }
  }
  texts.push_back({kFilterSection, "source", "policy_server"});
  return texts;
}

ExitCode makeFilterHost(Output& out, const Arguments& arguments) {
  const std::string wrong = whyNoHosts(arguments.policyServer);
  if (!wrong.empty() || arguments.policyServer.empty()) {
    throw UsageError("--policy-server: " + quoted(arguments.policyServer) + " is not the name or address of a host");
  }
  const std::string target = targetDirectory(arguments);
  const std::string skeleton = skeletonDirectory(arguments.skeleton);
  const DelayedSignals delayed;
  NewInstallation made(target);
  const Installation installation(made.workDirectory());
  fs::create_directory(installation.path("config"));
  made.copy(skeleton + "/config/zaro.ini", "config/zaro.ini");
  zaroruntime::writeHostSettings(installation, settingsOfFilterHost(arguments.policyServer));
  delayed.throwIfInterrupted();
  made.publish();
  tellCommittedChange();
  delayed.forget();
  return tellOf(out, {{"home", made.target()}, {"database", "none"}, {"policy_server", arguments.policyServer}});
}

}  // namespace

void addInit(CommandTree& tree) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      tree.add("init", "Make an installation directory and its database",
               {"zaroctl init --sample /opt/gateway",
                "zaroctl init --db postgresql --host db.example.test --user gateway /opt/gateway < password-file",
                "zaroctl init --filter-only --policy-server policy.example.test /opt/gateway"},
               [arguments](Output& out) {
                 return arguments->filterOnly ? makeFilterHost(out, *arguments) : makeInstallation(out, *arguments);
               });
  CLI::Option* filterOnly = command->add_flag("--filter-only", arguments->filterOnly,
                                              "Make one without a database, for a mail filter that asks policy servers");
  CLI::Option* policyServer = command
                                  ->add_option("--policy-server", arguments->policyServer,
                                               "Name or address of the policy server; of several with commas")
                                  ->type_name("HOST");
  policyServer->needs(filterOnly);
  filterOnly->needs(policyServer);
  command->add_option("DIR", arguments->directory, "The directory to make; else the one that --home or ZARO_HOME names")
      ->type_name("");
  command->add_option("--db", arguments->dialect, "The database: sqlite is embedded, postgresql a server")
      ->check(CLI::IsMember({kSqlite, kPostgresql}))
      ->type_name("DATABASE")
      ->capture_default_str();
  command->add_flag("--sample", arguments->sample, "Fill the database with a made-up company");
  command->add_option("--skeleton", arguments->skeleton, "Where the files of an installation are copied from")
      ->type_name("DIR");

  for (const char* name : {"--db", "--sample"}) {
    filterOnly->excludes(command->get_option(name));
  }

  command
      ->add_option("--host", arguments->host,
                   "Host name, address, or directory of the socket; a primary and its replicas with commas")
      ->type_name("HOST")
      ->capture_default_str()
      ->group(kServerGroup);
  command->add_option("--port", arguments->port, "Port")
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("PORT")
      ->capture_default_str()
      ->group(kServerGroup);
  command->add_option("--database", arguments->database, "Name of the database, which must exist")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(kServerGroup);
  command->add_option("--user", arguments->user, "User to connect as")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(kServerGroup);
  command->add_option("--sslmode", arguments->sslMode, "Encryption of the connection")
      ->check(CLI::IsMember({"disable", "allow", "prefer", "require", "verify-ca", "verify-full"}))
      ->type_name("MODE")
      ->capture_default_str()
      ->group(kServerGroup);
  command
      ->add_flag("--no-password", arguments->noPassword,
                 "Store no password; without it one is asked for, or read from standard input")
      ->group(kServerGroup);
  arguments->serverOptions =
      std::as_const(*command).get_options([](const CLI::Option* option) { return option->get_group() == kServerGroup; });
  for (CLI::Option* option :
       command->get_options([](const CLI::Option* option) { return option->get_group() == kServerGroup; })) {
    filterOnly->excludes(option);
  }
}
