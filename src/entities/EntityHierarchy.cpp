// Which wildcard entities contain which others.
#include <memory>
#include <mutex>

#include "EntityUtils.h"
#include "KxWildcardEmail.h"
#include "PolicyLog.h"
#include "ZaroErrC.h"
#include "util/LetterCase.h"

namespace {

using EntitySet = std::set<GroupEntity, GroupEntityCmp>;
using Matches = std::vector<KxListedEmailAddress*>;

// Trees for questions share the default table and the queue of the freeze, which are for one thread at a time.
// Questions come from any number of threads.
std::mutex g_oneQuestion;

// A tree for one question, the only one of its time. Without memory for it there is none, and nothing can be added.
class Tree {
 public:
  Tree() : m_lock(g_oneQuestion), m_root(KxWildcardEmail::makeNewTree()) {}

  bool add(const char* pattern) { return m_root != nullptr && m_root->addAddressPattern(pattern, 0, nullptr, nullptr); }
  Matches findMatches(const char* address) {
    Matches matches;
    if (m_root != nullptr) {
      m_root->findMatches(address, matches);
    }
    return matches;
  }

 private:
  std::lock_guard<std::mutex> m_lock;  // let go when the root is destroyed
  std::unique_ptr<KxWildcardNode> m_root;
};

// A root that is null, or without entities that could be its relatives. True when the answer, in `status`, is known by
// that.
bool isAnswered(const char* rootEntity, const EntitySet& entities, const char* nullFormat, int& status) {
  if (rootEntity == nullptr) {
    PolicyLog::log(LogLevel::Error, "%s", nullFormat);
    status = ZaroErrC::NullArgument;
    return true;
  }
  if (entities.empty()) {
    PolicyLog::log(LogLevel::Trace, "No entities to add");
    status = ZaroErrC::Success;
    return true;
  }
  return false;
}

const char* shownRoot(const char* rootEntity) {
  return rootEntity != nullptr ? rootEntity : "(null)";
}

}  // namespace

int EntityUtils::getAllWildcardChildren(const char* rootEntity, EntitySet& entities, EntitySet& found, bool removeFound) {
  int status = ZaroErrC::Success;
  if (isAnswered(rootEntity, entities, "EntityUtils::getAllWildcardChildren: NULL rootEntity parameter", status)) {
    return status;
  }
  Tree tree;
  if (!tree.add(rootEntity)) {
    PolicyLog::log(LogLevel::Error,
                   "EntityUtils::getAllWildcardChildren: KxWildcardNode::addAddressPattern failed for %s (rootEntity)",
                   rootEntity);
    return ZaroErrC::InvalidValue;
  }
  for (const GroupEntity& entity : entities) {
    const char* name = entity.name.c_str();
    if (entity.name == rootEntity) {
      continue;
    }
    const int count = static_cast<int>(tree.findMatches(name).size());
    PolicyLog::log(LogLevel::Trace, "Checking if entity %s is a child of %s returned %d matches", name, rootEntity,
                   count);
    if (count == 0) {
      continue;
    }
    if (count > 1) {
      PolicyLog::log(LogLevel::Error,
                     "EntityUtils::getAllWildcardChildren: Found %d matches when looking for \"%s\" in \"%s\"", count,
                     name, rootEntity);
    }
    PolicyLog::log(LogLevel::Trace, "1: entity %s", name);
    found.insert(entity);
  }
  if (removeFound) {
    _removeFoundEntities(entities, found);
  }
  return ZaroErrC::Success;
}

int EntityUtils::getAllWildcardParents(const char* rootEntity, EntitySet& entities, EntitySet& found, bool removeFound) {
  int status = ZaroErrC::Success;
  if (isAnswered(rootEntity, entities, "EntityUtils::getAllWildcardParents: NULL rootEntity parameter", status)) {
    return status;
  }
  Tree tree;
  for (const GroupEntity& entity : entities) {
    PolicyLog::log(LogLevel::Trace, "Adding entity %s to KxWildcardNode", entity.name.c_str());
    if (!tree.add(entity.name.c_str())) {
      PolicyLog::log(LogLevel::Error,
                     "EntityUtils::getAllWildcardParents: KxWildcardNode::addAddressPattern failed for %s",
                     entity.name.c_str());
    }
  }
  const Matches matches = tree.findMatches(rootEntity);
  PolicyLog::log(LogLevel::Trace, "Found %d matches", static_cast<int>(matches.size()));
  int number = 0;
  for (const KxListedEmailAddress* match : matches) {
    ++number;
    GroupEntity wanted;
    wanted.name = match->getFullAddressAsStr();
    // As the tree compares: its letters are lowered as ASCII, whatever the locale.
    if (ZARO::equalsIgnoringAsciiCase(wanted.name, rootEntity)) {
      continue;
    }
    PolicyLog::log(LogLevel::Trace, "%d: entity %s", number, wanted.name.c_str());
    const auto parent = entities.find(wanted);
    if (parent == entities.end()) {
      PolicyLog::log(LogLevel::Error, "EntityUtils::getAllWildcardParents: Could not find %s in map",
                     wanted.name.c_str());
      return ZaroErrC::MissingData;
    }
    found.insert(*parent);
  }
  if (removeFound) {
    _removeFoundEntities(entities, found);
  }
  return ZaroErrC::Success;
}

int EntityUtils::getAllLdapChildren(const char* rootEntity, EntitySet& /*entities*/, EntitySet& /*found*/,
                                    bool /*removeFound*/) {
  PolicyLog::log(LogLevel::Trace, "EntityUtils::getAllLdapChildren: checking root entity %s\n", shownRoot(rootEntity));
  return ZaroErrC::Success;
}

int EntityUtils::getAllLdapParents(const char* rootEntity, EntitySet& /*entities*/, EntitySet& /*found*/,
                                   bool /*removeFound*/) {
  PolicyLog::log(LogLevel::Trace, "EntityUtils::getAllLdapParents: rootEntity: %s\n", shownRoot(rootEntity));
  return ZaroErrC::Success;
}

void EntityUtils::_removeFoundEntities(EntitySet& entities, EntitySet& found) {
  std::size_t removed = 0;
  for (auto entity = entities.begin(); entity != entities.end() && removed != found.size();) {
    if (found.count(*entity) == 0) {
      ++entity;
      continue;
    }
    PolicyLog::log(LogLevel::Trace, "Removing found entry %s from the map", entity->name.c_str());
    entity = entities.erase(entity);
    ++removed;
  }
}
