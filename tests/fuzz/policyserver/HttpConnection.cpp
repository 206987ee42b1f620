// The bytes of a connection to the policy server: whatever comes, it answers in HTTP, or not at all, and goes on.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "FuzzInput.h"
#include "QuietErrors.h"
#include "common/UniqueFd.h"
#include "http/HttpServer.h"
#include "integration/policy/PolicyMaker.h"
#include "snapshot/SnapshotMaker.h"

namespace {

sockaddr_in loopback(unsigned int port) {
  sockaddr_in place = {};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  place.sin_port = htons(static_cast<in_port_t>(port));
  return place;
}

unsigned int freePort() {
  const zaroruntime::UniqueFd any(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in place = loopback(0);
  socklen_t size = sizeof place;
  auto* const address = reinterpret_cast<sockaddr*>(&place);
  FUZZ_CHECK(bind(any.get(), address, size) == 0 && getsockname(any.get(), address, &size) == 0);
  return ntohs(place.sin_port);
}

ServerSettings plainSettings() {
  ServerSettings settings{};
  settings.address = "127.0.0.1";
  settings.port = freePort();
  settings.backlog = 100;
  settings.keepAlive = true;
  settings.receiveSeconds = settings.sendSeconds = 60;
  settings.threads = settings.maxThreads = 1;
  return settings;
}

// The server, as the program puts it together.
struct Served {
  Served() {
    PolicyMaker made;
    made.rule("drop", {"*@bad.test"}, 2, {"Delete"});
    snapshots.replace(makeSnapshot(made.policy()));
    server.start();
  }

  const ServerSettings settings = plainSettings();
  const ServiceLog log{ServiceLog::Target::StandardError};
  ServerMetrics metrics;
  SnapshotHolder snapshots;
  const RequestHandler handler{snapshots, metrics, false};
  HttpServer server{settings, handler, metrics, log};
};

// All that the server answers to some bytes behind which nothing more comes. A server that leaves the client waiting is
// found by the engine's limit of an input's time, which allows for a busy machine. The engine's timer interrupts calls.
std::string answerTo(const std::string& sent, unsigned int port) {
  const zaroruntime::UniqueFd peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in place = loopback(port);
  // From an address of its own in turn, since the ports of one would all be waiting for late packets soon.
  static std::uint32_t connections = 0;
  sockaddr_in own = loopback(0);
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK + connections++ % 200);
  FUZZ_CHECK(bind(peer.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0);
  FUZZ_CHECK(connect(peer.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0);
  for (std::size_t at = 0; at < sent.size();) {
    const ssize_t count = TEMP_FAILURE_RETRY(send(peer.get(), sent.data() + at, sent.size() - at, MSG_NOSIGNAL));
    if (count <= 0) {
      break;  // it has had enough
    }
    at += static_cast<std::size_t>(count);
  }
  shutdown(peer.get(), SHUT_WR);
  std::string answer;
  char piece[4096];
  ssize_t count = 0;
  while ((count = TEMP_FAILURE_RETRY(recv(peer.get(), piece, sizeof piece, 0))) > 0) {
    answer.append(piece, static_cast<std::size_t>(count));
  }
  FUZZ_CHECK(count == 0 || errno == ECONNRESET);
  return answer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Served served;
  const std::string sent = textOf(data, size);
  if (sent.find("wait") != std::string::npos) {
    return 0;  // the server may hold such a request for minutes
  }
  const QuietErrors quiet;
  const std::string answer = answerTo(sent, served.settings.port);
  FUZZ_CHECK(answer.empty() || answer.compare(0, 9, "HTTP/1.1 ") == 0);
  FUZZ_CHECK(answerTo("GET /healthz HTTP/1.1\r\nHost: a\r\n\r\n", served.settings.port).compare(0, 12, "HTTP/1.1 200") ==
             0);
  return 0;
}
