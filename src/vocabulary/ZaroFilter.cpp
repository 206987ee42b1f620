#include "ZaroFilter.h"

#include <algorithm>

namespace {

// The first in rank first. What looks like a slip is stored and compared by other programs: the transposed letters, and
// which filters count as looking at attachments (their number does not, nor does compliance; their size does).
// clang-format off
constexpr ZaroFilter::Definition kFilters[] = {
    //                                 name                                   attachment
    {ZaroFilter::Virus,                "VirusFilter",                         false},
    {ZaroFilter::AttachmentTrueType,   "AttachmentFilter:AttachmentTrueType", true},
    {ZaroFilter::AttachmentMimeType,   "AttachmentFilter:AttachmentMimeType", true},
    {ZaroFilter::AttachmentNameExt,    "AttachmentFilter:AttachmentNameExt",  true},
    {ZaroFilter::AttachmentNumber,     "AttachmentFilter:AttachmentNumber",   false},
    {ZaroFilter::SizeMessage,          "SizeFilter:SizeMessage",              false},
    {ZaroFilter::SizeAttachment,       "SizeFilter:SizeAttachment",           true},
    {ZaroFilter::SpamOstrel,           "SpamOstrelFilter",                    false},
    {ZaroFilter::ContentSubject,       "ContentFilter:ContentSubject",        false},
    {ZaroFilter::ContentSubjectBlank,  "ContentFilter:ContentSubjectBlank",   false},
    {ZaroFilter::ContentBody,          "ContentFilter:ContentBody",           false},
    {ZaroFilter::ContentHeader,        "ContentFilter:ContentHeader",         false},
    {ZaroFilter::ContentAttachment,    "ContentFilter:ContentAttachment",     true},
    {ZaroFilter::RecipientNumber,      "RecipientNoFilter",                   false},
    {ZaroFilter::TimeRange,            "TimeRangeFilter",                     false},
    {ZaroFilter::Phishing,             "PhishingFitler",                      false},
    {ZaroFilter::Xel,                  "XelFilter",                           false},
    {ZaroFilter::DKIMEnforcement,      "DKIMEnforcementFilter",               false},
    {ZaroFilter::PwdProtectedFile,     "AttachmentFilter:PwdProtectedFile",   true},
    {ZaroFilter::EncryptedMsg,         "EncryptedMsgFilter",                  false},
    {ZaroFilter::BATV,                 "BATVFilter",                          false},
    {ZaroFilter::AntiSpoof,            "AntiSpoofFilter",                     false},
    {ZaroFilter::Compliance,           "Compliance",                          false},
    {ZaroFilter::ComplianceHeader,     "Compliance:Header",                   false},
    {ZaroFilter::ComplianceBody,       "Compliance:Body",                     false},
    {ZaroFilter::ComplianceAttachment, "Compliance:Attachment",               false},
    {ZaroFilter::Pexa,                 "PexaFilter",                          false},
    {ZaroFilter::Graymail,             "GraymailFilter",                      false},
    {ZaroFilter::Snap,                 "SnapFilter",                          false},
};
// clang-format on

constexpr ZaroFilter::Definition kUnknownFilter = {ZaroFilter::FilterType(0), "Unknown", false};

constexpr bool withoutGaps() {
  int expected = ZaroFilter::Virus;
  for (const ZaroFilter::Definition& filter : kFilters) {
    if (filter.type != expected) {
      return false;
    }
    ++expected;
  }
  return expected == ZaroFilter::NoFilter;
}
static_assert(withoutGaps(), "one row per filter, in rank order, from 1 to 29");

const ZaroFilter::Definition& find(ZaroFilter::FilterType type) {
  const bool known = type >= ZaroFilter::Virus && type < ZaroFilter::NoFilter;
  return known ? kFilters[type - ZaroFilter::Virus] : kUnknownFilter;
}

}  // namespace

ZaroFilter::~ZaroFilter() = default;

void ZaroFilter::begin() {}

void ZaroFilter::end() {}

ZaroTable<ZaroFilter::Definition> ZaroFilter::definitions() {
  return ZaroTable<Definition>(kFilters);
}

const char* ZaroFilter::getFilterName(FilterType type) {
  return find(type).name;
}

bool ZaroFilter::isAttachmentFilter(FilterType type) {
  return find(type).attachment;
}

ZaroFilter::FilterType ZaroFilter::getHighestOrderFilter(const std::vector<ZaroFilter*>& filters) {
  FilterType highest = NoFilter;
  for (const ZaroFilter* filter : filters) {
    highest = std::min(highest, filter->getFilterType());
  }
  return highest;
}

bool ZaroFilter::init(ZARO::GlobalSetting& /*settings*/, ZARO::LogMsg& /*log*/) {
  return true;
}
