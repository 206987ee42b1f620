#include "PlainBase64.h"

#include <cstdint>
#include <ostream>

namespace {

const std::string kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
    "abcdefghijklmnopqrstuvwxyz"
    "0123456789"
    "+/";

std::string bitsOf(unsigned int value, int count) {
  std::string bits;
  for (int bit = count - 1; bit >= 0; --bit) {
    bits += (value >> bit) % 2 != 0 ? '1' : '0';
  }
  return bits;
}

unsigned int valueOf(const std::string& bits) {
  unsigned int value = 0;
  for (const char bit : bits) {
    value = value * 2 + (bit == '1' ? 1 : 0);
  }
  return value;
}

}  // namespace

std::string plainBase64(const std::string& bytes) {
  std::string bits;
  for (const char byte : bytes) {
    bits += bitsOf(static_cast<unsigned char>(byte), 8);
  }
  while (bits.size() % 6 != 0) {
    bits += '0';
  }
  std::string text;
  for (std::size_t at = 0; at < bits.size(); at += 6) {
    text += kDigits[valueOf(bits.substr(at, 6))];
  }
  while (text.size() % 4 != 0) {
    text += '=';
  }
  return text;
}

std::string plainBase64Decoded(const std::string& text) {
  std::string bits;
  for (const char character : text) {
    if (character != '=') {
      bits += bitsOf(static_cast<unsigned int>(kDigits.find(character)), 6);
    }
  }
  std::string bytes;
  for (std::size_t at = 0; at + 8 <= bits.size(); at += 8) {
    bytes += static_cast<char>(static_cast<unsigned char>(valueOf(bits.substr(at, 8))));
  }
  return bytes;
}

std::string gatewayBase64(const std::string& bytes) {
  std::string text;
  int onLine = 0;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t left = bytes.size() - at;
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      if (i < left) {
        const int byte = static_cast<unsigned char>(bytes[at + i]);
        const int withSign = left < 3 && byte >= 128 ? byte - 256 : byte;  // the last group only
        word |= static_cast<std::uint32_t>(withSign);
        word |= static_cast<std::uint32_t>(byte);
      }
      word <<= 8;
    }
    text += kDigits[word >> 26];
    text += kDigits[(word >> 20) % 64];
    text += left > 1 ? kDigits[(word >> 14) % 64] : '=';
    text += left > 2 ? kDigits[(word >> 8) % 64] : '=';
    onLine += 4;
    if (left > 2 && onLine == 76) {
      text += "\r\n";
      onLine = 0;
    }
  }
  return text;
}

bool operator==(const GatewayBytes& left, const GatewayBytes& right) {
  return left.length == right.length && left.bytes == right.bytes && left.error == right.error;
}

std::ostream& operator<<(std::ostream& stream, const GatewayBytes& decoded) {
  stream << decoded.length << " bytes:";
  for (const char byte : decoded.bytes) {
    stream << ' ' << static_cast<int>(static_cast<unsigned char>(byte));
  }
  return stream << (decoded.error ? ", error" : "");
}

GatewayBytes gatewayBase64Decoded(const std::string& text) {
  constexpr int kForeign = -126;
  const auto at = [&](std::size_t position) { return position < text.size() ? text[position] : '\0'; };
  const auto entry = [&](char character) {
    const std::size_t value = kDigits.find(character);
    return value != std::string::npos ? static_cast<int>(value) : kForeign;
  };
  GatewayBytes decoded = {0, "", false};
  std::uint32_t word = 0;
  const auto emit = [&] {
    for (const int shift : {22, 14, 6}) {
      decoded.bytes += static_cast<char>(static_cast<unsigned char>(word >> shift));
    }
  };
  int limit = static_cast<int>(text.size());
  std::size_t position = 0;
  int i = 1;
  for (; i <= limit && at(position) != '='; ++i, ++position) {
    while (entry(at(position)) == kForeign) {
      decoded.error = decoded.error || (at(position) != '\r' && at(position) != '\n');
      ++position;
      --limit;
      if (i >= limit) {
        break;
      }
    }
    word = (word | static_cast<std::uint32_t>(entry(at(position)))) << 6;
    if (i % 4 == 0) {
      emit();
      word = 0;
      decoded.length += 3;
    }
  }
  const int left = (i - 1) % 4;
  if (left != 0) {
    word <<= 6 * (4 - left);
    emit();
    decoded.length += 4 - left;
  }
  decoded.bytes.resize(static_cast<std::size_t>(decoded.length));
  return decoded;
}
