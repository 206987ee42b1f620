// The list of visible objects against a plain statement of the rule, over many small installations.
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <random>

#include "EntityTest.h"
#include "SlowMatcher.h"
#include "ZaroNamedObj.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;

constexpr auto kKind = static_cast<ZaroNamedObj::NaObjType>(9);
constexpr unsigned int kAdmin = 7;

// Installations are drawn from few names, so that patterns often contain each other.
const char* const kNames[] = {"*@*",         "*@*.b.test", "*@b.test", "*@a.b.test",   "user@a.b.test",
                              "user@b.test", "user@*",     "*@*.test", "other@b.test", "*@c.d.b.test"};
const char* const kObjectNames[] = {"a", "A", "b", "B", "ab", "OPP:x", "opp:x", "c", "C"};

struct Object {
  std::string name;
  std::set<unsigned int> owners;
  bool isUsed = false;
};

struct Installation {
  std::vector<GroupEntity> entities;  // by identifier, from 1
  std::set<unsigned int> own;         // of the administrator
  std::map<unsigned int, Object> objects;
};

class Dice {
 public:
  explicit Dice(unsigned int seed) : m_random(seed) {}
  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_random); }
  bool oneIn(std::size_t count) { return below(count) == 0; }

 private:
  std::mt19937 m_random;
};

Installation installation(Dice& dice) {
  Installation made;
  std::set<std::string> used;
  const std::size_t entities = 1 + dice.below(7);
  while (made.entities.size() < entities) {
    const std::string name = kNames[dice.below(std::size(kNames))];
    if (used.insert(name).second) {
      const int types[] = {6, 6, 6, 2, 0};
      made.entities.push_back(
          entity(static_cast<unsigned int>(made.entities.size() + 1), types[dice.below(std::size(types))], name));
    }
  }
  made.own.insert(static_cast<unsigned int>(1 + dice.below(entities)));
  for (unsigned int id = 1; id <= entities; ++id) {
    if (dice.oneIn(3)) {
      made.own.insert(id);
    }
  }
  for (unsigned int id = 41; id < 41 + dice.below(8); ++id) {
    Object& object = made.objects[id];
    object.name = kObjectNames[dice.below(std::size(kObjectNames))];
    object.isUsed = dice.oneIn(3);
    object.owners.insert(static_cast<unsigned int>(1 + dice.below(entities)));
    while (dice.oneIn(2)) {
      object.owners.insert(static_cast<unsigned int>(1 + dice.below(entities)));
    }
  }
  return made;
}

// --- The rule, said plainly ---

bool contains(const std::string& pattern, const std::string& name) {
  slow::Table table;
  slow::Tree tree(&table);
  tree.add(pattern, 0);
  return !tree.findMatches(name).empty();
}

struct Verdict {
  bool isSeen = false;
  bool isEditable = false;
};

Verdict verdictOf(const Installation& installation, const Object& object) {
  const auto isOwn = [&](unsigned int id) { return installation.own.count(id) != 0; };
  const auto isWildcard = [&](unsigned int id) { return installation.entities[id - 1].type == GroupEntity::Wildcard; };
  const auto nameOf = [&](unsigned int id) { return installation.entities[id - 1].name; };
  Verdict verdict;
  bool allAccountedFor = true;
  bool isBelowAnother = false;
  for (const unsigned int owner : object.owners) {
    bool isChild = false;
    bool isParent = false;
    for (const unsigned int own : installation.own) {
      if (own == owner || !isWildcard(own) || !isWildcard(owner)) {
        continue;
      }
      isChild = isChild || contains(nameOf(own), nameOf(owner));
      isParent = isParent || contains(nameOf(owner), nameOf(own));
    }
    const bool isAccountedFor = isOwn(owner) || isChild;
    verdict.isSeen = verdict.isSeen || isAccountedFor || isParent;
    allAccountedFor = allAccountedFor && isAccountedFor;
    isBelowAnother = isBelowAnother || (isParent && !isAccountedFor);
  }
  verdict.isEditable = verdict.isSeen && allAccountedFor && !isBelowAnother;
  return verdict;
}

// Each object as "NAME ID e d", ordered as a list of them is; equal names in any order.
std::vector<std::string> expected(const Installation& installation) {
  std::vector<std::string> texts;
  for (const auto& [id, object] : installation.objects) {
    const Verdict verdict = verdictOf(installation, object);
    if (object.name.rfind("OPP:", 0) != 0 && verdict.isSeen) {
      texts.push_back(slow::lowered(object.name) + " " + object.name + " " + std::to_string(id) +
                      (verdict.isEditable ? " e" : "") + (verdict.isEditable && !object.isUsed ? " d" : ""));
    }
  }
  std::sort(texts.begin(), texts.end());
  return texts;
}

// --- The library's answer ---

void script(const Installation& installation) {
  platform().reset();
  platform().database.replyToFile("ui_IsAdminRoot_Id.sql", Reply({"IsAdminRoot"}, {{"0"}}));
  std::map<int, std::vector<Row>> byType;
  std::vector<Row> own;
  for (const GroupEntity& one : installation.entities) {
    byType[one.type].push_back({std::to_string(one.id), one.name});
    if (installation.own.count(one.id) != 0) {
      own.push_back({std::to_string(one.id), std::to_string(one.type), one.name});
    }
  }
  for (const int type : {2, 6}) {
    platform().database.reply("ui_GetEntitiesByType.sql [" + std::to_string(type) + "]",
                              Reply({"EntityID", "EntityName"}, byType[type]));
  }
  platform().database.replyToFile("ui_GetAdminEntityById.sql", Reply({"EntityID", "EntityType", "EntityName"}, own));
  std::vector<Row> owners;
  for (const auto& [id, object] : installation.objects) {
    for (const unsigned int owner : object.owners) {
      owners.push_back({std::to_string(owner), std::to_string(id), object.name});
    }
    const std::string number = std::to_string(id);
    platform().database.reply("ui_GetNamedObjRule.sql [" + number + "] [" + number + "]",
                              Reply({"RuleID"}, object.isUsed ? std::vector<Row>{{"1"}} : std::vector<Row>{}));
  }
  platform().database.replyToFile("ui_GetEntityNamedObj.sql", Reply({"EntityID", "NamedObjID", "Name"}, owners));
}

class VisibilityOfRandomInstallations : public zarotest::EntityTest {};

TEST_F(VisibilityOfRandomInstallations, isAsTheRuleSays) {
  const char* wanted = std::getenv("ZARO_RANDOM_INSTALLATIONS");
  const int count = wanted != nullptr ? std::atoi(wanted) : 3000;
  Dice dice(20261121);
  int seen = 0;
  int editable = 0;
  for (int number = 0; number < count; ++number) {
    const Installation made = installation(dice);
    script(made);
    std::vector<SummaryNamedObject> out;
    ASSERT_TRUE(ZaroNamedObj::getIds(m_db, kAdmin, kKind, out));
    std::vector<std::string> texts;
    for (const SummaryNamedObject& one : out) {
      texts.push_back(slow::lowered(one.name) + " " + one.name + " " + std::to_string(one.id) +
                      (one.editable ? " e" : "") + (one.deletable ? " d" : ""));
      seen += 1;
      editable += one.editable ? 1 : 0;
    }
    for (std::size_t i = 1; i < out.size(); ++i) {
      ASSERT_LE(slow::lowered(out[i - 1].name), slow::lowered(out[i].name));
    }
    std::sort(texts.begin(), texts.end());
    ASSERT_EQ(texts, expected(made)) << "installation " << number;
  }
  EXPECT_GT(seen, count) << "or there was little to compare";
  EXPECT_GT(editable, count / 2);
  EXPECT_GT(seen - editable, count / 4);
}

}  // namespace
