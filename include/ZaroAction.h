// The vocabulary of rule actions: what a policy rule does with a message.
//
// 1. The numbers are stored in rule data and the names are compared by other programs: neither ever changes, odd ones
//    included. A lower number is a stronger action.
// 2. Everything static here is without state: any thread may call it at any time. Nothing throws, apart from
//    `CreateActionTokenString`.
#pragma once

#include <string>
#include <vector>

#include "ZaroPolicyExport.h"
#include "ZaroTable.h"

class ZARO_POLICY_EXPORT ZaroAction {
 public:
  // Rule data may hold any other number; it is an unknown action, and every operation has an answer for it.
  enum ActionType : int {
    Archive = 0,
    Delete = 1,
    Quarantine = 2,
    Readdress = 3,
    DeleteAttachment = 4,
    VirusClean = 5,
    HeaderTagging = 6,
    SubjectTagging = 7,
    Stamp = 8,
    Bcc = 9,
    Notify = 10,
    Handoff = 11,
    Postpone = 12,
    LogOnly = 13,
    Veridock = 16,
    InsertXHeader = 18,
    IBEEncrypt = 21,
    IBEEncryptReserved = 22,  // logged like IBEEncrypt, otherwise unknown
  };

  // Whether an action changes one side of a message. Unexpected: not classified, and the question is logged.
  enum class Change { No, Yes, Unexpected };

  struct Definition {
    ActionType type;
    const char* name;         // in logs
    const char* nameForXHdr;  // in the X-header that records what was done
    bool terminal;
    Change header;
    Change body;
  };

  // A position of the action bitmap that has a display text.
  struct TokenPosition {
    int position;             // from 0
    const char* resourceKey;  // in section "UiDisplay" of the resource bundle
  };

  // Characters of a valid action bitmap.
  static constexpr int kActionBitMapLength = 17;

  virtual ~ZaroAction();
  // Around the run of an action, for those that need it; the library calls neither.
  virtual void begin();
  virtual void end();
  virtual ActionType getActionType() const = 0;
  // Whether the action needs the message as it came in.
  virtual bool isOriginalMsgRequired() const = 0;

  // The known actions, strongest first.
  static ZaroTable<Definition> definitions();
  // The positions in the order of the display string, which is neither their own nor that of the actions.
  static ZaroTable<TokenPosition> tokenPositions();

  // Literals, never null: "Unknown" and "unknown" for an unknown action.
  static const char* getActionName(ActionType type);
  static const char* getActNameForXHdr(ActionType type);

  // Whether the action ends the delivery of the message; false for an unknown one.
  static bool IsTerminal(ActionType type);

  // Whether the action changes the message's header or body. One that is not classified, unknown ones included,
  // is logged at level 1 and taken to change it, which is the safe side.
  static bool willModifyMsgHdr(ActionType type);
  static bool willModifyMsgBody(ActionType type);
  // Whether any of the actions does; none after the first that does is asked. No pointer may be null, here and below.
  static bool willModifyMsgHdr(const std::vector<ZaroAction*>& actions);
  static bool willModifyMsgBody(const std::vector<ZaroAction*>& actions);

  // Whether any of the actions needs the message as it came in.
  static bool originalMsgRequired(const std::vector<ZaroAction*>& actions);

  // The strongest of the actions, but nothing weaker than LogOnly, which is also the answer for none.
  static ActionType getHighestOrderAction(const std::vector<ZaroAction*>& actions);

  // Lists the actions of a bitmap in the installation's language, joined by "; ".
  //   pActionBitMap   kActionBitMapLength characters; one set is "1", anything else is not set
  //   tokens          replaced; empty when no position with a display text is set, and on failure
  // Returns false for null or a text of another length (logged at level 1). A display text that is missing is logged at
  // level 1 and its key shown instead. A `const char*` that the resource bundle throws passes through, and `tokens`
  // then holds what was listed so far.
  static bool CreateActionTokenString(const char* pActionBitMap, std::string& tokens);
};

// Text of a message that an action can put in another's place, and take back.
class ZARO_POLICY_EXPORT Replaceable {
 public:
  virtual ~Replaceable();
  virtual bool isReplaced() const = 0;
  virtual const std::string& getText() const = 0;
  virtual void replace(const std::string& text) = 0;
  virtual void restore() = 0;
};
