#include "store/AddressGroups.h"

#include <algorithm>
#include <iterator>

#include "AddressGroup.h"
#include "ZaroErrC.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "store/Administration.h"
#include "store/Database.h"

using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

// The statement has this much room for the quotes of the name, which are doubled; see docs/statement-files.md.
constexpr std::ptrdiff_t kMostQuotes = 40;
// They set members apart from each other on the way to the database.
constexpr const char* kTags[] = {"<ma>", "</ma>", "<mas>", "</mas>"};

std::vector<GroupSummary> groupsWhere(const std::string& condition) {
  requireLibrary();
  std::vector<GroupSummary> groups;
  const auto rows = openSession()->rows(
      "SELECT id, name, (SELECT count(*) FROM address_group_member WHERE group_id = id) FROM named_object "
      "WHERE type = 5 AND " +
      condition + " ORDER BY name, id");
  groups.reserve(rows.size());
  for (const auto& row : rows) {
    groups.push_back({static_cast<unsigned int>(std::stoul(row[0].value_or(""))), row[1].value_or(""),
                      static_cast<std::size_t>(std::stoull(row[2].value_or("")))});
  }
  return groups;
}

std::vector<AddressGroup::AddressGroupMember> forTheLibrary(const std::vector<std::string>& addresses) {
  std::vector<AddressGroup::AddressGroupMember> members(addresses.size());
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    for (const char character : addresses[i]) {
      members[i].second.append(character == '\'' ? 2 : 1, character);
    }
  }
  return members;
}

void requireStored(unsigned int id, int code, const std::string& name, const std::vector<std::string>& members) {
  const std::string begin = "the address group " + quoted(name) + " was not stored";
  if (code != ZaroErrC::Success) {
    throw RuntimeError(begin + " (code " + std::to_string(code) + ")");
  }
  const auto found = groupsWhere("id = " + std::to_string(id));
  if (found.size() != 1 || found.front().name != name || membersOf(found.front()) != members) {
    throw RuntimeError(begin + " as given: " + databaseFailure());
  }
}

// 0 when there is none yet.
unsigned int highestGroup() {
  const auto id = openSession()->value("SELECT max(id) FROM named_object WHERE type = 5");
  return id ? static_cast<unsigned int>(std::stoul(*id)) : 0;
}

}  // namespace

std::vector<GroupSummary> listGroups() {
  return groupsWhere("1 = 1");
}

GroupSummary findGroup(const std::string& name) {
  const auto groups = groupsWhere("name = " + sqlLiteral(name));
  if (groups.empty()) {
    throw NotThere("no address group named " + quoted(name));
  }
  if (groups.size() > 1) {
    throw RuntimeError(std::to_string(groups.size()) + " address groups are named " + quoted(name));
  }
  return groups.front();
}

GroupSummary findGroup(unsigned int id) {
  const auto groups = groupsWhere("id = " + std::to_string(id));
  if (groups.empty()) {
    throw NotThere("no address group " + std::to_string(id));
  }
  return groups.front();
}

std::vector<std::string> membersOf(const GroupSummary& group) {
  std::vector<AddressGroup::AddressGroupMember> members;
  const int code = AddressGroup::getAddressGroupMembersByID(group.id, members);
  if (code != ZaroErrC::Success || members.size() != group.members) {
    throw RuntimeError("cannot read the address group " + quoted(group.name) + ": " + databaseFailure());
  }
  std::vector<std::string> addresses;
  addresses.reserve(members.size());
  for (auto& member : members) {
    addresses.push_back(std::move(member.second));
  }
  return addresses;
}

std::string wrongMember(const std::string& address) {
  std::string fault = wrongName(address);
  if (!fault.empty()) {
    return fault;
  }
  if (std::any_of(std::begin(kTags), std::end(kTags),
                  [&](const char* tag) { return address.find(tag) != std::string::npos; })) {
    return "holds a tag of the list of members";
  }
  if (address.find(' ') != std::string::npos) {
    return "holds a blank";
  }
  return address.find('@') == std::string::npos ? "has no @" : "";
}

std::string wrongGroupName(const std::string& name) {
  std::string fault = wrongName(name);
  if (!fault.empty()) {
    return fault;
  }
  return std::count(name.begin(), name.end(), '\'') > kMostQuotes
             ? "has more than " + std::to_string(kMostQuotes) + " quotes"
             : "";
}

GroupSummary addGroup(const std::string& adminName, unsigned int entityId, const std::string& name,
                      const std::vector<std::string>& members) {
  const unsigned int adminId = adminIdOf(adminName);
  const unsigned int before = highestGroup();
  auto list = forTheLibrary(members);
  const int code = AddressGroup::addAddressGroup(adminId, name.c_str(), entityId, list);
  // Identifiers grow, and one is not given away again; another program may have added a group as well.
  const auto added = groupsWhere("id > " + std::to_string(before) + " AND name = " + sqlLiteral(name));
  const auto isNew = [&](const GroupSummary& group) { return membersOf(group) == members; };
  const auto found = std::find_if(added.begin(), added.end(), isNew);
  if (code != ZaroErrC::Success || found == added.end()) {
    throw RuntimeError("the address group " + quoted(name) + " was not added: " + databaseFailure());
  }
  return *found;
}

void changeGroup(const GroupSummary& group, const std::string& name, const std::vector<std::string>& members) {
  auto list = forTheLibrary(members);
  requireStored(group.id, AddressGroup::modifyAddressGroup(group.id, name.c_str(), list), name, members);
}

void removeGroup(const GroupSummary& group) {
  AddressGroup::deleteAddressGroupByID(group.id);
  if (!groupsWhere("id = " + std::to_string(group.id)).empty()) {
    throw RuntimeError("the address group " + quoted(group.name) + " was not removed: " + databaseFailure());
  }
}
