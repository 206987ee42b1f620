#include "snapshot/PolicyEntries.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "policy/PolicyVocabulary.h"

namespace {

using Names = std::map<unsigned int, std::string>;

template <typename Elements, typename Name>
Names namesOf(const Elements& elements, Name name) {
  Names names;
  for (const auto& element : elements) {
    names.emplace(element.id, element.*name);
  }
  return names;
}

Json nameIn(const Names& names, const std::optional<unsigned int>& id) {
  if (!id) {
    return nullptr;
  }
  const auto found = names.find(*id);
  return found != names.end() ? found->second : "number " + std::to_string(*id);
}

Json orNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

// As it is stored where that is no bitmap, so that one such rule does not hide all others.
std::string actionsText(const std::string& actions) {
  try {
    return keysText(keysIn(actions));
  } catch (const zaroruntime::RuntimeError&) {
    return actions;
  }
}

class Entries {
 public:
  explicit Entries(const MailPolicy& policy)
      : m_policy(policy),
        m_scopes(namesOf(policy.entities, &MailPolicy::Entity::pattern)),
        m_groups(namesOf(policy.groups, &MailPolicy::Group::name)),
        m_objects(namesOf(policy.objects, &MailPolicy::Object::name)) {}

  std::vector<PolicyEntry> all() const {
    std::vector<PolicyEntry> entries;
    for (const MailPolicy::Rule& rule : m_policy.rules) {
      entries.push_back({"rule", rule.id, rule.name, _fieldsOf(rule), {}});
    }
    for (const MailPolicy::Entity& entity : m_policy.entities) {
      entries.push_back({"scope", entity.id, entity.pattern, Json::object(), {}});
    }
    for (const MailPolicy::Group& group : m_policy.groups) {
      entries.push_back({"group",
                         group.id,
                         group.name,
                         {{"members", group.members.size()}},
                         {group.members.begin(), group.members.end()}});
    }
    for (const MailPolicy::Object& object : m_policy.objects) {
      entries.push_back(
          {"object", object.id, object.name, {{"type", object.type}, {"content", orNull(object.content)}}, {}});
    }
    entries.push_back({"order", 0, "order of rule filters", _fieldsOf(m_policy.filterOrder), {}});
    return entries;
  }

 private:
  Json _fieldsOf(const MailPolicy::Rule& rule) const {
    Json lists = Json::array();
    for (const MailPolicy::List& list : rule.lists) {
      lists.push_back(nameIn(m_groups, list.group).get<std::string>() + ":" + nameOfKind(list.kind));
    }
    return {{"position", rule.position},
            {"enabled", rule.enabled},
            {"for", rule.scope ? nameIn(m_scopes, rule.scope) : Json("all")},
            {"recipients", nameIn(m_groups, rule.recipients)},
            {"lists", lists},
            {"compare", nameOfComparison(rule.compare)},
            {"action", orNull(actionsText(rule.actions))},
            {"quarantine", nameIn(m_objects, rule.quarantine)},
            {"reply", orNull(rule.reply)},
            {"tag", orNull(rule.tag)},
            {"header_value", orNull(rule.headerValue)},
            {"address", orNull(rule.address)}};
  }

  static Json _fieldsOf(const MailPolicy::FilterOrder& order) {
    Json groups = Json::array();
    for (const MailPolicy::FilterOrder::Group& group : order.groups) {
      groups.push_back(std::to_string(group.rank) + ". group " + std::to_string(group.filterId) + " " + group.filterType);
    }
    return {{"manual", order.manual}, {"groups", groups}};
  }

  const MailPolicy& m_policy;
  const Names m_scopes;
  const Names m_groups;
  const Names m_objects;
};

std::string textOf(const Json& value) {
  if (value.is_string()) {
    return value;
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? "yes" : "no";
  }
  if (!value.is_array()) {
    return value.dump();
  }
  std::string text;
  for (const Json& element : value) {
    text += (text.empty() ? "" : ", ") + textOf(element);
  }
  return text;
}

bool holdsSomething(const Json& value) {
  return !value.is_null() && !(value.is_array() && value.empty());
}

using Places = std::map<std::pair<std::string, unsigned int>, const PolicyEntry*>;

Places placesOf(const std::vector<PolicyEntry>& entries) {
  Places places;
  for (const PolicyEntry& entry : entries) {
    places.emplace(std::make_pair(entry.kind, entry.id), &entry);
  }
  return places;
}

class Differences {
 public:
  void entry(const char* change, const PolicyEntry& entry) { _row(change, entry, nullptr, nullptr, nullptr); }

  void between(const PolicyEntry& before, const PolicyEntry& after) {
    if (before.name != after.name) {
      _row("changed", after, "name", before.name, after.name);
    }
    for (const auto& field : before.fields.items()) {
      const Json& value = after.fields.at(field.key());
      if (field.key() != "members" && field.value() != value) {
        _row("changed", after, field.key(), field.value(), value);
      }
    }
    _members(before, after);
  }

  Json rows = Json::array();

 private:
  void _row(const char* change, const PolicyEntry& entry, const Json& field, const Json& before, const Json& after) {
    rows.push_back({{"change", change},
                    {"kind", entry.kind},
                    {"id", entry.id},
                    {"name", entry.name},
                    {"field", field},
                    {"before", before},
                    {"after", after}});
  }

  void _members(const PolicyEntry& before, const PolicyEntry& after) {
    std::vector<std::string> old = before.members;
    std::vector<std::string> now = after.members;
    std::sort(old.begin(), old.end());
    std::sort(now.begin(), now.end());
    std::vector<std::string> gone;
    std::vector<std::string> come;
    std::set_difference(old.begin(), old.end(), now.begin(), now.end(), std::back_inserter(gone));
    std::set_difference(now.begin(), now.end(), old.begin(), old.end(), std::back_inserter(come));
    for (const std::string& member : gone) {
      _row("removed", after, "member", member, nullptr);
    }
    for (const std::string& member : come) {
      _row("added", after, "member", nullptr, member);
    }
    if (gone.empty() && come.empty() && before.members != after.members) {
      _row("changed", after, "order of members", nullptr, nullptr);
    }
  }
};

}  // namespace

std::vector<PolicyEntry> entriesOf(const MailPolicy& policy) {
  return Entries(policy).all();
}

std::string textOf(const PolicyEntry& entry) {
  std::string text;
  for (const auto& field : entry.fields.items()) {
    if (holdsSomething(field.value())) {
      text += (text.empty() ? "" : "; ") + field.key() + " " + textOf(field.value());
    }
  }
  return text;
}

Json differencesOf(const std::vector<PolicyEntry>& before, const std::vector<PolicyEntry>& after) {
  const Places old = placesOf(before);
  const Places now = placesOf(after);
  Differences differences;
  for (const PolicyEntry& entry : before) {
    const auto found = now.find({entry.kind, entry.id});
    if (found == now.end()) {
      differences.entry("removed", entry);
    } else {
      differences.between(entry, *found->second);
    }
  }
  for (const PolicyEntry& entry : after) {
    if (old.find({entry.kind, entry.id}) == old.end()) {
      differences.entry("added", entry);
    }
  }
  return differences.rows;
}
