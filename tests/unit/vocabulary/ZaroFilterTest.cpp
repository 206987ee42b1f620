// Filters: names, ranks and properties.
#include "ZaroFilter.h"

#include <climits>
#include <deque>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "scripted/Platform.h"

// Only their addresses are handed over.
class ZARO::GlobalSetting {};
class ZARO::LogMsg {};

namespace {

static_assert(std::is_same_v<std::underlying_type_t<ZaroFilter::FilterType>, int>, "holds every stored number");

struct FilterCase {
  int value;
  const char* name;
  bool attachment;
};

const FilterCase kFilterCases[] = {
    {0, "Unknown", false},
    {1, "VirusFilter", false},
    {2, "AttachmentFilter:AttachmentTrueType", true},
    {3, "AttachmentFilter:AttachmentMimeType", true},
    {4, "AttachmentFilter:AttachmentNameExt", true},
    {5, "AttachmentFilter:AttachmentNumber", false},
    {6, "SizeFilter:SizeMessage", false},
    {7, "SizeFilter:SizeAttachment", true},
    {8, "SpamOstrelFilter", false},
    {9, "ContentFilter:ContentSubject", false},
    {10, "ContentFilter:ContentSubjectBlank", false},
    {11, "ContentFilter:ContentBody", false},
    {12, "ContentFilter:ContentHeader", false},
    {13, "ContentFilter:ContentAttachment", true},
    {14, "RecipientNoFilter", false},
    {15, "TimeRangeFilter", false},
    {16, "PhishingFitler", false},
    {17, "XelFilter", false},
    {18, "DKIMEnforcementFilter", false},
    {19, "AttachmentFilter:PwdProtectedFile", true},
    {20, "EncryptedMsgFilter", false},
    {21, "BATVFilter", false},
    {22, "AntiSpoofFilter", false},
    {23, "Compliance", false},
    {24, "Compliance:Header", false},
    {25, "Compliance:Body", false},
    {26, "Compliance:Attachment", false},
    {27, "PexaFilter", false},
    {28, "GraymailFilter", false},
    {29, "SnapFilter", false},
    {30, "Unknown", false},
    {31, "Unknown", false},
    {257, "Unknown", false},
    {INT_MAX, "Unknown", false},
    {-1, "Unknown", false},
    {-255, "Unknown", false},
    {INT_MIN, "Unknown", false},
};

ZaroFilter::FilterType type(int value) {
  return static_cast<ZaroFilter::FilterType>(value);
}

class TestFilter : public ZaroFilter {
 public:
  explicit TestFilter(int value) : m_value(value) {}
  FilterType getFilterType() const override { return type(m_value); }

 private:
  int m_value;
};

ZaroFilter::FilterType highestOf(const std::vector<int>& values) {
  std::deque<TestFilter> filters;
  std::vector<ZaroFilter*> pointers;
  for (const int value : values) {
    pointers.push_back(&filters.emplace_back(value));
  }
  return ZaroFilter::getHighestOrderFilter(pointers);
}

class FilterTest : public scripted::PlatformTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(scripted::platform().log.lines(), scripted::LogLines()) << "the vocabulary of filters logs nothing";
    scripted::PlatformTest::TearDown();
  }
};

}  // namespace

using FilterVocabulary = FilterTest;

TEST_F(FilterVocabulary, hasTheStoredNames) {
  for (const FilterCase& row : kFilterCases) {
    EXPECT_STREQ(ZaroFilter::getFilterName(type(row.value)), row.name) << row.value;
  }
}

TEST_F(FilterVocabulary, hasNamesThatLaterCallsLeaveAsTheyAre) {
  std::vector<const char*> names;
  for (const FilterCase& row : kFilterCases) {
    names.push_back(ZaroFilter::getFilterName(type(row.value)));
  }
  std::size_t at = 0;
  for (const FilterCase& row : kFilterCases) {
    EXPECT_STREQ(names[at], row.name) << row.value;
    EXPECT_EQ(names[at], ZaroFilter::getFilterName(type(row.value))) << row.value;
    ++at;
  }
}

TEST_F(FilterVocabulary, tellsWhichFiltersLookAtAttachments) {
  for (const FilterCase& row : kFilterCases) {
    EXPECT_EQ(ZaroFilter::isAttachmentFilter(type(row.value)), row.attachment) << row.value;
  }
}

TEST_F(FilterVocabulary, namesTheFiltersThatMessagesMention) {
  EXPECT_EQ(static_cast<int>(ZaroFilter::Virus), 1);
  EXPECT_EQ(static_cast<int>(ZaroFilter::SpamOstrel), 8);
}

TEST_F(FilterVocabulary, isListedWhole) {
  ASSERT_EQ(ZaroFilter::definitions().size(), 29U);
  int value = 1;
  for (const ZaroFilter::Definition& definition : ZaroFilter::definitions()) {
    const FilterCase& row = kFilterCases[value];
    EXPECT_EQ(definition.type, row.value);
    EXPECT_STREQ(definition.name, row.name);
    EXPECT_EQ(definition.attachment, row.attachment);
    ++value;
  }
}

using FilterRank = FilterTest;

TEST_F(FilterRank, isTheSmallestNumberUpToThirty) {
  const struct {
    const char* label;
    std::vector<int> values;
    int highest;
  } cases[] = {
      {"none", {}, 30},
      {"one", {29}, 29},
      {"in any order", {8, 2, 13}, 2},
      {"ties", {5, 5}, 5},
      {"unknown ones only", {30, 31, INT_MAX}, 30},
      {"unknown and known", {31, 12}, 12},
      {"no filter ranks before all", {1, 0}, 0},
      {"negative numbers rank before all", {1, -5, 0}, -5},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(highestOf(row.values), row.highest) << row.label;
  }
}

using FilterObjects = FilterTest;

TEST_F(FilterObjects, initialiseWhateverTheyAreGiven) {
  ZARO::GlobalSetting settings;
  ZARO::LogMsg log;
  TestFilter filter(1);
  EXPECT_TRUE(filter.init(settings, log));
  EXPECT_TRUE(filter.init(settings, log));
}

TEST_F(FilterObjects, haveTheirTypeInTheSlotThatSeparatelyBuiltProgramsCall) {
  const TestFilter filter(26);
  const ZaroFilter* object = &filter;
  void* const* slots = *reinterpret_cast<void* const* const*>(object);
  const auto getType = reinterpret_cast<int (*)(const ZaroFilter*)>(slots[4]);
  EXPECT_EQ(getType(object), 26);
}

TEST_F(FilterObjects, needOneOperationOnly) {
  const std::unique_ptr<ZaroFilter> filter = std::make_unique<TestFilter>(4);
  filter->begin();
  filter->end();
  EXPECT_EQ(ZaroFilter::getHighestOrderFilter({filter.get()}), 4);
}
