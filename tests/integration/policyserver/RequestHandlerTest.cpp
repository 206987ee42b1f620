#include "http/RequestHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "policy/PolicyMaker.h"
#include "snapshot/SnapshotMaker.h"

namespace {

using namespace std::chrono_literals;

class RequestHandlerTest : public testing::Test {
 protected:
  RequestHandlerTest() {
    PolicyMaker made;
    made.policy().version = 17;
    snapshots.replace(makeSnapshot(made.policy()));
    handler.replaceTokens(std::make_shared<const Tokens>("right\n"));
  }

  static std::string fieldOf(const Answer& answer, const std::string& name) {
    for (const auto& [given, value] : answer.fields) {
      if (name == given) {
        return value;
      }
    }
    return "";
  }

  SnapshotHolder snapshots;
  ServerMetrics metrics;
  RequestHandler open{snapshots, metrics, false};
  RequestHandler handler{snapshots, metrics, true};
};

struct ProofCase {
  const char* label;
  const char* path;
  const char* authorization;
  bool isLocal;
  bool hasCertificate;
  unsigned int status;
};

const ProofCase kProofCases[] = {
    {"none", "/v1/policy", "", false, false, 401},
    {"none, on the host", "/v1/policy", "", true, false, 401},
    {"a token", "/v1/policy", "Bearer right", false, false, 200},
    {"a wrong token", "/v1/policy", "Bearer wrong", false, false, 401},
    {"the beginning of a token", "/v1/policy", "Bearer righ", false, false, 401},
    {"another scheme", "/v1/policy", "Basic right", false, false, 401},
    {"two fields", "/v1/policy", "Bearer wrong, Bearer right", false, false, 401},
    {"a certificate", "/v1/policy", "", false, true, 200},
    {"a certificate and a wrong token", "/v1/policy", "Bearer wrong", false, true, 200},
    {"the state, on the host", "/healthz", "", true, false, 200},
    {"the state, from elsewhere", "/healthz", "", false, false, 401},
    {"metrics, from elsewhere", "/metrics", "", false, false, 401},
    {"metrics with a token", "/metrics", "Bearer right", false, false, 200},
    {"what there is not", "/nothing", "", true, false, 401},
    {"what there is not, with a token", "/nothing", "Bearer right", false, false, 404},
    {"no target", "nothing", "", false, false, 401},
    {"no target, with a token", "nothing", "Bearer right", false, false, 400},
};

TEST_F(RequestHandlerTest, takesAProofForAllThatOthersGet) {
  for (const ProofCase& row : kProofCases) {
    Request request;
    request.method = "GET";
    request.target = row.path;
    request.authorization = row.authorization;
    request.isLocal = row.isLocal;
    request.hasCertificate = row.hasCertificate;
    const Answer answer = handler.answer(request);
    EXPECT_EQ(answer.status, row.status) << row.label;
    EXPECT_EQ(answer.refusal.empty(), row.status != 401) << row.label;
    EXPECT_EQ(fieldOf(answer, "WWW-Authenticate").empty(), row.status != 401) << row.label;
    EXPECT_THAT(*answer.body + answer.refusal, testing::Not(testing::HasSubstr("right"))) << row.label;
  }
}

TEST_F(RequestHandlerTest, saysWhatIsWrongWithACertificate) {
  Request request;
  request.method = "GET";
  request.target = "/v1/policy";
  EXPECT_EQ(handler.answer(request).refusal, "there is none");
  request.certificateFault = "certificate has expired";
  EXPECT_EQ(handler.answer(request).refusal, "the certificate is not good: certificate has expired");
  request.authorization = "Bearer right";
  EXPECT_EQ(handler.answer(request).status, 200u);
}

TEST_F(RequestHandlerTest, withoutTokensNoneIsRight) {
  handler.replaceTokens(nullptr);
  Request request;
  request.method = "GET";
  request.target = "/v1/policy";
  request.authorization = "Bearer right";
  EXPECT_EQ(handler.answer(request).status, 401u);
}

TEST_F(RequestHandlerTest, holdsWhatTheClientHas) {
  Request request;
  request.method = "GET";
  request.target = "/v1/policy?wait=7";
  Answer answer = open.answer(request);
  EXPECT_EQ(answer.status, 200u);
  EXPECT_EQ(answer.hold, 0s);
  request.ifNoneMatch = fieldOf(answer, "ETag");
  answer = open.answer(request);
  EXPECT_EQ(answer.status, 304u);
  EXPECT_EQ(answer.hold, 7s);
  request.method = "POST";
  EXPECT_EQ(open.answer(request).status, 405u);
}

TEST_F(RequestHandlerTest, withoutAPolicySaysSo) {
  SnapshotHolder none;
  const RequestHandler empty(none, metrics, false);
  Request request;
  request.method = "GET";
  request.target = "/v1/policy?wait=7";
  request.ifNoneMatch = "*";
  const Answer answer = empty.answer(request);
  EXPECT_EQ(answer.status, 503u);
  EXPECT_EQ(answer.hold, 7s);
  EXPECT_EQ(fieldOf(answer, "Retry-After"), "2");
}

}  // namespace
