#include <algorithm>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "check/Checks.h"
#include "console/Text.h"
#include "policy/PolicyGeneration.h"
#include "policy/PolicyLoading.h"

using zaroruntime::RuntimeError;

namespace {

// Whether the statement that made an index gives it the addresses in lower case, and of all rows.
bool isByAddress(const std::string& statement) {
  static const std::regex kAddressFirst(R"(\(\s*lower\s*\(\s*"?address"?\s*\))", std::regex::icase);
  static const std::regex kSomeRows(R"(\)\s*where\b)", std::regex::icase);
  return std::regex_search(statement, kAddressFirst) && !std::regex_search(statement, kSomeRows);
}

class StoredPolicyCheck {
 public:
  StoredPolicyCheck(const zaroruntime::Installation& installation, const CheckedDatabase& database, Findings& findings)
      : m_installation(installation), m_database(database), m_findings(findings) {}

  void run() {
    if (_checkSchema()) {
      _checkEntities();
      _checkOwners();
      _checkSystemArea();
      _checkMemberIndex();
      _checkRules();
    }
  }

 private:
  bool _checkSchema() {
    return m_findings.check("schema", [&] {
      try {
        return _schemaFinding();
      } catch (const RuntimeError& failure) {
        throw RuntimeError("database " + m_database.name + ": " + failure.what(), failure.kind());
      }
    });
  }

  std::string _schemaFinding() {
    if (!zaroruntime::installedSchemaVersion(*m_database.session)) {
      throw RuntimeError("there is no table schema_version (run " + m_installation.sqlDirectory() + "/schema.sql)");
    }
    zaroruntime::requireSchemaVersion(*m_database.session);
    return "version " + std::to_string(zaroruntime::kSchemaVersion);
  }

  // Addresses are compared in lower case, so such a pattern is never found again when its parents are looked for, and
  // that fails for every administrator below it.
  void _checkEntities() {
    _checkRows("entities", "SELECT name FROM entity WHERE type = 6 AND name <> lower(name) ORDER BY name",
               "no pattern with capitals", "patterns with capitals, for which the look-up of parents fails: ");
  }

  void _checkOwners() {
    _checkRows(
        "objects",
        "SELECT name FROM named_object WHERE NOT EXISTS (SELECT 1 FROM named_object_owner WHERE object_id = id) "
        "ORDER BY name",
        "every one has an owner",
        "without an owner, so that only the root sees them, while any administrator with a managing group may change and "
        "remove them through the library: ");
  }

  // The library takes the first that it finds.
  void _checkSystemArea() {
    m_findings.check("quarantine", [&] {
      const auto rows = m_database.session->rows(
          "SELECT id, name FROM named_object WHERE type = 3 AND substr(name, 1, 4) = 'OPP:' ORDER BY id");
      if (rows.empty()) {
        return std::string(
            "no quarantine area has the system's name (\"OPP:\"): administrators are offered none but their own");
      }
      if (rows.size() == 1) {
        return "one area has the system's name: " + _objectName(rows.front());
      }
      std::string names;
      for (const auto& row : rows) {
        names.append(names.empty() ? "" : ", ").append(_objectName(row));
      }
      throw RuntimeError("database " + m_database.name +
                         ": more than one with the system's name (\"OPP:\"), of which the oldest counts and the "
                         "administration root may remove the others: " +
                         names);
    });
  }

  // The schema got the index without another version, so there are databases of this one that lack it.
  void _checkMemberIndex() {
    const char* const query = _queryOfMemberIndexes();
    if (query == nullptr) {
      return;
    }
    m_findings.check("groups", [&] {
      const auto rows = m_database.session->rows(query);
      if (std::any_of(rows.begin(), rows.end(), [](const auto& row) { return isByAddress(row.front().value_or("")); })) {
        return std::string("members are found by address");
      }
      throw RuntimeError("database " + m_database.name +
                         ": a member is looked for among those of all groups, since there is no index of them by address; "
                         "have the database execute: DROP INDEX IF EXISTS address_group_member_by_address; CREATE INDEX "
                         "address_group_member_by_address ON address_group_member (lower(address));");
    });
  }

  // The statements that made the indexes; null where there is no way to ask.
  const char* _queryOfMemberIndexes() const {
    switch (m_database.source.dialect) {
      case zaroruntime::Dialect::SQLite:
        return "SELECT sql FROM sqlite_master WHERE type = 'index' AND tbl_name = 'address_group_member'";
      case zaroruntime::Dialect::PostgreSQL:
        return "SELECT pg_get_indexdef(indexrelid) FROM pg_index WHERE indrelid = 'address_group_member'::regclass AND "
               "indisvalid";
      case zaroruntime::Dialect::Other:
        break;
    }
    return nullptr;
  }

  // One that mail filters cannot apply keeps the changes of all others from them.
  void _checkRules() {
    m_findings.check("rules", [&] {
      StoreConnection db;
      const MailPolicy policy = loadMailPolicyWithoutMembers(db);
      const std::vector<std::string> faults = unusableRules(policy);
      if (faults.empty()) {
        return std::string("mail filters can apply every one that is enabled");
      }
      throw RuntimeError("database " + m_database.name +
                         ": mail filters cannot apply the policy, and keep the one before until these are changed or "
                         "disabled: " +
                         _firstOf(faults, "; "));
    });
  }

  // Some of the texts, and how many more there are.
  static std::string _firstOf(const std::vector<std::string>& texts, const char* separator) {
    constexpr std::size_t kMost = 5;
    std::string list;
    for (std::size_t i = 0; i < std::min(texts.size(), kMost); ++i) {
      list.append(i == 0 ? "" : separator).append(texts[i]);
    }
    if (texts.size() > kMost) {
      list += " and " + std::to_string(texts.size() - kMost) + " more";
    }
    return list;
  }

  static std::string _objectName(const zaroruntime::SqlSession::Row& row) {
    return "object " + row[0].value_or("") + " (" + quoted(row[1].value_or("")) + ")";
  }

  // Names that a query must not find.
  void _checkRows(const char* subject, const char* query, const char* right, const char* wrong) {
    m_findings.check(subject, [&] {
      const auto rows = m_database.session->rows(query);
      if (rows.empty()) {
        return std::string(right);
      }
      std::vector<std::string> names;
      std::transform(rows.begin(), rows.end(), std::back_inserter(names),
                     [](const auto& row) { return quoted(row.front().value_or("")); });
      throw RuntimeError("database " + m_database.name + ": " + wrong + _firstOf(names, ", "));
    });
  }

  const zaroruntime::Installation& m_installation;
  const CheckedDatabase& m_database;
  Findings& m_findings;
};

}  // namespace

void checkStoredPolicy(const zaroruntime::Installation& installation, const CheckedDatabase& database,
                       Findings& findings) {
  StoredPolicyCheck(installation, database, findings).run();
}
