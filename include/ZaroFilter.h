// The vocabulary of rule filters: what makes a policy rule apply to a message.
//
// 1. The numbers are stored in the database and the names in rule-order records: neither ever changes, odd ones
//    included. A lower number ranks first.
// 2. Everything here is without state: any thread may call it at any time. Nothing throws or logs.
#pragma once

#include <vector>

#include "ZaroPolicyExport.h"
#include "ZaroTable.h"

namespace ZARO {
class GlobalSetting;
class LogMsg;
}  // namespace ZARO

class ZARO_POLICY_EXPORT ZaroFilter {
 public:
  // The database may hold any other number; it is an unknown filter.
  enum FilterType : int {
    Virus = 1,
    AttachmentTrueType = 2,
    AttachmentMimeType = 3,
    AttachmentNameExt = 4,
    AttachmentNumber = 5,
    SizeMessage = 6,
    SizeAttachment = 7,
    SpamOstrel = 8,
    ContentSubject = 9,
    ContentSubjectBlank = 10,
    ContentBody = 11,
    ContentHeader = 12,
    ContentAttachment = 13,
    RecipientNumber = 14,
    TimeRange = 15,
    Phishing = 16,
    Xel = 17,
    DKIMEnforcement = 18,
    PwdProtectedFile = 19,
    EncryptedMsg = 20,
    BATV = 21,
    AntiSpoof = 22,
    Compliance = 23,
    ComplianceHeader = 24,
    ComplianceBody = 25,
    ComplianceAttachment = 26,
    Pexa = 27,
    Graymail = 28,
    Snap = 29,
    NoFilter = 30,  // ranks after every filter
  };

  struct Definition {
    FilterType type;
    const char* name;
    bool attachment;
  };

  virtual ~ZaroFilter();
  // Around the run of a filter, for those that need it; the library calls neither.
  virtual void begin();
  virtual void end();
  virtual FilterType getFilterType() const = 0;

  // The known filters, the first in rank first.
  static ZaroTable<Definition> definitions();

  // A literal, never null: "Unknown" for an unknown filter.
  static const char* getFilterName(FilterType type);

  // Whether the filter looks at attachments; false for an unknown one.
  static bool isAttachmentFilter(FilterType type);

  // The filter that ranks first; NoFilter for none, and when all are unknown ones above it. No pointer may be null.
  static FilterType getHighestOrderFilter(const std::vector<ZaroFilter*>& filters);

  // For callers that initialise every module alike: there is nothing to set up. Always true.
  bool init(ZARO::GlobalSetting& settings, ZARO::LogMsg& log);
};
