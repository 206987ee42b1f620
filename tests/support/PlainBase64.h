// Base64, slow and plain, to compare the library's codec with.
#pragma once

#include <iosfwd>
#include <string>

// As RFC 4648 has it, bit after bit and without line ends.
std::string plainBase64(const std::string& bytes);
// The bytes of a text of whole, padded groups; it must be one.
std::string plainBase64Decoded(const std::string& text);

// As the gateway has it, byte after byte through a word of 32 bits that wraps.
std::string gatewayBase64(const std::string& bytes);

struct GatewayBytes {
  int length;         // as reported
  std::string bytes;  // as many
  bool error;         // a character that does not belong
};
bool operator==(const GatewayBytes& left, const GatewayBytes& right);
std::ostream& operator<<(std::ostream& stream, const GatewayBytes& decoded);

// All of a text is considered; a NUL follows it.
GatewayBytes gatewayBase64Decoded(const std::string& text);
