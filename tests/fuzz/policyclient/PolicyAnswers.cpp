// What a policy server sends, byte by byte: an answer counts as a whole snapshot or not at all.
#include <memory>
#include <string>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "integration/policyclient/ScriptedHttpServer.h"
#include "policyclient/PolicyClient.h"
#include "support/SnapshotText.h"

namespace {

// A server that sends the input, and a client that asks it.
class Peers {
 public:
  Peers() : m_server([this](const std::string&) { return m_response; }) {
    m_settings.servers.push_back({"127.0.0.1", m_server.port()});
    m_settings.receiveTimeout = std::chrono::seconds(5);
    m_settings.sendTimeout = std::chrono::seconds(5);
  }

  void answer(const std::string& response, const PolicyQuestion& question) {
    m_response = response;
    const BackOff::Clock::time_point now{std::chrono::hours(1)};
    PolicyClientSurroundings surroundings;
    surroundings.now = [&] { return now; };
    surroundings.chance = [] { return 0.5; };
    PolicyClient client(m_settings, surroundings);
    try {
      const PolicyAnswer answer = client.ask(question);
      FUZZ_CHECK(answer.kind != PolicyAnswer::Kind::Interrupted);
      FUZZ_CHECK(answer.kind == PolicyAnswer::Kind::Snapshot || !question.etag.empty());
      FUZZ_CHECK(answer.etag.find_first_of("\r\n") == std::string::npos);
      if (answer.kind == PolicyAnswer::Kind::Snapshot) {
        FUZZ_CHECK(zarotest::policyInSnapshot(answer.text).version == answer.policy.version);
        FUZZ_CHECK(!question.leastVersion || answer.policy.version >= *question.leastVersion);
      }
      FUZZ_CHECK(client.pause() == std::chrono::milliseconds(0));
    } catch (const zaroruntime::RuntimeError& refusal) {
      FUZZ_CHECK(*refusal.what() != '\0');
      FUZZ_CHECK(client.pause() >= BackOff::kFirst / 2 && client.pause() <= BackOff::kLongest);
    }
  }

 private:
  std::string m_response;
  ScriptedHttpServer m_server;
  ClientSettings m_settings;
};

}  // namespace

// The first byte says whether the client has a policy already, and whether the rest is all that is sent, or a body, or
// a body that gets the tail of a snapshot, or is said to be compressed, which it may be with such a tail.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::unique_ptr<Peers> peers;
  static unsigned int inputs = 0;
  if (size == 0) {
    return 0;
  }
  constexpr unsigned int kRequestsRemembered = 4096;  // by the scripted server, all of them
  if (inputs++ % kRequestsRemembered == 0) {
    peers = std::make_unique<Peers>();
  }
  const std::string rest = textOf(data + 1, size - 1);
  PolicyQuestion question;
  if ((data[0] & 4U) != 0) {
    question.etag = "\"7-abc\"";
    question.leastVersion = 7;
  }
  switch (data[0] & 3U) {
    case 0:
      peers->answer(rest, question);
      break;
    case 1:
      peers->answer(httpResponse(200, rest, "ETag: \"8-abc\"\r\n"), question);
      break;
    case 2:
      peers->answer(httpResponse(200, zarotest::withSnapshotTail(rest), "ETag: \"8-abc\"\r\n"), question);
      break;
    default:
      peers->answer(httpResponse(200, (data[0] & 8U) != 0 ? asGzip(zarotest::withSnapshotTail(rest)) : rest,
                                 "ETag: \"8-abc\"\r\nContent-Encoding: gzip\r\n"),
                    question);
  }
  return 0;
}
