// Connections that cannot be taken in, for want of memory, say, or that take the time of a thread.
#include "http/HttpServer.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "http/WorkerThreads.h"
#include "policyserver/ServerParts.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;

std::atomic<int> refusals{0};
zarotest::Gate gate(true);

}  // namespace

// The server under test calls this one, since the program comes before the libraries.
extern "C" SSL* SSL_new(SSL_CTX* context) {
  using Make = SSL* (*)(SSL_CTX*);
  static const auto make = reinterpret_cast<Make>(dlsym(RTLD_NEXT, "SSL_new"));
  gate.pass();
  if (refusals.fetch_sub(1) > 0) {
    SSLerr(0, ERR_R_MALLOC_FAILURE);
    return nullptr;
  }
  return make(context);
}

namespace {

class Socket {
 public:
  Socket() : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {}
  ~Socket() { close(m_socket); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Answers the port.
  unsigned int bind() {
    sockaddr_in place = _place(0);
    socklen_t size = sizeof place;
    EXPECT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr*>(&place), size), 0);
    EXPECT_EQ(getsockname(m_socket, reinterpret_cast<sockaddr*>(&place), &size), 0);
    return ntohs(place.sin_port);
  }
  void connect(unsigned int port) {
    const sockaddr_in place = _place(port);
    ASSERT_EQ(::connect(m_socket, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
  }
  bool isClosedByPeer() {
    char byte = 0;
    return recv(m_socket, &byte, 1, 0) <= 0;
  }

 private:
  static sockaddr_in _place(unsigned int port) {
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    place.sin_port = htons(static_cast<unsigned short>(port));
    return place;
  }

  int m_socket;
};

class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest() {
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=server -keyout " +
        directory.path("key.pem") + " -out " + directory.path("server.pem") + " 2> /dev/null";
    EXPECT_EQ(std::system(make.c_str()), 0);
    settings.address = "127.0.0.1";
    settings.port = Socket().bind();
    settings.https = true;
    settings.backlog = 10;
    settings.threads = 1;
    settings.maxThreads = 1;
    settings.certificate = directory.path("server.pem");
    settings.privateKey = directory.path("key.pem");
  }

  void waitForMetric(const std::string& line) { zarotest::waitForMetric(metrics, line); }

  const zarotest::TemporaryDirectory directory;
  ServerSettings settings{};
  const ServiceLog log{ServiceLog::Target::StandardError};
  ServerMetrics metrics;
  const SnapshotHolder snapshots;
  const RequestHandler handler{snapshots, metrics, false};
};

TEST_F(HttpServerTest, goesOnAfterAConnectionThatItCouldNotTakeIn) {
  HttpServer server(settings, handler, metrics, log);
  server.start();
  refusals = 1;
  Socket lost;
  lost.connect(settings.port);
  EXPECT_TRUE(lost.isClosedByPeer());
  waitForMetric("zaro_server_turned_away_total 1");
  Socket next;
  next.connect(settings.port);
  waitForMetric("zaro_server_connections 1");
  EXPECT_TRUE(server.finish(60s));
}

TEST_F(HttpServerTest, addsAThreadWhereAConnectionTakesTheTimeOfTheOnlyOneUpToTheMost) {
  for (const unsigned int most : {1U, 2U}) {
    settings.port = Socket().bind();
    settings.maxThreads = most;
    HttpServer server(settings, handler, metrics, log);
    server.start();
    gate.close();
    Socket slow;
    slow.connect(settings.port);
    EXPECT_TRUE(gate.isReachedBy(1));
    std::this_thread::sleep_for(WorkerThreads::kTooLong + 1ms);
    gate.open();
    Socket next;  // taken in when it is known that the first one waited
    next.connect(settings.port);
    waitForMetric("zaro_server_connections 2");
    waitForMetric("zaro_server_threads " + std::to_string(most));  // which may serve before it is counted
    EXPECT_TRUE(server.finish(60s));
  }
}

}  // namespace
