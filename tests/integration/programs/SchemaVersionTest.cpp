// A database that version 1 made, with data in it, is upgraded: nothing is lost, and its schema is that of a new one.
#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "ZaroRuntime/SchemaVersion.h"
#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;
using zaroruntime::SqlSession;
using zarotest::Dialect;
using zarotest::ProgramResult;
using Lines = std::vector<std::string>;

const std::string kVersion = std::to_string(zaroruntime::kSchemaVersion);

std::string textOf(const SqlSession::Row& row) {
  std::string text;
  for (const auto& field : row) {
    text += (text.empty() ? "" : "\t") + field.value_or("NULL");
  }
  return text;
}

// Without comments, with one blank where there are any, and without the quotes that a table gets when it is renamed.
std::string plainSql(const std::string& sql) {
  static const std::regex kComment("--[^\n]*");
  static const std::regex kSpace("\\s+");
  static const std::regex kRenamed("^CREATE TABLE \"(\\w+)\"");
  const std::string text = std::regex_replace(std::regex_replace(sql, kComment, ""), kSpace, " ");
  return std::regex_replace(text, kRenamed, "CREATE TABLE $1");
}

// The columns and constraints of a table as SQLite keeps them, and what stands behind them. ADD COLUMN puts a column
// behind the constraints, so that their order tells nothing; that of the columns is looked at apart.
Lines definitionsOf(const std::string& table, const std::string& sql) {
  const std::string text = plainSql(sql);
  Lines definitions;
  std::string definition;
  int depth = 0;
  for (const char sign : text) {
    depth += sign == '(' ? 1 : 0;
    depth -= sign == ')' ? 1 : 0;
    const bool ends = (sign == ',' && depth == 1) || (sign == '(' && depth == 1) || (sign == ')' && depth == 0);
    if (!ends) {
      definition += sign;
      continue;
    }
    definitions.push_back(table + ": " + std::regex_replace(definition, std::regex("^ +| +$"), ""));
    definition.clear();
  }
  definitions.push_back(table + ": " + definition);
  return definitions;
}

Lines sqliteSchema(SqlSession& session) {
  Lines lines;
  for (const auto& row : session.rows("SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL")) {
    const std::string type = row[0].value_or("");
    const std::string name = row[1].value_or("");
    if (type != "table") {
      lines.push_back(type + " " + plainSql(row[2].value_or("")));
      continue;
    }
    const Lines definitions = definitionsOf(name, row[2].value_or(""));
    lines.insert(lines.end(), definitions.begin(), definitions.end());
    for (const auto& column :
         session.rows("SELECT cid, name, type, \"notnull\", dflt_value, pk FROM pragma_table_xinfo('" + name + "')")) {
      lines.push_back(name + " column " + textOf(column));
    }
  }
  return lines;
}

const char* const kPostgresqlParts[] = {
    "SELECT 'column', c.relname, row_number() OVER (PARTITION BY c.oid ORDER BY a.attnum), a.attname, "
    "format_type(a.atttypid, a.atttypmod), a.attcollation, a.attnotnull, a.attidentity, pg_get_expr(d.adbin, d.adrelid) "
    "FROM pg_class c JOIN pg_attribute a ON a.attrelid = c.oid LEFT JOIN pg_attrdef d ON d.adrelid = c.oid AND "
    "d.adnum = a.attnum WHERE c.relnamespace = current_schema()::regnamespace AND c.relkind IN ('r', 'v') AND a.attnum > 0 "
    "AND NOT a.attisdropped",
    "SELECT 'constraint', conrelid::regclass, pg_get_constraintdef(oid) FROM pg_constraint "
    "WHERE connamespace = current_schema()::regnamespace",
    "SELECT 'index', indexname, indexdef FROM pg_indexes WHERE schemaname = current_schema()",
    "SELECT 'trigger', pg_get_triggerdef(oid) FROM pg_trigger WHERE NOT tgisinternal",
    "SELECT 'function', pg_get_functiondef(oid), proacl FROM pg_proc WHERE pronamespace = current_schema()::regnamespace",
    "SELECT 'view', viewname, definition FROM pg_views WHERE schemaname = current_schema()",
    "SELECT 'sequence', sequencename, data_type, min_value, max_value, increment_by, cycle FROM pg_sequences",
};

Lines schemaOf(SqlSession& session) {
  Lines lines;
  if (session.dialect() == Dialect::SQLite) {
    lines = sqliteSchema(session);
  } else {
    for (const char* query : kPostgresqlParts) {
      for (const auto& row : session.rows(query)) {
        lines.push_back(textOf(row));
      }
    }
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

class SchemaVersion : public zarotest::ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    const std::string skeleton = directory().path("version-1");
    zarotest::copySkeleton(skeleton);
    const std::string dialect = zaroruntime::dialectName(GetParam());
    const std::string sources = ZARO_VERSION_1_DIR;
    directory().write("version-1/sql/" + dialect + "/schema.sql",
                      zarotest::readFile(sources + "/schema." + dialect + ".sql"));
    directory().write("version-1/sample/sample.sql", zarotest::readFile(sources + "/data.sql"));
    mustInit({"--sample", "--skeleton", skeleton});
  }

  // Every row of the tables that version 1 has.
  Lines storedRows() const {
    Lines lines;
    const auto database = session();
    for (const char* query :
         {"SELECT id, name, is_root FROM administrator", "SELECT id, name, type FROM entity",
          "SELECT administrator_id, entity_id FROM administrator_entity",
          "SELECT id, type, name, content FROM named_object",
          "SELECT entity_id, object_id, object_type FROM named_object_owner",
          "SELECT id, name, quarantine_id FROM policy_rule", "SELECT rule_id, object_id FROM policy_rule_object",
          "SELECT group_id, group_type, position, address FROM address_group_member",
          "SELECT section, name, value FROM global_setting", "SELECT scanner_id, type, ip_addr, agent_port FROM component",
          "SELECT rule_order, filter_id, filter_type FROM manual_rule_order"}) {
      for (const auto& row : database->rows(query)) {
        lines.push_back(std::string(query) + ": " + textOf(row));
      }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  void upgrade() const {
    const ProgramResult result = run({"schema", "upgrade"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("before\t1\nversion\t" + kVersion + "\n"));
  }
};

TEST_P(SchemaVersion, upgradeKeepsEveryRow) {
  const Lines before = storedRows();
  EXPECT_GT(before.size(), 80u);
  upgrade();
  EXPECT_EQ(storedRows(), before);
  EXPECT_EQ(run({"group", "show", "Board"}).out, "chair@example.test\ntreasurer@example.test\nsecretary@example.test\n");
  EXPECT_EQ(run({"schema", "status"}).status, 0);
}

TEST_P(SchemaVersion, upgradedSchemaIsThatOfANewInstallation) {
  upgrade();
  const Lines upgraded = schemaOf(*session());
  EXPECT_GT(upgraded.size(), 80u);
  const std::string second = directory().path("second");
  if (GetParam() == Dialect::SQLite) {
    ASSERT_EQ(init(second).status, 0);
    SqlSession fresh({"test", "libsqlite3odbc.so", Dialect::SQLite, {}}, {"test", "", "", "data/zaro.db"},
                     zaroruntime::Installation(second), 10);
    EXPECT_THAT(upgraded, ElementsAreArray(schemaOf(fresh)));
  } else {
    const zarotest::ServerDatabase database;
    ASSERT_EQ(init(second, {"--database", database.name()}).status, 0);
    EXPECT_THAT(upgraded, ElementsAreArray(schemaOf(*database.session())));
  }
}

TEST_P(SchemaVersion, commandsTellOfTheUpgrade) {
  const std::string told =
      "schema version 1, but this program works on version " + kVersion + "; run zaroctl schema upgrade";
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"check"},
                                                    {"admin", "add", "alice"},
                                                    {"group", "show", "Board"},
                                                    {"rules", "set-order", "--off"}}) {
    const ProgramResult result = run(arguments);
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.out + result.err, HasSubstr(told)) << arguments.front();
  }
  EXPECT_EQ(value("SELECT count(*) FROM administrator WHERE name = 'alice'"), "0");
}

TEST_P(SchemaVersion, statusAndTrialChangeNothing) {
  const Lines before = schemaOf(*session());
  const ProgramResult status = run({"schema", "status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.out, HasSubstr("version\t1\nprogram\t" + kVersion + "\npending\t"));
  EXPECT_THAT(status.out, HasSubstr("0002-audit.sql"));
  const ProgramResult trial = run({"schema", "upgrade", "--dry-run"});
  EXPECT_EQ(trial.status, 0) << trial.err;
  EXPECT_THAT(trial.out, HasSubstr("version\t1\ntried\t"));
  EXPECT_EQ(schemaOf(*session()), before);
  upgrade();
  EXPECT_THAT(run({"schema", "upgrade"}).out, Not(HasSubstr("0002-audit.sql")));
}

ZARO_ON_EVERY_DATABASE(SchemaVersion);

}  // namespace
