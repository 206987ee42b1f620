#include "policyclient/PolicyClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "policy/PolicyMaker.h"
#include "policyclient/ScriptedHttpServer.h"
#include "support/SnapshotText.h"
#include "support/TemporaryDirectory.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zarotest::snapshotText;
using zarotest::withSnapshotTail;
using Kind = PolicyAnswer::Kind;

constexpr const char* kToken = "a-token-that-no-message-shows";

std::string snapshotOfVersion(std::uint64_t version) {
  PolicyMaker made;
  made.rule("Partners", {"*@bad.test", "*@worse.test"}, 2, {"Delete"});
  made.policy().version = version;
  return snapshotText(made.policy());
}

std::string withoutTail(const std::string& text) {
  return text.substr(0, text.rfind("{\"sha256\""));
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
  return text.replace(text.find(part), part.size(), by);
}

// A client whose clock and chance are the test's.
class PolicyClientTest : public testing::Test {
 protected:
  std::unique_ptr<ScriptedHttpServer> serve(const ScriptedHttpServer::Script& script) {
    auto server = std::make_unique<ScriptedHttpServer>(script);
    m_settings.servers.push_back({"127.0.0.1", server->port()});
    return server;
  }
  std::unique_ptr<ScriptedHttpServer> serve(const std::string& response) {
    return serve([response](const std::string&) { return response; });
  }

  PolicyClient& client() {
    if (!m_client) {
      PolicyClientSurroundings surroundings;
      surroundings.now = [this] { return m_now; };
      surroundings.chance = [this] { return m_chance; };
      surroundings.registered = [this] { return m_registered; };
      surroundings.answered = [this](const std::string& server) { m_answered.push_back(server); };
      surroundings.failed = [this](const std::string& server, const std::string& why) {
        m_failed.push_back(server + " " + why);
      };
      m_client = std::make_unique<PolicyClient>(m_settings, surroundings);
    }
    return *m_client;
  }

  struct Refusal {
    std::string text;
    FailureKind kind = FailureKind::None;
  };
  Refusal refusalOf(const PolicyQuestion& question = {}) {
    try {
      client().ask(question);
    } catch (const RuntimeError& refusal) {
      return {refusal.what(), refusal.kind()};
    }
    return {};
  }

  void giveToken(mode_t mode = 0600) {
    m_settings.tokenFile = m_directory.path("token");
    std::ofstream(m_settings.tokenFile) << kToken << "\n";
    chmod(m_settings.tokenFile.c_str(), mode);
  }

  zarotest::TemporaryDirectory m_directory;
  ClientSettings m_settings;
  std::vector<PolicyServerAddress> m_registered;
  BackOff::Clock::time_point m_now{std::chrono::hours(1)};
  double m_chance = 0;
  std::vector<std::string> m_answered;
  std::vector<std::string> m_failed;
  std::unique_ptr<PolicyClient> m_client;
};

TEST_F(PolicyClientTest, getsAWholeSnapshot) {
  const std::string text = snapshotOfVersion(7);
  const auto server = serve(httpResponse(200, text, "ETag: \"7-abc\"\r\n"));
  const PolicyAnswer answer = client().ask({});
  EXPECT_EQ(answer.kind, Kind::Snapshot);
  EXPECT_EQ(answer.policy.version, 7u);
  ASSERT_EQ(answer.policy.groups.size(), 1u);
  EXPECT_THAT(answer.policy.groups[0].members, ElementsAre("*@bad.test", "*@worse.test"));
  EXPECT_EQ(answer.text, text);
  EXPECT_EQ(answer.etag, "\"7-abc\"");
  EXPECT_EQ(answer.server, m_settings.servers[0].text());
  EXPECT_THAT(m_answered, ElementsAre(answer.server));
}

TEST_F(PolicyClientTest, asksForWhatIsNew) {
  const auto server = serve(httpResponse(304, "", "ETag: \"7-abc\"\r\n"));
  PolicyQuestion question;
  question.etag = "\"7-abc\"";
  question.wait = seconds(25);
  const PolicyAnswer answer = client().ask(question);
  EXPECT_EQ(answer.kind, Kind::Unchanged);
  EXPECT_EQ(answer.etag, "\"7-abc\"");
  ASSERT_EQ(server->requests().size(), 1u);
  EXPECT_THAT(server->requests()[0],
              AllOf(HasSubstr("GET /v1/policy?wait=25 HTTP/1.1\r\n"), HasSubstr("\r\nIf-None-Match: \"7-abc\"\r\n"),
                    HasSubstr("\r\nAccept-Encoding: gzip\r\n"), Not(HasSubstr("Authorization"))));
}

TEST_F(PolicyClientTest, doesNotWaitForTheFirstPolicy) {
  const auto server = serve(httpResponse(200, snapshotOfVersion(7)));
  PolicyQuestion question;
  question.wait = seconds(25);
  client().ask(question);
  EXPECT_THAT(server->requests()[0], AllOf(HasSubstr("GET /v1/policy HTTP/1.1\r\n"), Not(HasSubstr("If-None-Match"))));
}

TEST_F(PolicyClientTest, takesCompressedSnapshots) {
  const std::string text = snapshotOfVersion(7);
  const auto server = serve(httpResponse(200, asGzip(text), "Content-Encoding: gzip\r\n"));
  EXPECT_EQ(client().ask({}).text, text);
}

TEST_F(PolicyClientTest, takesAPolicyOfTheSameVersion) {
  const auto server = serve(httpResponse(200, snapshotOfVersion(7)));
  PolicyQuestion question;
  question.leastVersion = 7;
  EXPECT_EQ(client().ask(question).kind, Kind::Snapshot);
}

TEST_F(PolicyClientTest, refusesAnOlderPolicy) {
  const auto server = serve(httpResponse(200, snapshotOfVersion(6)));
  PolicyQuestion question;
  question.leastVersion = 7;
  const Refusal refusal = refusalOf(question);
  EXPECT_THAT(refusal.text, AllOf(HasSubstr("hands out version 6, and this host has 7 already"), HasSubstr("backup")));
  EXPECT_EQ(refusal.kind, FailureKind::Data);
}

TEST_F(PolicyClientTest, sendsItsTokenToItsServerAlone) {
  giveToken();
  const auto elsewhere = std::make_unique<ScriptedHttpServer>([](const std::string&) { return httpResponse(200, ""); });
  const auto server =
      serve(httpResponse(302, "", "Location: http://127.0.0.1:" + std::to_string(elsewhere->port()) + "/v1/policy\r\n"));
  const Refusal refusal = refusalOf();
  EXPECT_THAT(server->requests()[0], HasSubstr(std::string("\r\nAuthorization: Bearer ") + kToken + "\r\n"));
  EXPECT_THAT(elsewhere->requests(), IsEmpty());
  EXPECT_THAT(refusal.text, AllOf(HasSubstr("sends its clients elsewhere (status 302)"), Not(HasSubstr(kToken))));
}

TEST_F(PolicyClientTest, readsItsTokenForEachQuestion) {
  giveToken();
  const auto server = serve(httpResponse(401, ""));
  EXPECT_EQ(refusalOf().kind, FailureKind::Refused);
  std::ofstream(m_settings.tokenFile) << "another";
  PolicyQuestion urgent;
  urgent.isUrgent = true;
  refusalOf(urgent);
  EXPECT_THAT(server->requests()[1], HasSubstr("Bearer another\r\n"));
}

TEST_F(PolicyClientTest, refusesATokenThatOthersMayRead) {
  giveToken(0644);
  const auto server = serve(httpResponse(200, snapshotOfVersion(7)));
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text, AllOf(HasSubstr(m_settings.tokenFile), HasSubstr("other users may read or write it")));
  EXPECT_EQ(refusal.kind, FailureKind::Configuration);
  EXPECT_THAT(server->requests(), IsEmpty());
}

TEST_F(PolicyClientTest, refusesAFileThatHoldsNoToken) {
  const auto server = serve(httpResponse(200, snapshotOfVersion(7)));
  giveToken();
  for (const char* text : {"", "\n", "two words", "two\nlines", "\xc3\xa9"}) {
    std::ofstream(m_settings.tokenFile) << text;
    PolicyQuestion urgent;
    urgent.isUrgent = true;
    EXPECT_THAT(refusalOf(urgent).text, HasSubstr("does not hold a token")) << text;
  }
  EXPECT_THAT(server->requests(), IsEmpty());
}

// --- Answers that do not count ---

struct BadAnswer {
  const char* name;
  std::string response;
  FailureKind kind;
  const char* told;
};

// A text whose tail is right, but not the rest.
std::string finished(const std::string& text) {
  return httpResponse(200, withSnapshotTail(text));
}

std::vector<BadAnswer> badAnswers() {
  const std::string text = snapshotOfVersion(7);
  const std::string body = withoutTail(text);
  const std::string whole = httpResponse(200, text);
  return {
      {"changed", httpResponse(200, replaced(text, "bad.test", "bed.test")), FailureKind::Data, "it was changed"},
      {"anotherVersion", httpResponse(200, replaced(text, "\"version\":7", "\"version\":8")), FailureKind::Data,
       "it was changed"},
      {"cut", httpResponse(200, body), FailureKind::Data, "it is cut"},
      {"cutInALine", httpResponse(200, text.substr(0, text.size() / 2)), FailureKind::Data, "no whole snapshot"},
      {"cutOnTheWay", whole.substr(0, whole.size() - 20), FailureKind::ConnectionLost, "remaining to read"},
      {"empty", httpResponse(200, ""), FailureKind::Data, "it is empty"},
      {"noDigest", httpResponse(200, body + "{\"sha256\":null}\n"), FailureKind::Data, "it was changed"},
      {"wrongDigest", httpResponse(200, body + "{\"sha256\":\"" + std::string(64, '0') + "\"}\n"), FailureKind::Data,
       "it was changed"},
      {"somethingBehind", httpResponse(200, text + "{}\n"), FailureKind::Data, "something stands behind its tail"},
      {"anotherFormat", finished(replaced(body, "\"format\":1", "\"format\":2")), FailureKind::Data, "another format"},
      {"otherTotals", finished(replaced(body, "\"members\":2", "\"members\":3")), FailureKind::Data, "other totals"},
      {"noJson", httpResponse(200, "<html>Hello</html>\n"), FailureKind::Data, "no whole snapshot"},
      {"noGzip", httpResponse(200, text, "Content-Encoding: gzip\r\n"), FailureKind::Data, "unencoding"},
      {"cutGzip", httpResponse(200, asGzip(text).substr(0, 100), "Content-Encoding: gzip\r\n"), FailureKind::Data,
       "no whole snapshot"},
      {"unaskedFor304", httpResponse(304, ""), FailureKind::Other, "(status 304)"},
      {"notAClient", httpResponse(401, ""), FailureKind::Refused, "does not take this host for a client (status 401)"},
      {"forbidden", httpResponse(403, ""), FailureKind::Refused, "(status 403)"},
      {"notThere", httpResponse(404, ""), FailureKind::Other, "hands out no policy (status 404)"},
      {"noPolicyYet", httpResponse(503, ""), FailureKind::ConnectionLost, "has no policy to hand out now (status 503)"},
      {"broken", httpResponse(500, ""), FailureKind::Other, "(status 500)"},
      {"wholeButNotFound", httpResponse(404, text), FailureKind::Other, "(status 404)"},
      {"noHttp", "SSH-2.0-OpenSSH\r\n", FailureKind::Other, "HTTP/0.9"},
      {"hangsUp", "", FailureKind::ConnectionLost, "Empty reply"},
  };
}

class BadAnswers : public PolicyClientTest, public testing::WithParamInterface<BadAnswer> {};

TEST_P(BadAnswers, areFailuresOfTheirServer) {
  const auto server = serve(GetParam().response);
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text,
              AllOf(HasSubstr("policy server " + m_settings.servers[0].text() + ": "), HasSubstr(GetParam().told)));
  EXPECT_EQ(refusal.kind, GetParam().kind) << refusal.text;
  EXPECT_EQ(m_failed.size(), 1u);
  EXPECT_THAT(m_answered, IsEmpty());
  EXPECT_EQ(client().pause(), milliseconds(500));
}

INSTANTIATE_TEST_SUITE_P(, BadAnswers, testing::ValuesIn(badAnswers()),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(PolicyClientTest, tellsOfServersThatAreNotThere) {
  unsigned int port = 0;
  {
    const ScriptedHttpServer gone([](const std::string&) { return ""; });
    port = gone.port();
  }
  m_settings.servers = {{"127.0.0.1", port}};
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text, HasSubstr("cannot be reached: Connection refused"));
  EXPECT_EQ(refusal.kind, FailureKind::ConnectionLost);
}

TEST_F(PolicyClientTest, givesUpOnAServerThatIsSilent) {
  m_settings.receiveTimeout = seconds(1);
  const auto server = serve([](const std::string&) { return std::nullopt; });
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text, HasSubstr("does not answer in time"));
  EXPECT_EQ(refusal.kind, FailureKind::ConnectionLost);
}

TEST_F(PolicyClientTest, doesNotSpeakHttpToAServerOfHttps) {
  m_settings.usesTls = true;
  const auto server = serve(httpResponse(200, snapshotOfVersion(7)));
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text, HasSubstr("SSL"));
  EXPECT_EQ(refusal.kind, FailureKind::Other);
}

TEST_F(PolicyClientTest, saysWhenThereIsNoServer) {
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text, HasSubstr("there is no policy server to ask"));
  EXPECT_EQ(refusal.kind, FailureKind::Configuration);
}

// --- Several servers ---

TEST_F(PolicyClientTest, triesTheNextServerAndStaysWithIt) {
  const auto bad = serve(httpResponse(503, ""));
  const auto good = serve(httpResponse(200, snapshotOfVersion(7)));
  EXPECT_EQ(client().ask({}).server, m_settings.servers[1].text());
  EXPECT_THAT(m_failed, ElementsAre(m_settings.servers[0].text() + " has no policy to hand out now (status 503)"));
  m_now += std::chrono::hours(1);
  client().ask({});
  EXPECT_EQ(bad->requests().size(), 1u);
  EXPECT_EQ(good->requests().size(), 2u);
}

TEST_F(PolicyClientTest, beginsWithAnyOfThem) {
  const auto first = serve(httpResponse(200, snapshotOfVersion(7)));
  const auto second = serve(httpResponse(200, snapshotOfVersion(7)));
  m_chance = 0.5;
  client().ask({});
  EXPECT_THAT(first->requests(), IsEmpty());
  EXPECT_EQ(second->requests().size(), 1u);
}

TEST_F(PolicyClientTest, namesEveryServerThatFailed) {
  const auto first = serve(httpResponse(503, ""));
  const auto second = serve(httpResponse(401, ""));
  const Refusal refusal = refusalOf();
  EXPECT_THAT(refusal.text,
              AllOf(HasSubstr(m_settings.servers[0].text() + ": has no policy"), HasSubstr("; policy server "),
                    HasSubstr(m_settings.servers[1].text() + ": does not take this host")));
  EXPECT_EQ(refusal.kind, FailureKind::Refused);
}

TEST_F(PolicyClientTest, leavesServersAloneInTheirPauses) {
  m_chance = 0.999;
  const auto server = serve(httpResponse(503, ""));
  refusalOf();
  const milliseconds pause = client().pause();
  EXPECT_GT(pause, milliseconds(900));
  EXPECT_LE(pause, milliseconds(1000));
  EXPECT_THAT(refusalOf().text, HasSubstr("has no policy to hand out now"));
  EXPECT_EQ(server->requests().size(), 1u);
  m_now += pause;
  refusalOf();
  EXPECT_EQ(server->requests().size(), 2u);
  EXPECT_GT(client().pause(), milliseconds(1900));
}

TEST_F(PolicyClientTest, asksInAPauseWhenItIsUrgent) {
  const auto server = serve(httpResponse(503, ""));
  PolicyQuestion urgent;
  urgent.isUrgent = true;
  refusalOf();
  refusalOf(urgent);
  EXPECT_EQ(server->requests().size(), 2u);
}

TEST_F(PolicyClientTest, keepsAwayAsLongAsAServerAsks) {
  const auto server = serve(httpResponse(503, "", "Retry-After: 20\r\n"));
  refusalOf();
  EXPECT_EQ(client().pause(), seconds(20));
}

TEST_F(PolicyClientTest, keepsAwayAMinuteAtMost) {
  std::string asked;
  const auto server = serve([&](const std::string&) { return httpResponse(503, "", "Retry-After: " + asked + "\r\n"); });
  for (const char* pause : {"61", "9223372036854775", "9223372036854776", "9223372036854775807"}) {
    SCOPED_TRACE(pause);
    asked = pause;
    m_client.reset();
    refusalOf();
    EXPECT_EQ(client().pause(), BackOff::kLongest);
  }
}

TEST_F(PolicyClientTest, asksRegisteredServersWhereNoneIsNamed) {
  const ScriptedHttpServer server([](const std::string&) { return httpResponse(200, snapshotOfVersion(7)); });
  m_registered = {{"127.0.0.1", server.port()}};
  EXPECT_EQ(client().ask({}).kind, Kind::Snapshot);
}

TEST_F(PolicyClientTest, findsServersThatWereRegisteredSince) {
  const ScriptedHttpServer old([](const std::string&) { return httpResponse(503, ""); });
  const ScriptedHttpServer added([](const std::string&) { return httpResponse(200, snapshotOfVersion(7)); });
  m_registered = {{"127.0.0.1", old.port()}};
  refusalOf();
  m_registered.push_back({"127.0.0.1", added.port()});
  EXPECT_EQ(client().ask({}).kind, Kind::Snapshot);
  EXPECT_EQ(old.requests().size(), 1u);
}

TEST_F(PolicyClientTest, findsServersThatWereRegisteredSinceAlsoWhenAnOldOneIsDue) {
  const ScriptedHttpServer old([](const std::string&) { return httpResponse(503, ""); });
  const ScriptedHttpServer added([](const std::string&) { return httpResponse(200, snapshotOfVersion(7)); });
  m_registered = {{"127.0.0.1", old.port()}};
  refusalOf();
  m_registered.push_back({"127.0.0.1", added.port()});
  m_now += client().pause();
  EXPECT_EQ(client().ask({}).kind, Kind::Snapshot);
}

TEST_F(PolicyClientTest, leavesAListWithoutServersAloneForLongerAndLonger) {
  for (const int expected : {500, 1000, 2000, 4000}) {
    EXPECT_THAT(refusalOf().text, HasSubstr("there is no policy server to ask"));
    EXPECT_EQ(client().pause(), milliseconds(expected));
    m_now += client().pause();
  }
}

// --- Interruptions ---

TEST_F(PolicyClientTest, isInterruptedWhileAServerHoldsTheQuestion) {
  const auto server = serve([](const std::string&) { return std::nullopt; });
  PolicyClient& asking = client();
  std::thread interrupter([&] {
    server->waitForRequests(1);
    asking.interrupt();
  });
  PolicyQuestion question;
  question.etag = "\"7-abc\"";
  question.wait = seconds(300);
  EXPECT_EQ(asking.ask(question).kind, Kind::Interrupted);
  interrupter.join();
  EXPECT_THAT(m_failed, IsEmpty());
}

TEST_F(PolicyClientTest, isInterruptedBeforeItAsks) {
  const auto server = serve([](const std::string&) { return std::nullopt; });
  client().interrupt();
  EXPECT_EQ(client().ask({}).kind, Kind::Interrupted);
}

}  // namespace
