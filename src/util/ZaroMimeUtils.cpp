#include "ZaroMimeUtils.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';
constexpr char kLineEnd[] = "\r\n";
constexpr std::size_t kLineEndLength = 2;
constexpr int kCharactersPerLine = 76;
constexpr int kBytesPerLine = 57;
constexpr int kBytesPerGroup = 3;
constexpr int kCharactersPerGroup = 4;

// Entry of the decoding map for whatever is not in the alphabet. It has a bit that no value has.
constexpr std::uint8_t kNotInAlphabet = 130;
constexpr std::uint8_t kNotInAlphabetBit = 0x80;

constexpr std::array<std::uint8_t, 256> makeDecodingMap() {
  std::array<std::uint8_t, 256> map{};
  for (std::uint8_t& entry : map) {
    entry = kNotInAlphabet;
  }
  for (std::uint8_t value = 0; value < 64; ++value) {
    map[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  return map;
}
constexpr auto kDecodingMap = makeDecodingMap();

// Two characters for every value of twelve bits: half the look-ups of one for every six.
constexpr std::size_t kPairs = std::size_t{64} * 64;
constexpr std::array<char, 2 * kPairs> makePairTexts() {
  std::array<char, 2 * kPairs> pairs{};
  for (std::size_t value = 0; value < kPairs; ++value) {
    pairs[2 * value] = kAlphabet[value >> 6];
    pairs[2 * value + 1] = kAlphabet[value & 63];
  }
  return pairs;
}
constexpr auto kPairTexts = makePairTexts();

char* encodeGroups(const unsigned char* bytes, int groups, char* out) {
  for (; groups > 0; --groups, bytes += kBytesPerGroup, out += kCharactersPerGroup) {
    const std::size_t value = (std::size_t{bytes[0]} << 16) | (std::size_t{bytes[1]} << 8) | bytes[2];
    std::memcpy(out, &kPairTexts[2 * (value >> 12)], 2);
    std::memcpy(out + 2, &kPairTexts[2 * (value % kPairs)], 2);
  }
  return out;
}

void encodeLastGroup(const unsigned char* bytes, int count, char* out) {
  const bool two = count == 2;
  // Two bytes, the second 128 or above: the second is widened with its sign, which turns every bit of the first into a
  // one. A reader gets 0xFF for the first byte; what it was is lost. Stored data has it so.
  const unsigned int first = two && bytes[1] >= 128 ? 0xFF : bytes[0];
  const unsigned int value = (first << 16) | (two ? static_cast<unsigned int>(bytes[1]) << 8 : 0);
  out[0] = kAlphabet[value >> 18];
  out[1] = kAlphabet[(value >> 12) & 63];
  out[2] = two ? kAlphabet[(value >> 6) & 63] : kPadding;
  out[3] = kPadding;
}

// Writes the three bytes of a group; its 24 bits lie six above the end of the word.
char* writeGroup(std::uint32_t group, char* out) {
  out[0] = static_cast<char>(static_cast<unsigned char>(group >> 22));
  out[1] = static_cast<char>(static_cast<unsigned char>(group >> 14));
  out[2] = static_cast<char>(static_cast<unsigned char>(group >> 6));
  return out + kBytesPerGroup;
}

// The characters of a text that `Decode` considers.
class CharacterReader {
 public:
  CharacterReader(const char* text, int length, int& error)
      : m_next(reinterpret_cast<const unsigned char*>(text)), m_taken(0), m_limit(length), m_error(error) {}

  // Writes whole groups as long as nothing has to be skipped; returns where the next one goes.
  char* copyCleanGroups(char* out) {
    const unsigned char* next = m_next;
    for (int groups = (m_limit - m_taken) / kCharactersPerGroup; groups > 0; --groups) {
      const std::uint32_t first = kDecodingMap[next[0]];
      const std::uint32_t second = kDecodingMap[next[1]];
      const std::uint32_t third = kDecodingMap[next[2]];
      const std::uint32_t fourth = kDecodingMap[next[3]];
      if (((first | second | third | fourth) & kNotInAlphabetBit) != 0) {
        break;
      }
      out = writeGroup((first << 24) | (second << 18) | (third << 12) | (fourth << 6), out);
      next += kCharactersPerGroup;
    }
    m_taken += static_cast<int>(next - m_next);
    m_next = next;
    return out;
  }

  // Takes up to four characters; returns how many there were. Fewer than four are the last.
  int takeGroup(std::uint32_t& group) {
    group = 0;
    int count = 0;
    // The limit first: a last character that was skipped has let the text be read to its end, and nothing lies behind.
    while (count < kCharactersPerGroup && m_taken < m_limit && *m_next != kPadding) {
      _skipForeign();
      // At the limit this character may still be foreign, even the terminating NUL. It counts all the same and turns
      // the bits before it in its group into ones: a line end at the end of a text spoils the group it falls into
      // (the bytes of "QUI" and LF are FF FF 82), or makes a group of its own, with three bytes that no encoder wrote.
      const auto value = static_cast<std::int8_t>(kDecodingMap[*m_next]);
      group = (group | static_cast<std::uint32_t>(value)) << 6;
      ++m_next;
      ++m_taken;
      ++count;
    }
    group <<= 6 * (kCharactersPerGroup - count);
    return count;
  }

 private:
  // Each character skipped leaves one less to consider. Skipping ends when the character after it is the last of them,
  // or when there is none: the text's NUL stands there.
  //
  // Padding directly behind a skipped character does not end the text: it is one more to skip, and sets the error flag.
  // What follows it is read, and wrapped padding spoils a text: "QUJDQQ", CR LF, "==" has the bytes 41 42 43 FF.
  void _skipForeign() {
    while (kDecodingMap[*m_next] == kNotInAlphabet) {
      if (*m_next != '\r' && *m_next != '\n') {
        m_error = 1;
      }
      ++m_next;
      --m_limit;
      if (m_taken + 1 >= m_limit) {
        return;
      }
    }
  }

  const unsigned char* m_next;
  int m_taken;
  int m_limit;
  int& m_error;
};

}  // namespace

char* CBase64Utils::Encode(char* data, int length) {
  if (length < 1) {
    return nullptr;
  }
  const long long characters = length * 4LL / 3;
  const long long size = characters + characters / kCharactersPerLine * 2 + 10;
  if (size > INT_MAX) {
    return nullptr;  // `Decode` has no number for its length
  }
  auto* text = static_cast<char*>(std::calloc(static_cast<std::size_t>(size), 1));
  if (text == nullptr) {
    return nullptr;
  }

  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  char* out = text;
  int left = length;
  for (; left >= kBytesPerLine; left -= kBytesPerLine, bytes += kBytesPerLine) {
    out = encodeGroups(bytes, kBytesPerLine / kBytesPerGroup, out);
    std::memcpy(out, kLineEnd, kLineEndLength);
    out += kLineEndLength;
  }
  const int incomplete = left % kBytesPerGroup;
  out = encodeGroups(bytes, left / kBytesPerGroup, out);
  if (incomplete != 0) {
    encodeLastGroup(bytes + (left - incomplete), incomplete, out);
  }
  return text;
}

char* CBase64Utils::Decode(char* text, int* length) {
  if (*length < -1 || *length == INT_MAX) {
    return nullptr;  // one more than it is not a size
  }
  // A group of any length writes three bytes, and a NUL belongs behind them.
  const std::size_t size = static_cast<std::size_t>(std::max(*length, 0)) + kBytesPerGroup + 1;
  auto* buffer = static_cast<char*>(std::calloc(size, 1));
  if (buffer == nullptr) {
    return nullptr;
  }

  CharacterReader reader(text, *length, m_error);
  char* out = buffer;
  int taken = kCharactersPerGroup;
  while (taken == kCharactersPerGroup) {
    out = reader.copyCleanGroups(out);
    std::uint32_t group = 0;
    taken = reader.takeGroup(group);
    if (taken > 0) {
      out = writeGroup(group, out);
    }
  }

  *length = static_cast<int>(out - buffer);
  if (taken > 0) {
    // Of an incomplete group 4 - r bytes are reported, not r - 1, although all three are in the buffer. A reader of the
    // usual texts finds a zero byte too much behind "==" and misses the last byte before "=".
    *length += kCharactersPerGroup - taken - kBytesPerGroup;
  }
  return buffer;
}
