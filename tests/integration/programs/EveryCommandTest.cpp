// What every command does on an installation that lacks something: what it does on a whole one, or a failure that says
// what is wrong. No command takes a failed look-up for a "no" or for nothing.
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ZaroRuntime/SchemaVersion.h"
#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::zaroctl;

struct CommandRow {
  // In arguments, "{Board}" is the identifier of the object of that name, and "{home}" the installation.
  std::vector<std::string> words;
  std::vector<std::string> arguments;
  std::string input;
};

// Every command, so that each reaches all it asks the library for; scripts/faults goes by the same file.
const std::vector<CommandRow>& commandTable() {
  static const std::vector<CommandRow> all = [] {
    std::vector<CommandRow> rows;
    for (const nlohmann::json& row : nlohmann::json::parse(zarotest::readFile(ZARO_COMMAND_TABLE))) {
      rows.push_back({row.at("words").get<std::vector<std::string>>(),
                      row.at("arguments").get<std::vector<std::string>>(), row.value("input", "")});
    }
    return rows;
  }();
  return all;
}

// The commands that help tells of, down to the last word.
void addCommands(std::vector<std::string> words, std::set<std::vector<std::string>>& commands) {
  std::vector<std::string> arguments = words;
  arguments.emplace_back("--help");
  bool listed = false;
  bool isGroup = false;
  for (const std::string& line : linesOf(zaroctl(arguments).out)) {
    listed = listed ? !line.empty() : line == "Subcommands:";
    std::istringstream text(line);
    std::string word;
    if (listed && line != "Subcommands:" && text >> word) {
      isGroup = true;
      words.push_back(word);
      addCommands(words, commands);
      words.pop_back();
    }
  }
  if (!isGroup) {
    commands.insert(words);
  }
}

TEST(EveryCommandTable, hasEveryCommandThatHelpTellsOf) {
  std::set<std::vector<std::string>> commands;
  addCommands({}, commands);
  std::set<std::vector<std::string>> tried;
  for (const CommandRow& row : commandTable()) {
    tried.insert(row.words);
  }
  EXPECT_EQ(tried, commands);
}

// Which files of a directory are opened from now on, by any program.
class OpenedFiles {
 public:
  explicit OpenedFiles(const std::string& directory) : m_events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    EXPECT_GE(inotify_add_watch(m_events, directory.c_str(), IN_OPEN), 0);
  }
  ~OpenedFiles() { close(m_events); }
  OpenedFiles(const OpenedFiles&) = delete;
  OpenedFiles& operator=(const OpenedFiles&) = delete;

  std::set<std::string> names() const {
    std::set<std::string> found;
    alignas(inotify_event) char events[8192];
    for (ssize_t size = 0; (size = read(m_events, events, sizeof events)) > 0;) {
      for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        EXPECT_EQ(event->mask & IN_Q_OVERFLOW, 0U);
        if (event->len > 0) {
          found.insert(event->name);
        }
        at += static_cast<ssize_t>(sizeof *event + event->len);
      }
    }
    return found;
  }

 private:
  int m_events;
};

class EveryCommand : public zarotest::SampleInstallation {
 protected:
  struct Outcome {
    ProgramResult result;
    std::string stored;

    bool operator==(const Outcome& other) const {
      return result.status == other.result.status && result.out == other.result.out && result.err == other.result.err &&
             stored == other.stored;
    }
  };

  void SetUp() override {
    SampleInstallation::SetUp();
    if (IsSkipped()) {
      return;
    }
    saveDatabase();
    for (const auto& entry : fs::directory_iterator(homeFile("sql"))) {
      const std::string name = entry.path().filename().string();
      if (name.compare(0, 3, "ui_") == 0) {
        m_files.push_back(name);
      }
    }
    std::sort(m_files.begin(), m_files.end());
    m_settings = zarotest::readFile(homeFile(kSettings));
    m_databaseIni = zarotest::readFile(homeFile(kDatabaseIni));
    for (const auto& [table, count] : rowCounts()) {
      if (table != "audit") {  // it tells when
        m_tables.push_back(table);
      }
    }
    m_before = _stored();
    if (GetParam() == zarotest::Dialect::PostgreSQL) {
      m_sequences = session()
                        ->value(
                            "SELECT 'SELECT ' || string_agg(format('setval(%L, %s, %L)', sequencename, "
                            "coalesce(last_value, 1), last_value IS NOT NULL), ', ') FROM pg_sequences")
                        .value();
    }
  }

  // A database on a server takes its time to be made anew: there the commands with most steps stand for the others,
  // unless ZARO_EVERY_COMMAND asks for all.
  static bool isTried(const CommandRow& row) {
    static const std::set<std::string> kOnServers = {"object list", "object remove", "quarantine list",
                                                     "rules set-order"};
    return GetParam() == zarotest::Dialect::SQLite || std::getenv("ZARO_EVERY_COMMAND") != nullptr ||
           (row.words.size() > 1 && kOnServers.count(row.words[0] + " " + row.words[1]) != 0);
  }

  // As with no database at all, or not.
  void tryOnAnotherSchema(const CommandRow& row) {
    const std::vector<std::string> arguments = _arguments(row);
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Outcome intact = _run(arguments, row.input);
    constexpr int kNewer = zaroruntime::kSchemaVersion + 1;
    session()->run("INSERT INTO schema_version (version) VALUES (" + std::to_string(kNewer) + ")");
    const std::string before = _stored();
    const ProgramResult result = run(arguments, row.input);
    const std::string after = _stored();
    session()->run("DELETE FROM schema_version WHERE version = " + std::to_string(kNewer));
    restore(after != before);
    EXPECT_EQ(after, before);
    if (result.status == intact.result.status) {
      EXPECT_EQ(result.out, intact.result.out);
      EXPECT_EQ(intact.stored, m_before);
      return;
    }
    EXPECT_EQ(result.status, 78) << result.err;
    EXPECT_THAT(result.out + result.err, HasSubstr(": schema version " + std::to_string(kNewer) +
                                                   ", but this program works on version " + std::to_string(kNewer - 1)));
  }

  void tryWithoutStatements(const CommandRow& row) {
    const std::vector<std::string> arguments = _arguments(row);
    SCOPED_TRACE(testing::PrintToString(arguments));
    OpenedFiles opened(homeFile("sql"));
    const Outcome intact = _run(arguments, row.input);
    const std::set<std::string> used = opened.names();
    std::vector<std::string> unused;
    for (const std::string& file : m_files) {
      if (used.count(file) == 0) {
        unused.push_back(file);
      } else {
        _judge(_runWithout({file}, arguments, row.input), intact, file);
      }
    }
    EXPECT_TRUE(_runWithout(unused, arguments, row.input) == intact) << "without files that it does not read";
  }

 private:
  static constexpr const char* kSettings = "config/zaro.ini";
  static constexpr const char* kDatabaseIni = "config/database.ini";

  std::vector<std::string> _arguments(const CommandRow& row) const {
    std::vector<std::string> arguments = row.words;
    for (std::string argument : row.arguments) {
      const std::size_t end = argument.find('}');
      if (argument.front() == '{' && end != std::string::npos) {
        const std::string name = argument.substr(1, end - 1);
        const std::string text =
            name == "home" ? home() : value("SELECT id FROM named_object WHERE name = " + zaroruntime::sqlLiteral(name));
        argument.replace(0, end + 1, text);
      }
      arguments.push_back(argument);
    }
    return arguments;
  }

  // Runs a command on the sample as it was made.
  Outcome _run(const std::vector<std::string>& arguments, const std::string& input) {
    Outcome outcome = {run(arguments, input), _stored()};
    restore(outcome.stored != m_before);
    return outcome;
  }

  // The installation as it was made.
  void restore(bool databaseToo) {
    if (databaseToo) {
      restoreDatabase();
    }
    if (!m_sequences.empty()) {
      session()->run(m_sequences);
    }
    writeFile(kSettings, m_settings);
    writeFile(kDatabaseIni, m_databaseIni);
    fs::remove_all(home() + ".second");
    fs::remove(home() + ".backup");
  }

  Outcome _runWithout(const std::vector<std::string>& files, const std::vector<std::string>& arguments,
                      const std::string& input) {
    for (const std::string& file : files) {
      fs::rename(homeFile("sql/" + file), homeFile(file));
    }
    Outcome outcome = _run(arguments, input);
    for (const std::string& file : files) {
      fs::rename(homeFile(file), homeFile("sql/" + file));
    }
    return outcome;
  }

  void _judge(const Outcome& outcome, const Outcome& intact, const std::string& file) const {
    if (outcome == intact) {
      return;
    }
    SCOPED_TRACE("without " + file + ": status " + std::to_string(outcome.result.status) + "\n" + outcome.result.out +
                 outcome.result.err);
    EXPECT_EQ(outcome.result.status, 78);
    EXPECT_THAT(outcome.result.out + outcome.result.err, HasSubstr(file));
    if (outcome.stored != m_before) {
      EXPECT_EQ(outcome.stored, intact.stored) << "the change was made by half";
      EXPECT_THAT(outcome.result.err, ContainsRegex(" was [a-z ]+, but ")) << "the change was made";
    }
  }

  // Settings and every row of the database, as text.
  std::string _stored() const {
    const auto database = session();
    std::string text = zarotest::readFile(homeFile(kSettings));
    for (const std::string& table : m_tables) {
      std::vector<std::string> rows;
      for (const auto& row : database->rows("SELECT * FROM " + table)) {
        std::string line = table;
        for (const auto& field : row) {
          line += '\t' + field.value_or("NULL");
        }
        rows.push_back(line + '\n');
      }
      std::sort(rows.begin(), rows.end());
      for (const std::string& row : rows) {
        text += row;
      }
    }
    return text;
  }

  std::vector<std::string> m_files;
  std::vector<std::string> m_tables;
  std::string m_settings;
  std::string m_databaseIni;
  std::string m_before;
  // PostgreSQL takes back no number that a change drew before it was rolled back: sets the sequences; empty on SQLite.
  std::string m_sequences;
};

TEST_P(EveryCommand, failsWithTheTruthWithoutAStatementFile) {
  for (const CommandRow& row : commandTable()) {
    if (isTried(row)) {
      tryWithoutStatements(row);
    }
  }
}

TEST_P(EveryCommand, leavesASchemaOfAnotherVersionAsItIs) {
  for (const CommandRow& row : commandTable()) {
    if (isTried(row)) {
      tryOnAnotherSchema(row);
    }
  }
}

TEST_P(EveryCommand, failsWithTheTruthWhereAStatementFileMayNotBeRead) {
  zarotest::ProgramRun run;
  run.environment["ZARO_HOME"] = home();
  run.obeysPermissions = true;
  fs::permissions(homeFile("sql/ui_IsAdminRoot_Id.sql"), fs::perms::none);
  const ProgramResult result = zaroctl({"object", "list", "--as", "admin"}, run);
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("ui_IsAdminRoot_Id.sql: cannot open: Permission denied"));
}

TEST_P(EveryCommand, failsWithTheTruthWhereAResultLacksItsColumns) {
  const struct {
    const char* file;
    const char* column;
    std::vector<std::string> arguments;
  } kRows[] = {
      {"ui_GetAdminId.sql", "AdminID", {"admin", "id", "postmaster"}},
      {"ui_GetAdminId.sql", "AdminID", {"object", "list", "--as", "postmaster"}},
      {"ui_IsAdminRoot_Id.sql", "IsAdminRoot", {"object", "list", "--as", "admin"}},
      {"ui_GetAdminEntityById.sql", "EntityName", {"object", "list", "--as", "postmaster"}},
      {"ui_GetEntitiesByType.sql", "EntityID", {"entity", "list"}},
      {"ui_GetNamedObjByType.sql", "Name", {"quarantine", "list", "--as", "admin"}},
      {"ui_GetComponentInfo.sql", "ip_addr", {"servers", "list"}},
      {"ui_GetManualOrderSetting.sql", "FilterType", {"rules", "order", "--verify"}},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.file);
    const std::string name = std::string("sql/") + row.file;
    const std::string text = zarotest::readFile(homeFile(name));
    // The statement with the column under another name.
    const std::string quoted = "\"" + std::string(row.column) + "\"";
    const std::size_t place = text.find(quoted);
    ASSERT_NE(place, std::string::npos);
    writeFile(name, std::string(text).replace(place, quoted.size(), "\"other\""));
    const ProgramResult result = run(row.arguments);
    writeFile(name, text);
    EXPECT_EQ(result.status, 78);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(std::string("the result has no column ") + row.column));
  }
}

ZARO_ON_EVERY_DATABASE(EveryCommand);

}  // namespace
