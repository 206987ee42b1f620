// Whole requests to the policy server, and the file of its tokens: what is answered, and that nothing is without a proof.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "http/RequestFields.h"
#include "http/RequestHandler.h"
#include "integration/policy/PolicyMaker.h"
#include "snapshot/SnapshotMaker.h"

namespace {

constexpr const char* kSecret = "secret-that-no-answer-shows";

// A server's parts, made once.
struct Server {
  Server() {
    PolicyMaker made;
    made.rule("drop", {"*@bad.test"}, 2, {"Delete"});
    made.policy().version = 17;
    served.replace(makeSnapshot(made.policy()));
  }

  SnapshotHolder served;
  SnapshotHolder none;
  ServerMetrics metrics;
};

std::shared_ptr<const Tokens> tokensIn(const std::string& lines) {
  try {
    return std::make_shared<const Tokens>(lines);
  } catch (const zaroruntime::RuntimeError& refusal) {
    // Of a line that is no token nothing is told.
    FUZZ_CHECK(std::string(refusal.what()).find(kSecret) == std::string::npos);
    return nullptr;
  }
}

std::vector<std::string> linesOf(const std::string& input, std::size_t count) {
  std::vector<std::string> lines(count);
  std::size_t line = 0;
  for (const char character : input) {
    if (character == '\n' && line + 1 < count) {
      ++line;
    } else {
      lines[line] += character;
    }
  }
  return lines;
}

std::string fieldOf(const Answer& answer, const std::string& name) {
  for (const auto& [given, value] : answer.fields) {
    if (name == given) {
      return value;
    }
  }
  return "";
}

void check(const Answer& answer, const Request& request, bool hasProof) {
  constexpr unsigned int kStatuses[] = {200, 304, 400, 401, 404, 405, 503};
  FUZZ_CHECK(std::count(std::begin(kStatuses), std::end(kStatuses), answer.status) == 1);
  FUZZ_CHECK(answer.body != nullptr && answer.hold >= std::chrono::seconds(0));
  FUZZ_CHECK(answer.hold <= RequestHandler::kLongestHold);
  FUZZ_CHECK((answer.status == 401) == !answer.refusal.empty());
  FUZZ_CHECK((answer.status == 401) == !fieldOf(answer, "WWW-Authenticate").empty());
  for (const auto& [name, value] : answer.fields) {
    FUZZ_CHECK(value.find_first_of(std::string("\r\n\0", 3)) == std::string::npos && *name != '\0');
  }
  FUZZ_CHECK((*answer.body + answer.refusal).find(kSecret) == std::string::npos);
  const bool isPolicy = std::string(answer.path) == "/v1/policy";
  if (isPolicy && (answer.status == 200 || answer.status == 304)) {
    FUZZ_CHECK(hasProof && (request.method == "GET" || request.method == "HEAD"));
  }
  FUZZ_CHECK(hasProof || answer.status == 401 || (request.isLocal && !isPolicy));
}

}  // namespace

// A byte of flags; then, a line each, method, target, If-None-Match, Accept-Encoding, Authorization; then the tokens.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Server server;
  if (size == 0) {
    return 0;
  }
  constexpr std::size_t kLines = 6;
  const std::vector<std::string> lines = linesOf(textOf(data + 1, size - 1), kLines);
  Request request;
  request.method = lines[0];
  request.target = lines[1];
  request.ifNoneMatch = lines[2];
  request.acceptEncoding = lines[3];
  request.authorization = lines[4];
  request.isLocal = (data[0] & 1U) != 0;
  request.hasCertificate = (data[0] & 2U) != 0;
  request.certificateFault = (data[0] & 4U) != 0 ? "it has expired" : "";
  const bool needsProof = (data[0] & 8U) != 0;

  const auto tokens = tokensIn(std::string(kSecret) + "\n" + lines[5]);
  const auto token = bearerToken(request.authorization);
  const bool isKnown = token && tokens != nullptr && tokens->contains(*token);
  // What is known is a line of the file.
  FUZZ_CHECK(!isKnown || *token == kSecret || lines[5].find(*token) != std::string::npos);
  if (request.authorization.find(kSecret) != std::string::npos) {
    return 0;  // the input repeats the secret itself
  }
  const bool hasProof = !needsProof || request.hasCertificate || isKnown;
  for (const SnapshotHolder* snapshots : {&server.served, &server.none}) {
    RequestHandler handler(*snapshots, server.metrics, needsProof);
    handler.replaceTokens(tokens);
    check(handler.answer(request), request, hasProof);
  }
  return 0;
}
