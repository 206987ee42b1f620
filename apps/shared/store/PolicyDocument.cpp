#include "store/PolicyDocument.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <map>
#include <set>

#include "console/JsonText.h"
#include "console/Text.h"

using zaroruntime::RuntimeError;

namespace {

constexpr const char* kFormat = "zaropolicy";
constexpr int kVersion = 1;
constexpr int kIndent = 2;

[[noreturn]] void refuse(const std::string& place, const std::string& fault) {
  throw PolicyTextError(place + " " + fault);
}

std::size_t charactersIn(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

// --- Order ---

// Numbers by value, texts by their bytes.
bool isKeyBefore(const PolicyTable& table, const Json& one, const Json& other) {
  for (std::size_t at = 0; at < table.keyColumns; ++at) {
    const Json& left = one.at(table.columns[at].key);
    const Json& right = other.at(table.columns[at].key);
    if (left != right) {
      return left < right;
    }
  }
  return false;
}

// --- Values ---

bool hasBounds(const PolicyColumn& column, long long number) {
  return number >= column.least && number <= column.greatest;
}

void requireText(const PolicyColumn& column, const Json& value, const std::string& place) {
  if (!value.is_string()) {
    refuse(place, "is no text");
  }
  const auto& text = value.get_ref<const std::string&>();
  if (text.find('\0') != std::string::npos) {
    refuse(place, "holds a NUL");
  }
  if (!hasBounds(column, static_cast<long long>(charactersIn(text)))) {
    refuse(place, text.empty() ? "is empty" : "is longer than " + std::to_string(column.greatest) + " characters");
  }
}

void requireNumber(const PolicyColumn& column, const Json& value, const std::string& place) {
  const bool isTooGreat = value.is_number_unsigned() && value.get<unsigned long long>() > LLONG_MAX;
  if (!value.is_number_integer() || isTooGreat || !hasBounds(column, value.get<long long>())) {
    refuse(place, "is no number from " + std::to_string(column.least) + " to " + std::to_string(column.greatest));
  }
}

Json valueOf(const PolicyColumn& column, const Json& value, const std::string& place) {
  if (value.is_null() && column.mayBeNull) {
    return value;
  }
  switch (column.value) {
    case PolicyValue::Text:
      requireText(column, value, place);
      return value;
    case PolicyValue::Boolean:
      if (!value.is_boolean()) {
        refuse(place, "is neither true nor false");
      }
      return value;
    case PolicyValue::Identifier:
    case PolicyValue::Number:
      break;
  }
  requireNumber(column, value, place);
  return value.get<long long>();  // 1 and 1 may differ by their sign bits
}

// --- Rows ---

void requireKeys(const Json& object, const std::vector<const char*>& keys, const std::string& place) {
  if (!object.is_object()) {
    refuse(place, "is no object");
  }
  for (const auto& field : object.items()) {
    if (std::find(keys.begin(), keys.end(), field.key()) == keys.end()) {
      refuse(place, "has an unknown key, " + quoted(field.key()));
    }
  }
  for (const char* key : keys) {
    if (!object.contains(key)) {
      refuse(place, "lacks the key " + quoted(key));
    }
  }
}

std::vector<const char*> keysOf(const std::vector<PolicyColumn>& columns) {
  std::vector<const char*> keys;
  keys.reserve(columns.size());
  for (const PolicyColumn& column : columns) {
    keys.push_back(column.key);
  }
  return keys;
}

Json valuesOf(const std::vector<PolicyColumn>& columns, const Json& object, const std::string& place) {
  Json values = Json::object();
  for (const PolicyColumn& column : columns) {
    values[column.key] = valueOf(column, object.at(column.key), place + "." + column.key);
  }
  return values;
}

void requireArray(const Json& value, const std::string& place) {
  if (!value.is_array()) {
    refuse(place, "is no list");
  }
}

Json listOf(const PolicyList& list, const Json& given, const std::string& place) {
  requireArray(given, place);
  Json elements = Json::array();
  for (std::size_t at = 0; at < given.size(); ++at) {
    const std::string where = place + "[" + std::to_string(at) + "]";
    if (list.columns.size() == 1) {
      elements.push_back(valueOf(list.columns.front(), given[at], where));
    } else {
      requireKeys(given[at], keysOf(list.columns), where);
      elements.push_back(valuesOf(list.columns, given[at], where));
    }
  }
  if (list.position == nullptr) {
    std::sort(elements.begin(), elements.end());
    const auto twice = std::adjacent_find(elements.begin(), elements.end());
    if (twice != elements.end()) {
      refuse(place, "holds " + twice->dump() + " twice");
    }
  }
  return elements;
}

Json rowOf(const PolicyTable& table, const Json& given, const std::string& place) {
  std::vector<const char*> keys = keysOf(table.columns);
  for (const PolicyList& list : table.lists) {
    keys.push_back(list.key);
  }
  requireKeys(given, keys, place);
  Json row = valuesOf(table.columns, given, place);
  for (const PolicyList& list : table.lists) {
    row[list.key] = listOf(list, given.at(list.key), place + "." + list.key);
  }
  const std::string fault = table.fault != nullptr ? table.fault(row) : "";
  if (!fault.empty()) {
    refuse(place, fault);
  }
  return row;
}

std::string nameOf(const PolicyTable& table, const Json& row) {
  const Json key = keyOf(table, row);
  return std::string(table.kind) + " " + (key.is_string() ? quoted(key.get<std::string>()) : key.dump());
}

Json rowsOf(const PolicyTable& table, const Json& given) {
  requireArray(given, table.key);
  Json rows = Json::array();
  for (std::size_t at = 0; at < given.size(); ++at) {
    rows.push_back(rowOf(table, given[at], std::string(table.key) + "[" + std::to_string(at) + "]"));
  }
  sortRows(table, rows);
  const auto twice = std::adjacent_find(
      rows.begin(), rows.end(), [&](const Json& one, const Json& other) { return !isKeyBefore(table, one, other); });
  if (twice != rows.end()) {
    refuse(table.key, "holds " + nameOf(table, *twice) + " twice");
  }
  return rows;
}

Json mergedRows(const PolicyTable& table, const Json& stored, Json rows) {
  if (table.isOneWhole) {
    return rows;
  }
  Json merged = Json::array();
  std::set_union(rows.begin(), rows.end(), stored.begin(), stored.end(), std::back_inserter(merged),
                 [&](const Json& one, const Json& other) { return isKeyBefore(table, one, other); });
  return merged;
}

// --- What rows say of each other ---

void requireUnique(const PolicyTable& table, const Json& rows) {
  for (const auto& unique : table.uniques) {
    std::map<std::vector<Json>, const Json*> seen;
    for (const Json& row : rows) {
      std::vector<Json> values;
      values.reserve(unique.size());
      for (const std::size_t place : unique) {
        values.push_back(row.at(table.columns[place].key));
      }
      const auto [same, isNew] = seen.emplace(std::move(values), &row);
      if (!isNew) {
        const char* key = table.columns[unique.back()].key;
        refuse(nameOf(table, row),
               "has the " + std::string(key) + " of " + nameOf(table, *same->second) + ": " + row.at(key).dump());
      }
    }
  }
}

using Identifiers = std::map<std::string, std::map<Json, const Json*>>;  // of each table, with their rows

void requireReference(const PolicyColumn& column, const Json& value, const Identifiers& known, const std::string& row) {
  if (column.refersTo == nullptr || value.is_null()) {
    return;
  }
  const auto& rows = known.at(column.refersTo);
  const auto found = rows.find(value);
  if (found == rows.end()) {
    refuse(row, "refers to " + value.dump() + ", which is not among the " + column.refersTo);
  }
  if (column.refersToType && found->second->at("type") != *column.refersToType) {
    refuse(row, "refers to " + value.dump() + " of the " + column.refersTo + ", whose type is not " +
                    std::to_string(*column.refersToType));
  }
}

void requireReferences(const PolicyTable& table, const Json& row, const Identifiers& known) {
  const std::string name = nameOf(table, row);
  for (const PolicyColumn& column : table.columns) {
    requireReference(column, row.at(column.key), known, name);
  }
  for (const PolicyList& list : table.lists) {
    for (const Json& element : row.at(list.key)) {
      for (const PolicyColumn& column : list.columns) {
        requireReference(column, list.columns.size() == 1 ? element : element.at(column.key), known, name);
      }
    }
  }
}

void requireSound(const Json& policy) {
  Identifiers known;
  for (const PolicyTable& table : policyTables()) {
    requireUnique(table, policy.at(table.key));
    for (const Json& row : policy.at(table.key)) {
      if (table.hasIdentifiers()) {
        known[table.key].emplace(row.at(table.columns.front().key), &row);
      }
    }
    known[table.key];
    for (const Json& row : policy.at(table.key)) {
      requireReferences(table, row, known);
    }
  }
}

Json parsed(const std::string& text) {
  try {
    return parsedJson(text);
  } catch (const JsonTextError& failure) {
    throw PolicyTextError(failure.what());
  }
}

void requireFormat(const Json& document) {
  if (!document.is_object() || !document.contains("format") || document.at("format") != kFormat) {
    throw PolicyTextError("is no exported policy: it has no \"format\" that is \"" + std::string(kFormat) + "\"");
  }
  if (!document.contains("version") || document.at("version") != kVersion) {
    throw PolicyTextError("is an exported policy of another version than " + std::to_string(kVersion));
  }
  std::vector<const char*> keys = {"format", "version"};
  for (const PolicyTable& table : policyTables()) {
    keys.push_back(table.key);
  }
  for (const auto& field : document.items()) {
    if (std::find(keys.begin(), keys.end(), field.key()) == keys.end()) {
      throw PolicyTextError("has an unknown key, " + quoted(field.key()));
    }
  }
}

// --- Differences ---

// The elements of one list that another lacks, each as often as it is missing there.
Json elementsWithout(const Json& list, const Json& other) {
  std::map<Json, std::size_t> left;
  for (const Json& element : other) {
    ++left[element];
  }
  Json missing = Json::array();
  for (const Json& element : list) {
    auto found = left.find(element);
    if (found == left.end() || found->second == 0) {
      missing.push_back(element);
    } else {
      --found->second;
    }
  }
  return missing;
}

void addDifference(Json& differences, const PolicyTable& table, const char* change, const Json& row, const Json& field,
                   Json before, Json after) {
  const bool hasName = row.contains("name");
  differences.push_back({{"change", change},
                         {"kind", table.kind},
                         {"key", keyOf(table, row)},
                         {"name", hasName ? row.at("name") : Json(nullptr)},
                         {"field", field},
                         {"before", std::move(before)},
                         {"after", std::move(after)}});
}

void addFields(Json& differences, const PolicyTable& table, const Json& before, const Json& after) {
  for (const auto& field : before.items()) {
    const Json& other = after.at(field.key());
    if (field.value() == other) {
      continue;
    }
    Json gone = field.value();
    Json come = other;
    if (gone.is_array()) {
      gone = elementsWithout(field.value(), other);
      come = elementsWithout(other, field.value());
      if (gone.empty() && come.empty()) {
        come = "in another order";
      }
    }
    addDifference(differences, table, "changed", before, field.key(), std::move(gone), std::move(come));
  }
}

}  // namespace

Json emptyPolicy() {
  Json policy = {{"format", kFormat}, {"version", kVersion}};
  for (const PolicyTable& table : policyTables()) {
    policy[table.key] = Json::array();
  }
  return policy;
}

std::string policyText(const Json& policy) {
  try {
    return policy.dump(kIndent) + '\n';
  } catch (const Json::type_error&) {
    throw RuntimeError("the database holds a text that is not UTF-8, which a document cannot hold; see zaroctl check",
                       zaroruntime::FailureKind::Data);
  }
}

Json readPolicyText(const std::string& text, const Json* stored) {
  const Json document = parsed(text);
  requireFormat(document);
  Json policy = emptyPolicy();
  for (const PolicyTable& table : policyTables()) {
    Json& rows = policy[table.key];
    if (document.contains(table.key)) {
      rows = rowsOf(table, document.at(table.key));
      rows = stored != nullptr ? mergedRows(table, stored->at(table.key), std::move(rows)) : std::move(rows);
    } else if (stored != nullptr) {
      rows = stored->at(table.key);
    } else {
      throw PolicyTextError("lacks the key " + quoted(table.key) + ", and without --merge a document has every table");
    }
  }
  requireSound(policy);
  return policy;
}

void sortRows(const PolicyTable& table, Json& rows) {
  std::sort(rows.begin(), rows.end(), [&](const Json& one, const Json& other) { return isKeyBefore(table, one, other); });
}

std::vector<RowChange> changedRows(const PolicyTable& table, const Json& before, const Json& after) {
  const Json& old = before.at(table.key);
  const Json& now = after.at(table.key);
  std::vector<RowChange> changes;
  auto left = old.begin();
  auto right = now.begin();
  while (left != old.end() || right != now.end()) {
    if (right == now.end() || (left != old.end() && isKeyBefore(table, *left, *right))) {
      changes.emplace_back(&*left++, nullptr);
    } else if (left == old.end() || isKeyBefore(table, *right, *left)) {
      changes.emplace_back(nullptr, &*right++);
    } else {
      if (*left != *right) {
        changes.emplace_back(&*left, &*right);
      }
      ++left;
      ++right;
    }
  }
  return changes;
}

Json keyOf(const PolicyTable& table, const Json& row) {
  if (table.keyColumns == 1) {
    return row.at(table.columns.front().key);
  }
  std::string text;
  for (std::size_t at = 0; at < table.keyColumns; ++at) {
    const Json& value = row.at(table.columns[at].key);
    text.append(text.empty() ? "" : " ").append(value.is_string() ? value.get<std::string>() : value.dump());
  }
  return text;
}

Json differencesOf(const Json& before, const Json& after) {
  Json differences = Json::array();
  for (const PolicyTable& table : policyTables()) {
    for (const auto& [old, now] : changedRows(table, before, after)) {
      if (old == nullptr) {
        addDifference(differences, table, "added", *now, nullptr, nullptr, *now);
      } else if (now == nullptr) {
        addDifference(differences, table, "removed", *old, nullptr, *old, nullptr);
      } else {
        addFields(differences, table, *old, *now);
      }
    }
  }
  return differences;
}
