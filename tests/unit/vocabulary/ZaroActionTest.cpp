// Actions: names, ranks and properties.
#include "ZaroAction.h"

#include <gmock/gmock.h>

#include <climits>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "scripted/Prelude.h"

namespace {

static_assert(std::is_same_v<std::underlying_type_t<ZaroAction::ActionType>, int>, "holds every stored number");

enum Answer { no, yes, unexpected };

struct ActionCase {
  int value;
  const char* name;
  const char* nameForXHdr;
  bool terminal;
  Answer header;
  Answer body;
};

const ActionCase kActionCases[] = {
    {0, "ArchiveAction", "archive", false, no, no},
    {1, "DeleteAction", "delete", true, no, no},
    {2, "QuarantineAction", "quarantine", true, no, no},
    {3, "ReaddressAction", "readdress", true, yes, no},
    {4, "DeleteAttachmentAction", "delete_attachment", false, no, yes},
    {5, "VirusCleanAction", "clean", false, no, yes},
    {6, "HeaderTaggingAction", "tag", false, unexpected, unexpected},
    {7, "SubjectTaggingAction", "tag", false, no, yes},
    {8, "StampAction", "stamp", false, no, yes},
    {9, "BccAction", "BCC", false, yes, no},
    {10, "NotifyAction", "notification", false, no, no},
    {11, "HandoffAction", "handoff", true, no, no},
    {12, "PostponeAction", "postpone", false, no, no},
    {13, "LogOnly", "log", false, no, no},
    {14, "Unknown", "unknown", false, unexpected, unexpected},
    {15, "Unknown", "unknown", false, unexpected, unexpected},
    {16, "VeridockAction", "veridock", false, no, no},
    {17, "Unknown", "unknown", false, unexpected, unexpected},
    {18, "InsertXHeaderTag", "xheader", false, no, no},
    {19, "Unknown", "unknown", false, unexpected, unexpected},
    {20, "Unknown", "unknown", false, unexpected, unexpected},
    {21, "IBEEncryptAction", "ibeencrypt", false, no, no},
    {22, "IBEEncryptAction", "unknown", false, unexpected, unexpected},
    {23, "Unknown", "unknown", false, unexpected, unexpected},
    {24, "Unknown", "unknown", false, unexpected, unexpected},
    {256, "Unknown", "unknown", false, unexpected, unexpected},
    {INT_MAX, "Unknown", "unknown", false, unexpected, unexpected},
    {-1, "Unknown", "unknown", false, unexpected, unexpected},
    {-256, "Unknown", "unknown", false, unexpected, unexpected},
    {INT_MIN, "Unknown", "unknown", false, unexpected, unexpected},
};

// What the vocabulary leaves out.
const std::set<int> kGaps = {14, 15, 17, 19, 20};

ZaroAction::ActionType type(int value) {
  return static_cast<ZaroAction::ActionType>(value);
}

// An action as the message pipeline has it; it records being asked.
class TestAction : public ZaroAction {
 public:
  TestAction(int value, bool needsOriginal) : m_value(value), m_needsOriginal(needsOriginal) {}

  ActionType getActionType() const override {
    ++m_asked;
    return type(m_value);
  }
  bool isOriginalMsgRequired() const override {
    ++m_asked;
    return m_needsOriginal;
  }
  int asked() const { return m_asked; }

 private:
  int m_value;
  bool m_needsOriginal;
  mutable int m_asked = 0;
};

// Actions of these types, and the vector that the operations take.
class Actions {
 public:
  explicit Actions(const std::vector<int>& values) {
    for (const int value : values) {
      add(value, false);
    }
  }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;

  Actions& add(int value, bool needsOriginal) {
    m_pointers.push_back(&m_actions.emplace_back(value, needsOriginal));
    return *this;
  }
  const std::vector<ZaroAction*>& pointers() const { return m_pointers; }
  std::vector<int> asked() const {
    std::vector<int> counts;
    for (const TestAction& action : m_actions) {
      counts.push_back(action.asked());
    }
    return counts;
  }

 private:
  std::deque<TestAction> m_actions;
  std::vector<ZaroAction*> m_pointers;
};

class ActionTest : public scripted::PlatformTest {
 protected:
  static LogLines lines() { return scripted::platform().log.lines(); }
};

// The lines that a question about an action leaves.
LogLines expectedLines(Answer answer, const char* question, const ActionCase& row) {
  if (answer != unexpected) {
    return {};
  }
  return {error(std::string("ZaroAction::") + question + ": unexpected action " + row.name + " (" +
                std::to_string(row.value) + ")")};
}

}  // namespace

using ActionNames = ActionTest;

TEST_F(ActionNames, areThoseOfTheLogs) {
  for (const ActionCase& row : kActionCases) {
    EXPECT_STREQ(ZaroAction::getActionName(type(row.value)), row.name) << row.value;
  }
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionNames, areThoseOfTheXHeader) {
  for (const ActionCase& row : kActionCases) {
    EXPECT_STREQ(ZaroAction::getActNameForXHdr(type(row.value)), row.nameForXHdr) << row.value;
  }
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionNames, stayAsTheyAreInLaterCalls) {
  std::vector<std::pair<const char*, const char*>> names;
  for (const ActionCase& row : kActionCases) {
    names.emplace_back(ZaroAction::getActionName(type(row.value)), ZaroAction::getActNameForXHdr(type(row.value)));
  }
  std::size_t at = 0;
  for (const ActionCase& row : kActionCases) {
    EXPECT_STREQ(names[at].first, row.name) << row.value;
    EXPECT_STREQ(names[at].second, row.nameForXHdr) << row.value;
    EXPECT_EQ(names[at].first, ZaroAction::getActionName(type(row.value))) << row.value;
    EXPECT_EQ(names[at].second, ZaroAction::getActNameForXHdr(type(row.value))) << row.value;
    ++at;
  }
}

using ActionProperties = ActionTest;

TEST_F(ActionProperties, tellWhichActionsEndTheDelivery) {
  for (const ActionCase& row : kActionCases) {
    EXPECT_EQ(ZaroAction::IsTerminal(type(row.value)), row.terminal) << row.value;
  }
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionProperties, tellWhichActionsChangeTheHeader) {
  for (const ActionCase& row : kActionCases) {
    scripted::platform().log.clear();
    EXPECT_EQ(ZaroAction::willModifyMsgHdr(type(row.value)), row.header != no) << row.value;
    EXPECT_EQ(lines(), expectedLines(row.header, "willModifyMsgHdr", row)) << row.value;
  }
}

TEST_F(ActionProperties, tellWhichActionsChangeTheBody) {
  for (const ActionCase& row : kActionCases) {
    scripted::platform().log.clear();
    EXPECT_EQ(ZaroAction::willModifyMsgBody(type(row.value)), row.body != no) << row.value;
    EXPECT_EQ(lines(), expectedLines(row.body, "willModifyMsgBody", row)) << row.value;
  }
}

TEST_F(ActionProperties, logAnUnexpectedActionByNameAndNumber) {
  EXPECT_TRUE(ZaroAction::willModifyMsgHdr(type(-1)));
  EXPECT_TRUE(ZaroAction::willModifyMsgHdr(type(6)));
  EXPECT_TRUE(ZaroAction::willModifyMsgBody(type(6)));
  EXPECT_TRUE(ZaroAction::willModifyMsgBody(type(22)));
  EXPECT_EQ(lines(), (LogLines{error("ZaroAction::willModifyMsgHdr: unexpected action Unknown (-1)"),
                               error("ZaroAction::willModifyMsgHdr: unexpected action HeaderTaggingAction (6)"),
                               error("ZaroAction::willModifyMsgBody: unexpected action HeaderTaggingAction (6)"),
                               error("ZaroAction::willModifyMsgBody: unexpected action IBEEncryptAction (22)")}));
}

TEST_F(ActionProperties, areListedForEveryKnownAction) {
  auto definition = ZaroAction::definitions().begin();
  std::size_t listed = 0;
  for (const ActionCase& row : kActionCases) {
    if (row.value < 0 || row.value > 22 || kGaps.count(row.value) != 0) {
      continue;
    }
    ++listed;
    ASSERT_LE(listed, ZaroAction::definitions().size());
    EXPECT_EQ(definition->type, row.value);
    EXPECT_STREQ(definition->name, row.name);
    EXPECT_STREQ(definition->nameForXHdr, row.nameForXHdr);
    EXPECT_EQ(definition->terminal, row.terminal);
    EXPECT_EQ(static_cast<int>(definition->header), row.header);
    EXPECT_EQ(static_cast<int>(definition->body), row.body);
    ++definition;
  }
  EXPECT_EQ(ZaroAction::definitions().size(), listed);
}

using ActionVectors = ActionTest;

TEST_F(ActionVectors, answerNoForNone) {
  const Actions none({});
  EXPECT_FALSE(ZaroAction::willModifyMsgHdr(none.pointers()));
  EXPECT_FALSE(ZaroAction::willModifyMsgBody(none.pointers()));
  EXPECT_FALSE(ZaroAction::originalMsgRequired(none.pointers()));
  EXPECT_EQ(ZaroAction::getHighestOrderAction(none.pointers()), 13);
}

TEST_F(ActionVectors, stopAtTheFirstThatChangesTheHeader) {
  const Actions actions({0, 9, 14, 3});
  EXPECT_TRUE(ZaroAction::willModifyMsgHdr(actions.pointers()));
  EXPECT_THAT(actions.asked(), ElementsAre(1, 1, 0, 0));
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionVectors, stopAtTheFirstThatChangesTheBody) {
  const Actions actions({3, 4, -1});
  EXPECT_TRUE(ZaroAction::willModifyMsgBody(actions.pointers()));
  EXPECT_THAT(actions.asked(), ElementsAre(1, 1, 0));
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionVectors, takeAnUnexpectedActionForOneThatChanges) {
  const Actions actions({0, 6, 22});
  EXPECT_TRUE(ZaroAction::willModifyMsgHdr(actions.pointers()));
  EXPECT_TRUE(ZaroAction::willModifyMsgBody(actions.pointers()));
  EXPECT_EQ(lines(), (LogLines{error("ZaroAction::willModifyMsgHdr: unexpected action HeaderTaggingAction (6)"),
                               error("ZaroAction::willModifyMsgBody: unexpected action HeaderTaggingAction (6)")}));
}

TEST_F(ActionVectors, answerNoWhenNoneChanges) {
  const Actions actions({0, 1, 2, 10, 11, 12, 13, 16, 18, 21});
  EXPECT_FALSE(ZaroAction::willModifyMsgHdr(actions.pointers()));
  EXPECT_FALSE(ZaroAction::willModifyMsgBody(actions.pointers()));
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionVectors, agreeWithTheQuestionAboutEachAction) {
  for (const ActionCase& row : kActionCases) {
    scripted::platform().log.clear();
    EXPECT_EQ(ZaroAction::willModifyMsgHdr(Actions({13, row.value}).pointers()), row.header != no) << row.value;
    EXPECT_EQ(lines(), expectedLines(row.header, "willModifyMsgHdr", row)) << row.value;
    scripted::platform().log.clear();
    EXPECT_EQ(ZaroAction::willModifyMsgBody(Actions({13, row.value}).pointers()), row.body != no) << row.value;
    EXPECT_EQ(lines(), expectedLines(row.body, "willModifyMsgBody", row)) << row.value;
  }
}

TEST_F(ActionVectors, askForTheOriginalInOrder) {
  Actions actions({0});
  actions.add(1, true).add(2, true);
  EXPECT_TRUE(ZaroAction::originalMsgRequired(actions.pointers()));
  EXPECT_THAT(actions.asked(), ElementsAre(1, 1, 0));
  const Actions withoutNeed({0, 1, 6, -1});
  EXPECT_FALSE(ZaroAction::originalMsgRequired(withoutNeed.pointers()));
  EXPECT_THAT(withoutNeed.asked(), ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(lines(), LogLines());
}

TEST_F(ActionVectors, rankByTheSmallestNumberUpToLogOnly) {
  const struct {
    const char* label;
    std::vector<int> values;
    int highest;
  } cases[] = {
      {"one", {5}, 5},
      {"in any order", {2, 0, 1}, 0},
      {"ties", {7, 7}, 7},
      {"weaker than log only", {16, 18}, 13},
      {"every weaker one", {13, 16, 18, 21, 22}, 13},
      {"log only and a stronger one", {13, 12}, 12},
      {"unknown ones above", {14, INT_MAX}, 13},
      {"a negative number is stronger than all", {0, -1}, -1},
      {"the most negative", {INT_MIN, 0}, INT_MIN},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(ZaroAction::getHighestOrderAction(Actions(row.values).pointers()), row.highest) << row.label;
  }
  EXPECT_EQ(lines(), LogLines());
}

TEST(ActionSlots, areWhereSeparatelyBuiltProgramsCallThem) {
  // Two slots of the destructor and two operations come first.
  const TestAction action(21, true);
  const ZaroAction* object = &action;
  void* const* slots = *reinterpret_cast<void* const* const*>(object);
  const auto getType = reinterpret_cast<int (*)(const ZaroAction*)>(slots[4]);
  const auto needsOriginal = reinterpret_cast<bool (*)(const ZaroAction*)>(slots[5]);
  EXPECT_EQ(getType(object), 21);
  EXPECT_TRUE(needsOriginal(object));
}

TEST(ActionSlots, areFilledByASubclassOfTwoOperations) {
  class Smallest : public ZaroAction {
   public:
    ActionType getActionType() const override { return type(3); }
    bool isOriginalMsgRequired() const override { return false; }
  };
  const std::unique_ptr<ZaroAction> action = std::make_unique<Smallest>();
  action->begin();
  action->end();
  EXPECT_EQ(ZaroAction::getHighestOrderAction({action.get()}), 3);
}

TEST(Replaceable, isDestroyedThroughItsBase) {
  class Text : public Replaceable {
   public:
    explicit Text(bool& destroyed) : m_destroyed(destroyed) {}
    ~Text() override { m_destroyed = true; }
    bool isReplaced() const override { return false; }
    const std::string& getText() const override { return m_text; }
    void replace(const std::string& text) override { m_text = text; }
    void restore() override { m_text.clear(); }

   private:
    bool& m_destroyed;
    std::string m_text;
  };
  bool destroyed = false;
  std::unique_ptr<Replaceable> text = std::make_unique<Text>(destroyed);
  text->replace("other");
  EXPECT_EQ(text->getText(), "other");
  text.reset();
  EXPECT_TRUE(destroyed);
}
