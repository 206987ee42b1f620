#include "AddressGroups.h"

#include "AddressGroup.h"
#include "Database.h"
#include "Text.h"
#include "ZaroErrC.h"
#include "ZaroRuntime/RuntimeError.h"

using zaroruntime::RuntimeError;

namespace {

// Groups of organisations that cannot see each other may have one name.
unsigned int findGroup(zaroruntime::SqlSession& session, const std::string& name) {
  const auto rows =
      session.rows("SELECT id FROM named_object WHERE type=5 AND name=" + zaroruntime::sqlLiteral(name) + " ORDER BY id");
  if (rows.empty()) {
    throw RuntimeError("no address group named " + quoted(name));
  }
  if (rows.size() > 1) {
    throw RuntimeError(std::to_string(rows.size()) + " address groups are named " + quoted(name));
  }
  return static_cast<unsigned int>(std::stoul(rows.front().front().value_or("")));
}

}  // namespace

std::vector<std::string> membersOfGroup(const std::string& name) {
  connectToDatabase();
  const auto session = openSession();
  const unsigned int id = findGroup(*session, name);
  std::vector<AddressGroup::AddressGroupMember> members;
  const int code = AddressGroup::getAddressGroupMembersByID(id, members);
  // A failure half way answers success.
  const auto stored = session->value("SELECT count(*) FROM address_group_member WHERE group_id=" + std::to_string(id));
  if (code != ZaroErrC::Success || std::to_string(members.size()) != stored.value_or("")) {
    throw RuntimeError("cannot read the address group " + quoted(name) + ": " + databaseFailure());
  }
  std::vector<std::string> addresses;
  addresses.reserve(members.size());
  for (auto& member : members) {
    addresses.push_back(std::move(member.second));
  }
  return addresses;
}
