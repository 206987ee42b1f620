#include "policy/PolicySnapshot.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>

#include "ZaroRuntime/RuntimeError.h"
#include "console/JsonText.h"
#include "policy/PolicyError.h"

using Json = nlohmann::ordered_json;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr int kFormat = 1;
constexpr std::size_t kMembersALine = 1000;

class Digest {
 public:
  Digest() { crypto_hash_sha256_init(&m_state); }

  void add(std::string_view text) {
    crypto_hash_sha256_update(&m_state, reinterpret_cast<const unsigned char*>(text.data()), text.size());
  }

  // Once, after everything.
  std::string hex() {
    std::array<unsigned char, crypto_hash_sha256_BYTES> bytes = {};
    crypto_hash_sha256_final(&m_state, bytes.data());
    std::array<char, 2 * crypto_hash_sha256_BYTES + 1> text = {};
    return sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
  }

 private:
  crypto_hash_sha256_state m_state;
};

[[noreturn]] void refuse(const std::string& why) {
  throw RuntimeError("no whole snapshot of a policy: " + why, FailureKind::Data);
}

std::string now() {
  const std::time_t seconds = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> text = {};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

// What the head says of the rest.
Json totalsOf(const MailPolicy& policy) {
  std::size_t members = 0;
  for (const MailPolicy::Group& group : policy.groups) {
    members += group.members.size();
  }
  return {{"rules", policy.rules.size()},
          {"entities", policy.entities.size()},
          {"groups", policy.groups.size()},
          {"members", members},
          {"objects", policy.objects.size()}};
}

template <typename Number>
Json orNull(const std::optional<Number>& number) {
  return number ? Json(*number) : Json(nullptr);
}

Json recordOf(const MailPolicy::Rule& rule) {
  Json lists = Json::array();
  for (const MailPolicy::List& list : rule.lists) {
    lists.push_back({list.group, list.kind});
  }
  return {{"rule", rule.id},
          {"name", rule.name},
          {"position", rule.position},
          {"enabled", rule.enabled},
          {"scope", orNull(rule.scope)},
          {"recipients", orNull(rule.recipients)},
          {"lists", lists},
          {"compare", static_cast<int>(rule.compare)},
          {"actions", rule.actions},
          {"quarantine", orNull(rule.quarantine)},
          {"reply", rule.reply},
          {"tag", rule.tag},
          {"header_value", rule.headerValue},
          {"address", rule.address}};
}

Json recordOf(const MailPolicy::FilterOrder& order) {
  Json groups = Json::array();
  for (const MailPolicy::FilterOrder::Group& group : order.groups) {
    groups.push_back({group.rank, group.filterId, group.filterType});
  }
  return {{"order", {{"manual", order.manual}, {"groups", groups}}}};
}

class Writer {
 public:
  explicit Writer(const std::function<void(std::string_view)>& put) : m_put(put) {}

  void line(const Json& value) {
    const std::string text = value.dump() + "\n";
    m_digest.add(text);
    m_put(text);
  }

  void members(const TextList& all) {
    for (std::size_t begin = 0; begin < all.size(); begin += kMembersALine) {
      const std::size_t end = std::min(begin + kMembersALine, all.size());
      Json piece = Json::array();
      for (std::size_t at = begin; at != end; ++at) {
        piece.emplace_back(all[at]);
      }
      line({{"members", std::move(piece)}});
    }
  }

  void tail() { m_put(Json{{"sha256", m_digest.hex()}}.dump() + "\n"); }

 private:
  const std::function<void(std::string_view)>& m_put;
  Digest m_digest;
};

// --- Reading ---

// The library makes any number of any other, and of a truth value: -1 would be an identifier.
template <typename Number>
Number numberOf(const Json& value) {
  using Limits = std::numeric_limits<Number>;
  const bool fits = value.is_number_unsigned()
                        ? value.get<std::uint64_t>() <= static_cast<std::uint64_t>(Limits::max())
                        : value.is_number_integer() && Limits::is_signed &&
                              value.get<std::int64_t>() >= static_cast<std::int64_t>(Limits::min());
  if (!fits) {
    refuse("a number is none, or too large");
  }
  return value.get<Number>();
}

template <typename Number>
std::optional<Number> optionalOf(const Json& value) {
  return value.is_null() ? std::nullopt : std::optional<Number>(numberOf<Number>(value));
}

MailPolicy::Rule ruleOf(const Json& line) {
  MailPolicy::Rule rule;
  rule.id = numberOf<unsigned int>(line.at("rule"));
  rule.name = line.at("name");
  rule.position = numberOf<unsigned int>(line.at("position"));
  rule.enabled = line.at("enabled");
  rule.scope = optionalOf<unsigned int>(line.at("scope"));
  rule.recipients = optionalOf<unsigned int>(line.at("recipients"));
  for (const Json& list : line.at("lists")) {
    rule.lists.push_back({numberOf<unsigned int>(list.at(0)), numberOf<KxEmailBelongsTo>(list.at(1))});
  }
  rule.compare = static_cast<MailPolicy::Compare>(numberOf<int>(line.at("compare")));
  rule.actions = line.at("actions");
  rule.quarantine = optionalOf<unsigned int>(line.at("quarantine"));
  rule.reply = line.at("reply");
  rule.tag = line.at("tag");
  rule.headerValue = line.at("header_value");
  rule.address = line.at("address");
  return rule;
}

MailPolicy::FilterOrder orderOf(const Json& line) {
  MailPolicy::FilterOrder order;
  order.manual = line.at("manual");
  for (const Json& group : line.at("groups")) {
    order.groups.push_back({numberOf<int>(group.at(0)), numberOf<int>(group.at(1)), group.at(2)});
  }
  return order;
}

void take(const Json& line, MailPolicy& policy) {
  if (line.contains("rule")) {
    policy.rules.push_back(ruleOf(line));
  } else if (line.contains("entity")) {
    policy.entities.push_back({numberOf<unsigned int>(line.at("entity")), line.at("pattern")});
  } else if (line.contains("group")) {
    policy.groups.push_back({numberOf<unsigned int>(line.at("group")), line.at("name"), {}});
  } else if (line.contains("members")) {
    if (policy.groups.empty()) {
      refuse("members of no group");
    }
    for (const Json& member : line.at("members")) {
      policy.groups.back().members.add(member.get_ref<const std::string&>());
    }
  } else if (line.contains("object")) {
    policy.objects.push_back({numberOf<unsigned int>(line.at("object")), numberOf<int>(line.at("type")),
                              line.at("name"), line.at("content")});
  } else {
    policy.filterOrder = orderOf(line.at("order"));
  }
}

MailPolicy read(const std::function<bool(std::string&)>& next) {
  std::string line;
  if (!next(line)) {
    refuse("it is empty");
  }
  const Json head = parsedJson(line);
  if (head.at("format") != kFormat) {
    refuse("another format");
  }
  MailPolicy policy;
  policy.version = numberOf<std::uint64_t>(head.at("version"));
  Digest digest;
  bool hasOrder = false;
  for (;;) {
    digest.add(line + "\n");
    if (!next(line)) {
      refuse("it is cut");
    }
    const Json value = parsedJson(line);
    if (value.contains("sha256")) {
      if (value.at("sha256") != digest.hex()) {
        refuse("it was changed");
      }
      break;
    }
    hasOrder = hasOrder || value.contains("order");
    take(value, policy);
  }
  if (next(line)) {
    refuse("something stands behind its tail");
  }
  if (!hasOrder) {
    refuse("it has no rule order");
  }
  const Json totals = totalsOf(policy);
  if (!std::all_of(totals.items().begin(), totals.items().end(),
                   [&](const auto& total) { return head.at(total.key()) == total.value(); })) {
    refuse("it has other totals than its head says");
  }
  return policy;
}

}  // namespace

void writeSnapshot(const MailPolicy& policy, const std::function<void(std::string_view)>& put) {
  try {
    Writer writer(put);
    Json head = {{"format", kFormat}, {"version", policy.version}, {"made_at", now()}};
    head.update(totalsOf(policy));
    writer.line(head);
    for (const MailPolicy::Rule& rule : policy.rules) {
      writer.line(recordOf(rule));
    }
    for (const MailPolicy::Entity& entity : policy.entities) {
      writer.line({{"entity", entity.id}, {"pattern", entity.pattern}});
    }
    for (const MailPolicy::Group& group : policy.groups) {
      writer.line({{"group", group.id}, {"name", group.name}});
      writer.members(group.members);
    }
    for (const MailPolicy::Object& object : policy.objects) {
      writer.line({{"object", object.id}, {"type", object.type}, {"name", object.name}, {"content", object.content}});
    }
    writer.line(recordOf(policy.filterOrder));
    writer.tail();
  } catch (const Json::exception& failure) {
    throw UnreadablePolicy(std::string("the policy cannot be written as JSON: ") + failure.what(), policy.version);
  }
}

MailPolicy readSnapshot(const std::function<bool(std::string&)>& next) {
  try {
    return read(next);
  } catch (const JsonTextError& failure) {
    refuse(std::string("a line ") + failure.what());
  } catch (const Json::exception& failure) {
    refuse(failure.what());
  }
}

MailPolicy readSnapshotText(std::string_view text) {
  return readSnapshot([&](std::string& line) {
    if (text.empty()) {
      return false;
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    line.assign(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return true;
  });
}

std::string_view digestOf(std::string_view snapshot) {
  const std::size_t end = snapshot.rfind('"');
  const std::size_t begin = snapshot.rfind('"', end - 1) + 1;
  return snapshot.substr(begin, end - begin);
}
