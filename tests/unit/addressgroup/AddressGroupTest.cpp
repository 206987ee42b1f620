// Address groups: statements, member lists, codes and messages.
#include "AddressGroup.h"

#include "NothrowAllocationFailure.h"
#include "RdbmsInterface.h"
#include "scripted/Prelude.h"

namespace {

using Members = std::vector<AddressGroup::AddressGroupMember>;

Members members(const std::vector<std::string>& addresses) {
  Members made;
  for (const std::string& address : addresses) {
    made.push_back({7, address});
  }
  return made;
}

class Group : public PlatformTest {
 protected:
  void SetUp() override {
    for (const char* file : {"ui_AddAddressgroup.sql", "ui_ModifyAddressgroup.sql", "ui_RemoveAddressgroup.sql"}) {
      platform().database.replyToFile(file, Reply());
    }
  }
  static int add(const char* name, Members list) { return AddressGroup::addAddressGroup(4294967295u, name, 2, list); }
  static int modify(const char* name, Members list) { return AddressGroup::modifyAddressGroup(41, name, list); }
  static std::string statement() { return platform().database.statements().back(); }

  int read(const std::vector<Row>& rows) {
    platform().database.reply("ui_GetMemberAddressByAGId.sql [41]", Reply({"MemberAddress"}, rows));
    return AddressGroup::getAddressGroupMembersByID(41, m_members);
  }
  std::vector<std::string> addresses() const {
    std::vector<std::string> texts;
    for (const auto& member : m_members) {
      texts.push_back(std::to_string(member.first) + " " + member.second);
    }
    return texts;
  }

  Members m_members;
};

class Concrete : public AddressGroup {
 public:
  bool load(ZARO::RdbmsInterface&, unsigned int) override { return false; }
  bool store(ZARO::RdbmsInterface&, unsigned int) override { return false; }
};

TEST_F(Group, isANamedObjectOfTypeFive) {
  const Concrete group;
  const ZaroNamedObj& object = group;
  EXPECT_EQ(object.getType(), 5);
  EXPECT_EQ(sizeof(AddressGroup), sizeof(void*)) << "no data members";
  EXPECT_EQ(AddressGroup::AddressGroupMember().first, 0);
}

// --- Writing ---

TEST_F(Group, membersGoIntoTheStatementInTheirOrderAndAsTheyAre) {
  EXPECT_EQ(add("sales", members({"b", "a"})), 0);
  EXPECT_EQ(statement(), "ui_AddAddressgroup.sql [4294967295] [sales] [2] [<mas><ma>b</ma><ma>a</ma></mas>]");
  EXPECT_EQ(modify("sales", members({" o'brien ", "<ma>", ""})), 0);
  EXPECT_EQ(statement(), "ui_ModifyAddressgroup.sql [41] [sales] [<mas><ma> o'brien </ma><ma><ma></ma><ma></ma></mas>]");
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(Group, mayHaveNoMembers) {
  add("sales", {});
  EXPECT_EQ(statement(), "ui_AddAddressgroup.sql [4294967295] [sales] [2] [<mas></mas>]");
  modify("sales", {});
  EXPECT_EQ(statement(), "ui_ModifyAddressgroup.sql [41] [sales] [<mas></mas>]");
}

TEST_F(Group, nameIsEscaped) {
  add("o'b", {});
  EXPECT_EQ(statement(), "ui_AddAddressgroup.sql [4294967295] [o''b] [2] [<mas></mas>]");
  modify("'", {});
  EXPECT_EQ(statement(), "ui_ModifyAddressgroup.sql [41] [''] [<mas></mas>]");
}

TEST_F(Group, bufferGoesByTheNameAsItCame) {
  // The name, 11 bytes around the members, 9 around each, and 100.
  add("o'b", members({"ab", "c"}));
  EXPECT_EQ(platform().statements.last().bufferSize, 3 + 11 + 9 + 2 + 9 + 1 + 100);
  modify("", {});
  EXPECT_EQ(platform().statements.last().bufferSize, 111);
}

TEST_F(Group, operationsHaveAConnectionOfTheirOwnEach) {
  read({});
  add("a", {});
  modify("a", {});
  AddressGroup::deleteAddressGroupByID(41);
  const auto executions = platform().database.executions();
  ASSERT_EQ(executions.size(), 4u);
  for (std::size_t i = 0; i < executions.size(); ++i) {
    EXPECT_EQ(executions[i].connection, static_cast<int>(i) + 1);
  }
  EXPECT_EQ(platform().database.openConnections(), 0);
}

TEST_F(Group, withoutMemoryNothingIsDone) {
  for (const bool adding : {true, false}) {
    const NothrowAllocationFailure failure(2);  // the first is the connection
    EXPECT_EQ(adding ? add("a", {}) : modify("a", {}), 4008);
    EXPECT_TRUE(failure.happened());
  }
  EXPECT_THAT(platform().database.statements(), IsEmpty());
  EXPECT_THAT(platform().statements.loaded(), IsEmpty());
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(Group, failedWritesAreLoggedAlikeAndAnswerSuccess) {
  platform().faults.throwText(Point::Execute, "lost", 0);
  EXPECT_EQ(add("o'b", {}), 0);
  EXPECT_EQ(modify("o'b", {}), 0);
  const auto line = error("AddressGroup::addAddressGroup Exception \"lost\" thrown for group o'b.");
  EXPECT_EQ(platform().log.lines(), (LogLines{line, line}));
}

TEST_F(Group, nullNameIsNotWritten) {
  EXPECT_EQ(add(nullptr, {}), 0);
  EXPECT_EQ(modify(nullptr, {}), 0);
  EXPECT_THAT(platform().database.statements(), IsEmpty());
  EXPECT_EQ(platform().log.lines().size(), 2u);
}

TEST_F(Group, otherExceptionsPassAndTheConnectionIsClosed) {
  platform().faults.throwOther(Point::Execute, 0);
  EXPECT_THROW(add("a", {}), OtherFailure);
  EXPECT_THROW(modify("a", {}), OtherFailure);
  EXPECT_THROW(AddressGroup::deleteAddressGroupByID(41), OtherFailure);
  EXPECT_THROW(AddressGroup::getAddressGroupMembersByID(41, m_members), OtherFailure);
  EXPECT_EQ(platform().database.openConnections(), 0);
}

// --- Deleting ---

TEST_F(Group, isDeletedById) {
  EXPECT_EQ(AddressGroup::deleteAddressGroupByID(4294967294u), 0);
  EXPECT_EQ(statement(), "ui_RemoveAddressgroup.sql [4294967294]");
  EXPECT_EQ(platform().statements.last().bufferSize, 8192);
}

TEST_F(Group, failedDeletionAnswersSuccess) {
  platform().faults.throwText(Point::Load, "unreadable");
  EXPECT_EQ(AddressGroup::deleteAddressGroupByID(41), 0);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("AddressGroup::deleteAddressGroupByID: Exception \"unreadable\" thrown for group 41.")});
}

// --- Reading ---

TEST_F(Group, membersAreAppendedInTheOrderOfTheRows) {
  m_members = members({"there"});
  EXPECT_EQ(read({{"b@b.test"}, {""}, {"a@a.test"}}), 0);
  EXPECT_THAT(addresses(), ElementsAre("7 there", "0 b@b.test", "0 ", "0 a@a.test"));
  EXPECT_EQ(platform().statements.last().bufferSize, 8192);
}

TEST_F(Group, withoutMembersNothingIsAppended) {
  m_members = members({"there"});
  EXPECT_EQ(read({}), 0);
  EXPECT_EQ(m_members.size(), 1u);
}

TEST_F(Group, nullAddressIs6003) {
  EXPECT_EQ(read({{"a"}, {"b"}, {kNull}, {"d"}}), 6003);
  EXPECT_THAT(addresses(), ElementsAre("0 a", "0 b"));
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("AddressGroup::getAddressGroupMembersByID: Failed to retrieve member address from group 41 "
                           "for statement ui_GetMemberAddressByAGId.sql [41].")});
}

TEST_F(Group, failedReadingAnswersSuccess) {
  platform().faults.throwText(Point::FetchRow, "lost", 2);
  EXPECT_EQ(read({{"a"}, {"b"}}), 0);
  EXPECT_THAT(addresses(), ElementsAre("0 a"));
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("AddressGroup::getAddressGroupMembersByID: Exception \"lost\" thrown for group 41.")});
}

}  // namespace
