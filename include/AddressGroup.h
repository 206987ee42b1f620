// Address groups: named lists of e-mail addresses that rules refer to as one.
//
// 1. Every operation opens a database connection of its own and runs one statement: `RdbmsInterface::Init` must have
//    run. They may be called from any thread; writers of one group are ordered by the database.
// 2. A failure of the database layer is logged at level 1 and answered with 0, like success. A caller that needs to
//    know reads the group back.
// 3. Members go into the statement as they are: a caller that takes them from outside sees to it that they hold no
//    tags of the list ("<ma>" and its kin), and doubles their quotes. Names and members are UTF-8; what is not is a
//    failure of the database layer.
// 4. A transaction of the caller's does not reach here: what it has not committed is not seen, and what is done here
//    stays when it rolls back. Inside one that has written, no group is written with SQLite, which has one writer at a
//    time: the operation waits for 10 seconds (twice `Timeout` of the data source) and then fails. With PostgreSQL it
//    waits for rows that the transaction has changed, for ever unless the server has a `lock_timeout`. So write groups
//    before or after a transaction.
#pragma once

#include <string>
#include <vector>

#include "ZaroNamedObj.h"
#include "ZaroPolicyExport.h"

class ZARO_POLICY_EXPORT AddressGroup : public ZaroNamedObj {
 public:
  struct AddressGroupMember {
    int first = 0;       // not used; 0 in members that are read
    std::string second;  // an address or address pattern
  };

  ~AddressGroup() override;
  NaObjType getType() const override;

  // Adds a group with its members, in their order.
  //   adminId    the administrator who adds it
  //   entityId   the entity that owns it; 0: every entity of the administrator
  // Returns 0, or
  //   4008  there is no memory for the statement; nothing has been done
  static int addAddressGroup(unsigned int adminId, const char* groupName, unsigned int entityId,
                             std::vector<AddressGroupMember>& members);
  // Replaces name and members of a group. Returns as `addAddressGroup`.
  static int modifyAddressGroup(unsigned int groupId, const char* groupName, std::vector<AddressGroupMember>& members);
  // Deletes a group, if it is there. Returns 0.
  static int deleteAddressGroupByID(unsigned int groupId);
  // Appends the members of a group, in their order. Returns 0, or
  //   6003  an address is NULL, logged at level 1; members before it are there
  static int getAddressGroupMembersByID(unsigned int groupId, std::vector<AddressGroupMember>& members);
};
