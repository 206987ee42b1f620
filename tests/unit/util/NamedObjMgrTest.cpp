// The text form of named objects for the policy.
#include "NamedObjMgr.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

struct Serialized {
  std::string text;
  unsigned int sizeHint;
};

Serialized serialized(NamedObjMgrForPolicy& objects) {
  Serialized result = {"replaced", 1};
  EXPECT_TRUE(objects.serialize(result.text, result.sizeHint));
  return result;
}

PolicyObjectRecord record(int value, const std::string& secondText, const std::string& firstText) {
  PolicyObjectRecord made;
  made.value = value;
  made.secondText = secondText;
  made.firstText = firstText;
  return made;
}

struct ReadRecord {
  int key;
  int value;
  std::string secondText;
  std::string firstText;
};

bool operator==(const ReadRecord& left, const ReadRecord& right) {
  return left.key == right.key && left.value == right.value && left.secondText == right.secondText &&
         left.firstText == right.firstText;
}

void PrintTo(const ReadRecord& record, std::ostream* out) {
  *out << record.key << ' ' << record.value << ' ' << testing::PrintToString(record.secondText) << ' '
       << testing::PrintToString(record.firstText);
}

// The text as its consumers read it: numbers up to the separator, texts by their lengths.
class Reader {
 public:
  explicit Reader(std::string text) : m_text(std::move(text)) {
    m_count = _number();
    m_lead = _number();
    while (m_at < m_text.size() && !testing::Test::HasFatalFailure()) {
      const int key = _number();
      const int value = _number();
      const std::string secondText = _counted();
      m_records.push_back({key, value, secondText, _counted()});
    }
  }

  int count() const { return m_count; }
  int lead() const { return m_lead; }
  const std::vector<ReadRecord>& records() const { return m_records; }

 private:
  int _number() {
    const std::size_t end = m_text.find(';', m_at);
    EXPECT_NE(end, std::string::npos) << m_text.substr(m_at);
    const std::string digits = m_text.substr(m_at, end - m_at);
    m_at = end == std::string::npos ? m_text.size() : end + 1;
    return digits.empty() ? 0 : std::stoi(digits);
  }

  std::string _counted() {
    const auto length = static_cast<std::size_t>(_number());
    EXPECT_LT(m_at + length, m_text.size());
    const std::string text = m_text.substr(m_at, length);
    EXPECT_EQ(m_text.substr(m_at + length, 1), ";");
    m_at += length + 1;
    return text;
  }

  std::string m_text;
  std::size_t m_at = 0;
  int m_count = 0;
  int m_lead = 0;
  std::vector<ReadRecord> m_records;
};

int randomInt(std::mt19937& random) {
  switch (random() % 4) {
    case 0:
      return static_cast<int>(random() % 20) - 10;
    case 1:
      return INT_MIN + static_cast<int>(random() % 3);
    case 2:
      return INT_MAX - static_cast<int>(random() % 3);
    default:
      return static_cast<int>(random());
  }
}

std::string randomText(std::mt19937& random) {
  const std::string alphabet("a1;-\0\n\xFF", 7);
  std::string text;
  for (auto left = random() % 12; left > 0; --left) {
    text += alphabet[random() % alphabet.size()];
  }
  return text;
}

}  // namespace

TEST(NamedObjMgrForPolicy, startsEmptyAndZeroed) {
  const NamedObjMgrForPolicy objects{};
  EXPECT_EQ(objects.leadValue, 0);
  EXPECT_TRUE(objects.records.empty());
  const PolicyObjectRecord made{};
  EXPECT_EQ(made.value, 0);
  EXPECT_EQ(made.firstText, "");
  EXPECT_EQ(made.secondText, "");
  EXPECT_EQ(made.firstSize, 0U);
  EXPECT_EQ(made.secondSize, 0U);
}

TEST(NamedObjMgrForPolicy, writesCountAndLeadOfNothing) {
  NamedObjMgrForPolicy objects;
  objects.leadValue = 7;
  const Serialized result = serialized(objects);
  EXPECT_EQ(result.text, "0;7;");
  EXPECT_EQ(result.sizeHint, 64U);
}

TEST(NamedObjMgrForPolicy, countsNullRecordsAndLeavesThemOut) {
  PolicyObjectRecord made = record(1, "s", "f");
  NamedObjMgrForPolicy objects;
  objects.leadValue = 7;
  objects.records[5] = nullptr;
  Serialized result = serialized(objects);
  EXPECT_EQ(result.text, "1;7;");
  EXPECT_EQ(result.sizeHint, 64U);

  objects.records[9] = nullptr;
  objects.records[6] = &made;
  result = serialized(objects);
  EXPECT_EQ(result.text, "3;7;6;1;1;s;1;f;");
  EXPECT_EQ(result.sizeHint, 129U);
}

TEST(NamedObjMgrForPolicy, writesTheSecondTextFirst) {
  PolicyObjectRecord made = record(5, "ab;c", "");
  NamedObjMgrForPolicy objects;
  objects.leadValue = -1;
  objects.records[12] = &made;
  EXPECT_EQ(serialized(objects).text, "1;-1;12;5;4;ab;c;0;;");
  made.firstText = "first";
  EXPECT_EQ(serialized(objects).text, "1;-1;12;5;4;ab;c;5;first;");
}

TEST(NamedObjMgrForPolicy, writesRecordsByRisingKey) {
  PolicyObjectRecord nine = record(90, "", "nine");
  PolicyObjectRecord three = record(30, "", "three");
  PolicyObjectRecord minus = record(-20, "", "minus");
  NamedObjMgrForPolicy objects;
  objects.records = {{9, &nine}, {3, &three}, {-2, &minus}};
  EXPECT_EQ(serialized(objects).text, "3;0;-2;-20;0;;5;minus;3;30;0;;5;three;9;90;0;;4;nine;");
}

TEST(NamedObjMgrForPolicy, writesTheLargestNumbersWhole) {
  PolicyObjectRecord made = record(INT_MIN, std::string(1234567, 's'), "");
  NamedObjMgrForPolicy objects;
  objects.leadValue = INT_MAX;
  objects.records[INT_MIN] = &made;
  EXPECT_EQ(serialized(objects).text,
            "1;2147483647;-2147483648;-2147483648;1234567;" + std::string(1234567, 's') + ";0;;");
}

TEST(NamedObjMgrForPolicy, estimatesFromSizesAloneAndReservesAsMuch) {
  PolicyObjectRecord small = record(1, "long enough not to matter", "x");
  small.firstSize = 10;
  small.secondSize = 3000;
  PolicyObjectRecord zero = record(2, "text", "text");
  NamedObjMgrForPolicy objects;
  objects.records = {{1, &small}, {2, &zero}, {3, nullptr}};
  const Serialized result = serialized(objects);
  EXPECT_EQ(result.sizeHint, 10U + 3000 + 65 + 65 + 64);
  EXPECT_GE(result.text.capacity(), result.sizeHint);
}

TEST(NamedObjMgrForPolicy, estimateWrapsLikeAnUnsignedNumber) {
  PolicyObjectRecord huge = record(1, "s", "f");
  huge.firstSize = UINT_MAX;
  huge.secondSize = 2;
  NamedObjMgrForPolicy objects;
  objects.records[1] = &huge;
  const Serialized result = serialized(objects);
  EXPECT_EQ(result.sizeHint, 1U + 65 + 64);
  EXPECT_EQ(result.text, "1;0;1;1;1;s;1;f;");
}

TEST(NamedObjMgrForPolicy, isReadBackByItsLengths) {
  std::mt19937 random(12);
  for (int round = 0; round < 5000; ++round) {
    NamedObjMgrForPolicy objects;
    objects.leadValue = randomInt(random);
    std::map<int, PolicyObjectRecord> owned;
    for (auto left = random() % 5; left > 0; --left) {
      const int key = randomInt(random);
      owned[key] = record(randomInt(random), randomText(random), randomText(random));
    }
    std::vector<ReadRecord> expected;
    for (auto& [key, made] : owned) {
      const bool null = random() % 5 == 0;
      objects.records[key] = null ? nullptr : &made;
      if (!null) {
        expected.push_back({key, made.value, made.secondText, made.firstText});
      }
    }
    const Reader reader(serialized(objects).text);
    ASSERT_EQ(reader.count(), static_cast<int>(owned.size()));
    ASSERT_EQ(reader.lead(), objects.leadValue);
    ASSERT_EQ(reader.records(), expected);
    ASSERT_FALSE(HasFailure());
  }
}
