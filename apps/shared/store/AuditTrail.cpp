#include "store/AuditTrail.h"

#include <array>
#include <regex>

#include "ZaroRuntime/SqlSession.h"
#include "store/Transaction.h"

using zaroruntime::Dialect;
using zaroruntime::sqlLiteral;

namespace {

// Entries that are read together, so that a long trail is never in memory as a whole.
constexpr std::size_t kEntriesAtOnce = 1000;

const char* shownTime(Dialect dialect) {
  return dialect == Dialect::PostgreSQL ? "to_char(changed_at AT TIME ZONE 'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS.MS\"Z\"')"
                                        : "changed_at";
}

std::string condition(const AuditQuery& query) {
  std::string text;
  if (query.object) {
    text += " AND object_id = " + std::to_string(*query.object);
  }
  if (query.since) {
    text += " AND changed_at >= " + sqlLiteral(*query.since);
  }
  return text;
}

Json storedValue(const std::optional<std::string>& text) {
  if (!text) {
    return nullptr;
  }
  Json value = Json::parse(*text, nullptr, false);
  return value.is_discarded() ? Json(*text) : value;
}

Json entryOf(const StoreConnection::Row& row) {
  const auto text = [&row](std::size_t column) { return row[column].value_or(""); };
  return {{"id", std::stoll(text(0))},
          {"at", text(1)},
          {"administrator", text(2)},
          {"login", text(3)},
          {"host", text(4)},
          {"program", text(5)},
          {"change", text(6)},
          {"subject", text(7)},
          {"object", row[8] ? Json(std::stoll(*row[8])) : Json()},
          {"before", storedValue(row[9])},
          {"after", storedValue(row[10])}};
}

// Of a date in digits whose month is one.
bool isDayOfItsMonth(const std::string& date) {
  constexpr std::array<int, 12> kDays = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  constexpr int kFebruary = 2;
  const int year = std::stoi(date.substr(0, 4));
  const int month = std::stoi(date.substr(5, 2));
  const int day = std::stoi(date.substr(8, 2));
  const bool isLeapYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  return day <= kDays.at(static_cast<std::size_t>(month - 1)) && (day != 29 || month != kFebruary || isLeapYear);
}

}  // namespace

std::optional<std::string> auditTime(const std::string& text) {
  static const std::regex kForm(
      "((?!0000)[0-9]{4}-(?:0[1-9]|1[0-2])-(?:0[1-9]|[12][0-9]|3[01]))"
      "(?:[T ]((?:[01][0-9]|2[0-3]):[0-5][0-9])(?::([0-5][0-9])(?:\\.([0-9]{1,3}))?)?Z?)?");
  std::smatch parts;
  if (!std::regex_match(text, parts, kForm) || !isDayOfItsMonth(parts[1].str())) {
    return std::nullopt;
  }
  const auto part = [&parts](std::size_t place, const char* otherwise) {
    return parts[place].matched ? parts[place].str() : otherwise;
  };
  std::string thousandths = part(4, "");
  thousandths.resize(3, '0');
  return part(1, "") + "T" + part(2, "00:00") + ":" + part(3, "00") + "." + thousandths + "Z";
}

void readAuditTrail(const AuditQuery& query, const std::function<void(const Json&)>& take) {
  StoreConnection db;
  const std::string select = std::string("SELECT id, ") + shownTime(db.dialect()) +
                             " AS shown_at, administrator, login, host, program, change, subject, object_id, "
                             "value_before, value_after FROM audit WHERE id > ";
  const std::string rest = condition(query) + " ORDER BY id LIMIT " + std::to_string(kEntriesAtOnce);
  std::string last = "0";
  for (;;) {
    const auto rows = db.rows(select + last + rest, {"id", "shown_at", "administrator", "login", "host", "program",
                                                     "change", "subject", "object_id", "value_before", "value_after"});
    for (const auto& row : rows) {
      take(entryOf(row));
    }
    if (rows.size() < kEntriesAtOnce) {
      return;
    }
    last = rows.back()[0].value_or("");
  }
}

std::size_t trimAuditTrail(const std::string& before) {
  return inTransaction([&](StoreConnection& db) {
    const std::string old = " FROM audit WHERE changed_at < " + sqlLiteral(before);
    db.lockTable("audit");
    const auto count = db.value("SELECT count(*) AS entries" + old, "entries");
    const auto entries = static_cast<std::size_t>(std::stoull(count.value_or("0")));
    if (entries == 0) {
      return entries;
    }
    db.run("DELETE" + old);
    const Json removed = {{"before", before}, {"entries", entries}};
    const std::string value = sqlLiteral(removed.dump());
    if (db.dialect() == Dialect::PostgreSQL) {
      db.run("SELECT audit_entry('trimmed', 'audit', NULL, " + value + "::jsonb, NULL)");
    } else {
      db.run("INSERT INTO audit_entry VALUES ('trimmed', 'audit', NULL, " + value + ", NULL)");
    }
    return entries;
  });
}
