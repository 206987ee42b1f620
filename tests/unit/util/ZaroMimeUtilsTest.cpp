// Base64, also of texts that are none.
#include "ZaroMimeUtils.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "PlainBase64.h"
#include "ProcessTest.h"

namespace {

struct Free {
  void operator()(char* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<char, Free>;

// The bytes lie in a block of their exact size, so that a sanitizer sees whoever reads past them.
std::string encoded(const std::string& bytes) {
  std::vector<char> block(bytes.begin(), bytes.end());
  CBase64Utils codec;
  const Buffer text(codec.Encode(block.data(), static_cast<int>(block.size())));
  return text != nullptr ? text.get() : "(null)";
}

using Decoded = GatewayBytes;

// The text and its NUL lie in a block of their exact size.
Decoded decoded(const std::string& text) {
  std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);
  CBase64Utils codec;
  int length = static_cast<int>(text.size());
  const Buffer bytes(codec.Decode(block.data(), &length));
  if (bytes == nullptr) {
    return {length, "(null)", codec.hasError()};
  }
  const int written = (length + 2) / 3 * 3;  // the last group is, whatever its reported length
  EXPECT_EQ(bytes.get()[written], '\0') << "of " << testing::PrintToString(text);
  return {length, std::string(bytes.get(), static_cast<std::size_t>(length)), codec.hasError()};
}

std::string randomBytes(std::mt19937& random, std::size_t size) {
  std::string bytes;
  for (; size > 0; --size) {
    bytes += static_cast<char>(static_cast<unsigned char>(random()));
  }
  return bytes;
}

std::string withLineEnds(const std::string& text) {
  std::string lines;
  for (std::size_t at = 0; at < text.size(); ++at) {
    lines += text[at];
    const bool wholeLine = at % 76 == 75;
    const bool paddedLine = text[at] == '=';
    lines += wholeLine && !paddedLine ? "\r\n" : "";
  }
  return lines;
}

// What a deviating encoder sees: of two bytes at the end, the first is all ones when the second is 128 or above.
std::string asDeviatingEncoderSeesIt(std::string bytes) {
  const bool two = bytes.size() % 3 == 2;
  if (two && static_cast<unsigned char>(bytes.back()) >= 128) {
    bytes[bytes.size() - 2] = '\xFF';
  }
  return bytes;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryCanBeLimited = false;  // the sanitizer needs more of it at any time
#else
constexpr bool kMemoryCanBeLimited = true;
#endif

// Lets the process have no more memory than it has, as long as it lives.
class NoMoreMemory {
 public:
  NoMoreMemory() {
    getrlimit(RLIMIT_AS, &m_before);
    rlimit none = m_before;
    none.rlim_cur = 1;
    setrlimit(RLIMIT_AS, &none);
  }
  ~NoMoreMemory() { setrlimit(RLIMIT_AS, &m_before); }

  NoMoreMemory(const NoMoreMemory&) = delete;
  NoMoreMemory& operator=(const NoMoreMemory&) = delete;

 private:
  rlimit m_before;
};

}  // namespace

TEST(Base64Encode, writesWhatTheStandardWrites) {
  // printf '%s' TEXT | base64
  EXPECT_EQ(encoded("ABC"), "QUJD");
  EXPECT_EQ(encoded("A"), "QQ==");
  EXPECT_EQ(encoded("AB"), "QUI=");
  EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
  EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
  // printf '\200' | base64; printf '\000\020\203\020\121\207\040\222\213' | base64
  EXPECT_EQ(encoded("\x80"), "gA==");
  EXPECT_EQ(encoded(std::string("\x00\x10\x83\x10\x51\x87\x20\x92\x8B", 9)), "ABCDEFGHIJKL");
}

TEST(Base64Encode, breaksLinesAfterFiftySevenBytes) {
  const std::string line(76, 'A');
  EXPECT_EQ(encoded(std::string(54, '\0')), std::string(72, 'A'));
  EXPECT_EQ(encoded(std::string(57, '\0')), line + "\r\n");
  EXPECT_EQ(encoded(std::string(58, '\0')), line + "\r\nAA==");
  EXPECT_EQ(encoded(std::string(59, '\0')), line + "\r\nAAA=");
  EXPECT_EQ(encoded(std::string(60, '\0')), line + "\r\nAAAA");
  EXPECT_EQ(encoded(std::string(114, '\0')), line + "\r\n" + line + "\r\n");
}

TEST(Base64Encode, addsNoLineEndToALineThatAnIncompleteGroupFills) {
  EXPECT_EQ(encoded(std::string(55, '\0')), std::string(74, 'A') + "==");
  EXPECT_EQ(encoded(std::string(56, '\0')), std::string(75, 'A') + "=");
}

TEST(Base64Encode, losesTheFirstOfTwoLastBytesBeforeAHighOne) {
  EXPECT_EQ(encoded("\x41\x80"), "/4A=");
  EXPECT_EQ(encoded("\x41\x7F"), "QX8=");
  EXPECT_EQ(encoded(std::string("\x00\xFF", 2)), "//8=");
  EXPECT_EQ(encoded("\x80\x41"), "gEE=");
}

TEST(Base64Encode, encodesEveryLastGroupAsStored) {
  for (int first = 0; first < 256; ++first) {
    const std::string one(1, static_cast<char>(first));
    ASSERT_EQ(encoded(one), plainBase64(one));
    ASSERT_EQ(encoded(one), gatewayBase64(one));
    for (int second = 0; second < 256; ++second) {
      const std::string two = one + static_cast<char>(second);
      ASSERT_EQ(encoded(two), plainBase64(asDeviatingEncoderSeesIt(two)));
      ASSERT_EQ(encoded(two), gatewayBase64(two));
    }
  }
}

TEST(Base64Encode, agreesWithPlainCodecsForEveryLength) {
  std::mt19937 random(57);
  for (std::size_t length = 1; length <= 600; ++length) {
    for (int round = 0; round < 3; ++round) {
      const std::string bytes = randomBytes(random, length);
      ASSERT_EQ(encoded(bytes), withLineEnds(plainBase64(asDeviatingEncoderSeesIt(bytes)))) << length << " bytes";
      ASSERT_EQ(encoded(bytes), gatewayBase64(bytes)) << length << " bytes";
    }
  }
}

TEST(Base64Encode, answersNullForNoBytes) {
  char byte = 'A';
  CBase64Utils codec;
  for (const int length : {0, -1, INT_MIN}) {
    EXPECT_EQ(codec.Encode(&byte, length), nullptr) << length;
  }
}

TEST(Base64Encode, answersNullForATextLongerThanAnIntCanTell) {
  char byte = 'A';
  CBase64Utils codec;
  // 1569314967 bytes are the first that need 2147483648 for their text and its NUL.
  for (const int length : {1569314967, 1600000000, INT_MAX - 1, INT_MAX}) {
    EXPECT_EQ(codec.Encode(&byte, length), nullptr) << length;
  }
}

TEST(Base64Decode, readsWhatTheStandardWrites) {
  EXPECT_EQ(decoded("QUJD"), (Decoded{3, "ABC", false}));
  EXPECT_EQ(decoded("ABCDEFGHIJKL"), (Decoded{9, std::string("\x00\x10\x83\x10\x51\x87\x20\x92\x8B", 9), false}));
  EXPECT_EQ(decoded("++++"), (Decoded{3, "\xFB\xEF\xBE", false}));
  EXPECT_EQ(decoded("////"), (Decoded{3, "\xFF\xFF\xFF", false}));
}

TEST(Base64Decode, misreportsAnIncompleteGroup) {
  EXPECT_EQ(decoded("Q"), (Decoded{3, std::string("\x40\0\0", 3), false}));
  EXPECT_EQ(decoded("QQ"), (Decoded{2, std::string("A\0", 2), false}));
  EXPECT_EQ(decoded("QQ=="), (Decoded{2, std::string("A\0", 2), false}));
  EXPECT_EQ(decoded("QUI"), (Decoded{1, "A", false}));
  EXPECT_EQ(decoded("QUI="), (Decoded{1, "A", false}));
  EXPECT_EQ(decoded("QUJDQ"), (Decoded{6, std::string("ABC\x40\0\0", 6), false}));
}

TEST(Base64Decode, writesEveryByteOfAnIncompleteGroup) {
  char text[] = "QUI=";
  int length = 4;
  CBase64Utils codec;
  const Buffer bytes(codec.Decode(text, &length));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(length, 1);
  EXPECT_EQ(std::string(bytes.get(), 3), std::string("AB\0", 3));
}

TEST(Base64Decode, considersNothingForALengthOfNoCharacters) {
  EXPECT_EQ(decoded(""), (Decoded{0, "", false}));
  char text[] = "QUJD";
  CBase64Utils codec;
  for (const int none : {0, -1}) {
    int length = none;
    const Buffer bytes(codec.Decode(text, &length));
    ASSERT_NE(bytes, nullptr) << none;
    EXPECT_EQ(length, 0) << none;
    EXPECT_EQ(bytes.get()[0], '\0') << none;
  }
}

TEST(Base64Decode, considersOnlyAsManyCharactersAsAsked) {
  std::string text = "QUJDQUJDQUJDQUJD";
  CBase64Utils codec;
  for (int asked = 0; asked <= 16; ++asked) {
    int length = asked;
    const Buffer bytes(codec.Decode(text.data(), &length));
    ASSERT_NE(bytes, nullptr) << asked;
    const GatewayBytes expected = gatewayBase64Decoded(text.substr(0, static_cast<std::size_t>(asked)));
    EXPECT_EQ(length, expected.length) << asked;
    EXPECT_EQ(std::string(bytes.get(), static_cast<std::size_t>(length)), expected.bytes) << asked;
  }
}

TEST(Base64Decode, answersNullForWhatIsNoSize) {
  char text[] = "QUJD";
  CBase64Utils codec;
  for (const int noSize : {-2, INT_MIN, INT_MAX}) {
    int length = noSize;
    EXPECT_EQ(codec.Decode(text, &length), nullptr) << noSize;
    EXPECT_EQ(length, noSize);
  }
}

TEST(Base64Decode, stopsAtTheFirstPadding) {
  EXPECT_EQ(decoded("QUJD=QUJD"), (Decoded{3, "ABC", false}));
  EXPECT_EQ(decoded("=QUJD"), (Decoded{0, "", false}));
  EXPECT_EQ(decoded("QU=JD***"), (Decoded{2, std::string("A\x40", 2), false}));
}

TEST(Base64Decode, skipsLineEndsWithoutAnError) {
  EXPECT_EQ(decoded("QUJD\r\nQUJD"), (Decoded{6, "ABCABC", false}));
  EXPECT_EQ(decoded("\r\n\r\nQ\rU\nJ\r\nDQUJD"), (Decoded{6, "ABCABC", false}));
}

TEST(Base64Decode, skipsAnythingElseWithAnError) {
  EXPECT_EQ(decoded("QU JDQUJD"), (Decoded{6, "ABCABC", true}));
  EXPECT_EQ(decoded("*QUJDQUJD"), (Decoded{6, "ABCABC", true}));
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int byte = 0; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    const bool inAlphabet = character != '\0' && alphabet.find(character) != std::string::npos;
    if (inAlphabet || character == '=') {
      continue;
    }
    const bool lineEnd = character == '\r' || character == '\n';
    for (const char* before : {"", "Q", "QU", "QUJ", "QUJD"}) {
      const std::string rest = std::string("QUJDQUJD").substr(std::strlen(before));
      ASSERT_EQ(decoded(before + std::string(1, character) + rest), (Decoded{6, "ABCABC", !lineEnd})) << byte;
    }
  }
}

TEST(Base64Decode, takesPaddingBehindASkippedCharacterForOneToSkip) {
  EXPECT_EQ(decoded("QUJD\r\n=QUJD"), (Decoded{6, "ABCABC", true}));
  EXPECT_EQ(decoded("QUJDQQ\r\n=="), (Decoded{4, "ABC\xFF", true}));
}

TEST(Base64Decode, takesTheLastCharacterEvenIfItIsALineEnd) {
  EXPECT_EQ(decoded("QUJD\r\n"), (Decoded{6, std::string("ABC\x08\0\0", 6), false}));
  EXPECT_EQ(decoded("QUJD\n"), (Decoded{6, std::string("ABC\x08\0\0", 6), false}));
  EXPECT_EQ(decoded("*"), (Decoded{3, std::string("\x08\0\0", 3), true}));
  EXPECT_EQ(decoded("QUI\n"), (Decoded{3, "\xFF\xFF\x82", false}));
  EXPECT_EQ(decoded("QUI*"), (Decoded{3, "\xFF\xFF\x82", true}));
  // The padding has ended the text before its line end is looked at.
  EXPECT_EQ(decoded("QQ==\r\n"), (Decoded{2, std::string("A\0", 2), false}));
}

TEST(Base64Decode, keepsTheErrorFlagOfAnEarlierText) {
  char bad[] = "QU*JD";
  char good[] = "QUJD";
  CBase64Utils codec;
  EXPECT_FALSE(codec.hasError());
  int length = 5;
  Buffer bytes(codec.Decode(bad, &length));
  EXPECT_TRUE(codec.hasError());
  length = 4;
  bytes.reset(codec.Decode(good, &length));
  EXPECT_TRUE(codec.hasError());
}

TEST(Base64Decode, agreesWithTheGatewaysWalkOverEveryShortText) {
  const std::string alphabet = "A/j=\n* ";
  std::vector<std::string> texts = {""};
  for (std::size_t at = 0; at < texts.size(); ++at) {
    const std::string text = texts[at];
    ASSERT_EQ(decoded(text), gatewayBase64Decoded(text)) << testing::PrintToString(text);
    if (text.size() < 6) {
      for (const char character : alphabet) {
        texts.push_back(text + character);
      }
    }
  }
}

TEST(Base64Decode, agreesWithTheGatewaysWalkOverLongRandomTexts) {
  std::mt19937 random(76);
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string foreign = std::string("\r\n\r\n *=-_\xFF", 10) + '\0';
  for (int round = 0; round < 20000; ++round) {
    const unsigned int rarity = 2 + static_cast<unsigned int>(random() % 40);
    std::string text;
    for (auto left = random() % 200; left > 0; --left) {
      const std::string& from = random() % rarity == 0 ? foreign : alphabet;
      text += from[random() % from.size()];
    }
    ASSERT_EQ(decoded(text), gatewayBase64Decoded(text)) << testing::PrintToString(text);
  }
}

TEST(Base64Decode, agreesWithThePlainCodecWhereGroupsAreWhole) {
  std::mt19937 random(64);
  for (std::size_t groups = 1; groups <= 400; ++groups) {
    const std::string bytes = randomBytes(random, groups * 3);
    const std::string text = plainBase64(bytes);
    ASSERT_EQ(plainBase64Decoded(text), bytes);
    ASSERT_EQ(decoded(text), (Decoded{static_cast<int>(bytes.size()), bytes, false}));
  }
}

TEST(Base64Decode, misreportsEveryIncompleteGroupAlike) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (const char first : alphabet) {
    const std::string one = {first};
    ASSERT_EQ(decoded(one), (Decoded{3, plainBase64Decoded(one + "A==") + std::string(2, '\0'), false}));
    for (const char second : alphabet) {
      const std::string two = one + second;
      // One byte in the standard; its neighbour takes the bits that the standard leaves unused.
      ASSERT_EQ(decoded(two + "=="), (Decoded{2, plainBase64Decoded(two + "AA").substr(0, 2), false}));
      for (const char third : alphabet) {
        const std::string three = two + third;
        ASSERT_EQ(decoded(three + "="), (Decoded{1, plainBase64Decoded(two + "=="), false}));
      }
    }
  }
}

TEST(Base64, comesBackWhereNothingDeviates) {
  std::mt19937 random(3);
  for (std::size_t length = 3; length <= 600; length += 3) {
    const std::string bytes = randomBytes(random, length);
    std::string text = encoded(bytes);
    // A line end at the end would be taken for a character.
    text.erase(text.find_last_not_of("\r\n") + 1);
    ASSERT_EQ(decoded(text), (Decoded{static_cast<int>(length), bytes, false})) << length;
  }
}

TEST(Base64, comesBackWholeForMegabytes) {
  std::mt19937 random(5);
  std::string bytes = randomBytes(random, 3000003);
  const std::string text = encoded(bytes);
  EXPECT_EQ(decoded(text), (Decoded{3000003, bytes, false}));
  bytes.push_back('z');
  EXPECT_EQ(encoded(bytes), gatewayBase64(bytes));
}

PROCESS_TEST(Base64, answersNullWhenThereIsNoMemory) {
  if (!kMemoryCanBeLimited) {
    GTEST_SKIP() << "under a sanitizer";
  }
  constexpr int kLarge = 64 << 20;
  std::vector<char> block(kLarge + 1, 'A');
  block.back() = '\0';
  CBase64Utils codec;
  int length = kLarge;
  const char* text = "";
  const char* bytes = "";
  {
    const NoMoreMemory limit;
    text = codec.Encode(block.data(), kLarge);
    bytes = codec.Decode(block.data(), &length);
  }
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(length, kLarge);
}
