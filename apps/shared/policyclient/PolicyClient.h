// Gets the policy from policy servers: from one of them, and from the next when it fails.
//
// 1. An answer counts when it is a whole snapshot with the right digest, of the known format, and no older than what the
//    caller has. Anything else is a failure of its server, which is then left alone for a while.
// 2. The client stays with a server as long as that answers. It begins with any of them, so that clients spread.
// 3. One thread uses an object, but for `interrupt`.
// 4. Failures never show a token.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "policy/MailPolicy.h"
#include "policyclient/BackOff.h"
#include "policyclient/HttpTransfer.h"
#include "store/ClientSettings.h"

struct PolicyQuestion {
  std::string etag;                           // of what the caller has; empty: it is sent in any case
  std::optional<std::uint64_t> leastVersion;  // an older snapshot is refused
  std::chrono::seconds wait{0};               // how long a server may hold the question when there is nothing new
  bool isUrgent = false;                      // ask servers also in their pauses
};

struct PolicyAnswer {
  enum class Kind { Snapshot, Unchanged, Interrupted };

  Kind kind = Kind::Interrupted;
  MailPolicy policy;
  std::string text;  // of the snapshot, as it came
  std::string etag;
  std::string server;  // ADDRESS:PORT
};

// What surrounds a client, for tests and for those who count.
struct PolicyClientSurroundings {
  std::function<BackOff::Clock::time_point()> now = BackOff::Clock::now;
  std::function<double()> chance;  // from 0 up to 1; empty: a generator of its own
  // The servers, where the settings name none.
  std::function<std::vector<PolicyServerAddress>()> registered;
  std::function<void(const std::string& server)> answered = [](const std::string&) {};
  std::function<void(const std::string& server, const std::string& why)> failed = [](const std::string&,
                                                                                     const std::string&) {};
};

class PolicyClient {
 public:
  // Throws RuntimeError.
  PolicyClient(ClientSettings settings, PolicyClientSurroundings surroundings);

  // Asks until a server answers. Throws RuntimeError naming each server and why it failed, of the kind of the last failure:
  //   Refused          the server does not take this client (401, 403)
  //   Data             what came is no whole snapshot, or an older one
  //   ConnectionLost   no answer, no policy yet (503), or every server is in its pause
  //   Configuration    there is no server to ask, or a file of the settings cannot be used, or a private one is open to
  //                    other users
  //   Other            any other answer; a certificate that is not good
  PolicyAnswer ask(const PolicyQuestion& question);

  // Until a server may be asked that is not in its pause; where none is known, until the list of servers may be.
  std::chrono::milliseconds pause() const;

  // Any thread: the question that is asked now, or else the next one, is answered as interrupted.
  void interrupt() { m_transfer.interrupt(); }

 private:
  struct Server {
    PolicyServerAddress address;
    BackOff backOff;
    std::string failure;  // the last one, until it answers
  };

  std::vector<PolicyServerAddress> _addresses();
  void _findServers();
  PolicyAnswer _ask(Server& server, const PolicyQuestion& question);
  void _fail(Server& server, const std::string& why, std::chrono::milliseconds pause);
  std::string _failures() const;
  HttpRequest _requestTo(const Server& server, const PolicyQuestion& question) const;

  ClientSettings m_settings;
  PolicyClientSurroundings m_surroundings;
  HttpTransfer m_transfer;
  std::vector<Server> m_servers;
  BackOff m_listBackOff;  // of the list of registered servers
  std::size_t m_current = 0;
};
