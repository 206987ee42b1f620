// What a request is answered with: paths, methods, proofs, conditions. Knows nothing of connections.
//
// Safe from any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "access/Tokens.h"
#include "metrics/ServerMetrics.h"
#include "snapshot/SnapshotHolder.h"

// What of a request counts. Fields that occur several times are joined by commas.
struct Request {
  std::string method;
  std::string target;
  std::string ifNoneMatch;
  std::string acceptEncoding;
  std::string authorization;
  bool isLocal = false;          // over the loopback interface
  bool hasCertificate = false;   // of the client, and it is good
  std::string certificateFault;  // why the one that the client has is not good; empty without one
};

struct Answer {
  unsigned int status = 0;
  std::vector<std::pair<const char*, std::string>> fields;
  std::shared_ptr<const std::string> body;  // never null; not sent with 304 and to HEAD
  const char* path = "other";               // for metrics
  std::string refusal;                      // for the log: why the client is no client; empty when it is one
  std::chrono::seconds hold{0};             // before this answer is given, another policy is waited for
};

class RequestHandler {
 public:
  static constexpr std::chrono::seconds kLongestHold{300};

  // `needsProof`: only clients that prove to be some get the policy, and others get nothing beyond the host itself.
  RequestHandler(const SnapshotHolder& snapshots, ServerMetrics& metrics, bool needsProof)
      : m_snapshots(snapshots), m_metrics(metrics), m_needsProof(needsProof) {}

  // The tokens that count from now on.
  void replaceTokens(std::shared_ptr<const Tokens> tokens);

  Answer answer(const Request& request) const;

 private:
  std::string _whyRefused(const Request& request, bool isPolicy) const;
  Answer _policy(const Request& request, std::chrono::seconds wait) const;
  Answer _readiness() const;

  const SnapshotHolder& m_snapshots;
  ServerMetrics& m_metrics;
  bool m_needsProof;
  mutable std::mutex m_mutex;
  std::shared_ptr<const Tokens> m_tokens;
};

// A short text for a status, with the fields that go with it.
Answer plainAnswer(unsigned int status, const std::string& text);
