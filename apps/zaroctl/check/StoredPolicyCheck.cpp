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

std::string schemaFinding(const zaroruntime::Installation& installation, zaroruntime::SqlSession& session) {
  if (!zaroruntime::installedSchemaVersion(session)) {
    throw RuntimeError("there is no table schema_version (run " + installation.sqlDirectory() + "/schema.sql)");
  }
  zaroruntime::requireSchemaVersion(session);
  return "version " + std::to_string(zaroruntime::kSchemaVersion);
}

class StoredPolicyCheck {
 public:
  StoredPolicyCheck(const CheckedDatabase& database, Findings& findings) : m_database(database), m_findings(findings) {}

  void run() {
    _checkEntities();
    _checkOwners();
    _checkSystemArea();
    _checkMemberIndex();
    _checkRules();
  }

 private:
  // Addresses are compared in lower case, so such a pattern is never found again when its parents are looked for, and
  // that fails for every administrator below it.
  void _checkEntities() {
    _checkRows("entities", "SELECT id, name FROM entity WHERE type = 6 AND name <> lower(name) ORDER BY name",
               "no pattern with capitals",
               "patterns with capitals, for which the look-up of parents fails (zaroctl entity add NAME makes one in lower "
               "case; assign its administrators, then zaroctl entity remove --id ID): ");
  }

  void _checkOwners() {
    _checkRows("objects",
               "SELECT id, name FROM named_object WHERE NOT EXISTS (SELECT 1 FROM named_object_owner WHERE object_id = id) "
               "ORDER BY name",
               "every one has an owner",
               "without an owner, so that only the root sees them, while any administrator with a managing group may "
               "change and remove them through the library (zaroctl object remove --as ROOT ID): ");
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
        return "one area has the system's name: object " + _nameOf(rows.front());
      }
      std::string names;
      for (const auto& row : rows) {
        names.append(names.empty() ? "" : ", ").append(_nameOf(row));
      }
      throw RuntimeError("database " + m_database.name +
                         ": more than one with the system's name (\"OPP:\"), of which the oldest counts (zaroctl "
                         "object remove --as ROOT ID removes another): " +
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
                         "disabled (zaroctl rule modify --as ROOT NAME --disabled): " +
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

  static std::string _nameOf(const zaroruntime::SqlSession::Row& row) {
    return row[0].value_or("") + " (" + quoted(row[1].value_or("")) + ")";
  }

  // Rows, an identifier and a name each, that a query must not find.
  void _checkRows(const char* subject, const char* query, const char* right, const char* wrong) {
    m_findings.check(subject, [&] {
      const auto rows = m_database.session->rows(query);
      if (rows.empty()) {
        return std::string(right);
      }
      std::vector<std::string> names;
      std::transform(rows.begin(), rows.end(), std::back_inserter(names), _nameOf);
      throw RuntimeError("database " + m_database.name + ": " + wrong + _firstOf(names, ", "));
    });
  }

  const CheckedDatabase& m_database;
  Findings& m_findings;
};

}  // namespace

bool checkSchema(const zaroruntime::Installation& installation, const CheckedDatabase& database, Findings& findings) {
  return findings.check("schema", [&] {
    try {
      return schemaFinding(installation, *database.session);
    } catch (const RuntimeError& failure) {
      throw RuntimeError("database " + database.name + ": " + failure.what(), failure.kind());
    }
  });
}

void checkStoredPolicy(const CheckedDatabase& database, Findings& findings) {
  StoredPolicyCheck(database, findings).run();
}
