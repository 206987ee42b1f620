// Address groups in the database.
#include "AddressGroup.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "ZaroErrC.h"
#include "db/StoreStatement.h"

using ZARO::EscapedText;
using ZARO::RdbmsInterface;
using ZARO::shownText;
using Members = std::vector<AddressGroup::AddressGroupMember>;

namespace {

// The form in which a list of members goes into a statement, which splits it again.
std::string memberList(const Members& members) {
  constexpr std::size_t kRoomPerMember = 50;
  std::string list;
  list.reserve(members.size() * kRoomPerMember);
  list += "<mas>";
  for (const AddressGroup::AddressGroupMember& member : members) {
    list += "<ma>";
    list += member.second;
    list += "</ma>";
  }
  list += "</mas>";
  return list;
}

// Runs the statement that writes a group; `load` gives it its parameters, the escaped name and the list of members
// among them.
template <typename Load>
int writeGroup(const char* groupName, const Members& members, Load load) {
  RdbmsInterface db;
  return ZARO::catchThrownText(
      [&]() -> int {
        const EscapedText name(groupName);
        const std::string list = memberList(members);
        // By the name as it came: one that grows by its quotes must find its room in what the statement does not use.
        constexpr std::size_t kRoomForTheRest = 100;
        const std::size_t length = groupName != nullptr ? std::strlen(groupName) : 0;
        const std::size_t size = length + list.size() + kRoomForTheRest;
        const std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
        if (buffer == nullptr) {
          return ZaroErrC::NoStatementBuffer;
        }
        ZARO::StatementText statement(buffer.get(), static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        load(statement, name.get(), list.c_str());
        db.executeSQL(statement.get());
        return ZaroErrC::Success;
      },
      [&](const char* thrown) -> int {
        // Changing a group is logged under the name of adding one, which log watchers look for.
        PolicyLog::log(LogLevel::Error, "AddressGroup::addAddressGroup Exception \"%s\" thrown for group %s.", thrown,
                       shownText(groupName));
        return ZaroErrC::Success;
      });
}

// Runs an operation on one group. A thrown text is logged and answered like success.
template <typename Operation>
int answeringSuccess(const char* format, unsigned int groupId, Operation operation) {
  return ZARO::catchThrownText(operation, [&](const char* thrown) -> int {
    PolicyLog::log(LogLevel::Error, format, thrown, groupId);
    return ZaroErrC::Success;
  });
}

}  // namespace

AddressGroup::~AddressGroup() = default;

ZaroNamedObj::NaObjType AddressGroup::getType() const {
  return GroupOfAddresses;
}

int AddressGroup::addAddressGroup(unsigned int adminId, const char* groupName, unsigned int entityId,
                                  std::vector<AddressGroupMember>& members) {
  return writeGroup(groupName, members, [&](ZARO::StatementText& statement, const char* name, const char* list) {
    statement.load("ui_AddAddressgroup.sql", adminId, name, entityId, list);
  });
}

int AddressGroup::modifyAddressGroup(unsigned int groupId, const char* groupName,
                                     std::vector<AddressGroupMember>& members) {
  return writeGroup(groupName, members, [&](ZARO::StatementText& statement, const char* name, const char* list) {
    statement.load("ui_ModifyAddressgroup.sql", groupId, name, list);
  });
}

int AddressGroup::deleteAddressGroupByID(unsigned int groupId) {
  RdbmsInterface db;
  ZARO::StoreStatement<8192> statement(db);
  return answeringSuccess("AddressGroup::deleteAddressGroupByID: Exception \"%s\" thrown for group %d.", groupId,
                          [&]() -> int {
                            statement.run("ui_RemoveAddressgroup.sql", groupId);
                            return ZaroErrC::Success;
                          });
}

int AddressGroup::getAddressGroupMembersByID(unsigned int groupId, std::vector<AddressGroupMember>& members) {
  RdbmsInterface db;
  ZARO::StoreStatement<8192> statement(db);
  const auto read = [&]() -> int {
    statement.run("ui_GetMemberAddressByAGId.sql", groupId);
    while (db.fetchNextRow() == 0) {
      const char* column = db.getColVal("MemberAddress");
      if (column == nullptr) {
        PolicyLog::log(LogLevel::Error,
                       "AddressGroup::getAddressGroupMembersByID: Failed to retrieve member address from group %d for "
                       "statement %s.",
                       groupId, statement.text());
        return ZaroErrC::NullMember;
      }
      AddressGroupMember member;
      member.second = column;
      members.push_back(member);
    }
    return ZaroErrC::Success;
  };
  return answeringSuccess("AddressGroup::getAddressGroupMembersByID: Exception \"%s\" thrown for group %d.", groupId,
                          read);
}
