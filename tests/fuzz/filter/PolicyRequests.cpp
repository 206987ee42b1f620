// Policy delegation: what a connection sends, in pieces of any size, gives the same requests as all of it at once.
#include <algorithm>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "delegation/PolicyRequest.h"

namespace {

constexpr const char* kNames[] = {"request", "protocol_state", "sender", "recipient", "sasl_username", ""};

std::string shown(const PolicyRequest& request) {
  std::string text;
  for (const char* name : kNames) {
    const std::string value = request.value(name);
    FUZZ_CHECK(value.find('\n') == std::string::npos);
    text += value + '\n';
  }
  return text;
}

void takeAll(std::string& received, std::vector<std::string>& taken) {
  while (const auto request = PolicyRequest::takeFrom(received)) {
    taken.push_back(shown(*request));
  }
  FUZZ_CHECK(received.find("\n\n") == std::string::npos);
}

}  // namespace

// The first byte is the size of the pieces.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::size_t piece = data[0] + std::size_t{1};
  const std::string sent = textOf(data + 1, size - 1);
  std::string atOnce = sent;
  std::vector<std::string> want;
  takeAll(atOnce, want);

  std::string received;
  std::vector<std::string> got;
  for (std::size_t at = 0; at < sent.size(); at += piece) {
    received += sent.substr(at, piece);
    takeAll(received, got);
  }
  FUZZ_CHECK(got == want);
  FUZZ_CHECK(received == atOnce);
  return 0;
}
