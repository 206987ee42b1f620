#include "http/HttpServer.h"

#include <sys/resource.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/strand.hpp>
#include <string>
#include <thread>

#include "ZaroRuntime/RuntimeError.h"
#include "access/TlsContext.h"
#include "http/Session.h"
#include "service/FailureText.h"

using boost::asio::ip::tcp;
using TlsContext = std::shared_ptr<boost::asio::ssl::context>;
using ErrorCode = boost::system::error_code;

namespace {

// Descriptors beside those of connections: files, the database, the log.
constexpr rlim_t kOwnDescriptors = 64;
constexpr std::size_t kMostConnections = 16384;

std::size_t mostConnections() {
  rlimit files = {};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0) {
    return kMostConnections;
  }
  files.rlim_cur = files.rlim_max;
  static_cast<void>(setrlimit(RLIMIT_NOFILE, &files));
  const rlim_t left = files.rlim_cur > 2 * kOwnDescriptors ? files.rlim_cur - kOwnDescriptors : kOwnDescriptors / 2;
  return left < kMostConnections ? static_cast<std::size_t>(left) : kMostConnections;
}

std::string placeOf(const ServerSettings& settings) {
  return settings.address + " port " + std::to_string(settings.port);
}

}  // namespace

class HttpServer::Implementation {
 public:
  Implementation(const ServerSettings& settings, const RequestHandler& handler, ServerMetrics& metrics,
                 const ServiceLog& log)
      : m_settings(settings),
        m_handler(handler),
        m_metrics(metrics),
        m_log(log),
        m_most(mostConnections()),
        m_connections(metrics),
        m_work(boost::asio::make_work_guard(m_context)),
        m_acceptor(boost::asio::make_strand(m_context)),
        m_pause(m_acceptor.get_executor()) {
    reloadTls();
    _listen();
  }

  ~Implementation() { m_context.stop(); }

  void start() {
    const unsigned int most = m_settings.maxThreads;
    m_threads =
        std::make_unique<WorkerThreads>(m_context, WorkerThreads::Numbers{m_settings.threads, most}, m_metrics, m_log);
    m_surroundings =
        std::make_unique<SessionSurroundings>(m_settings, m_handler, m_metrics, m_log, m_connections, *m_threads, m_tls);
    boost::asio::post(m_acceptor.get_executor(), [this] { _accept(); });
  }

  void reloadTls() {
    if (m_settings.https) {
      std::atomic_store(&m_tls, makeTlsContext(m_settings));
      m_connections.forEach(&Connection::wake);
    }
  }

  void tellOfChange() { m_connections.forEach(&Connection::wake); }

  bool finish(std::chrono::milliseconds longest) {
    constexpr std::chrono::milliseconds kBetweenLooks(10);
    const auto deadline = std::chrono::steady_clock::now() + longest;
    m_surroundings->isEnding = true;
    boost::asio::post(m_acceptor.get_executor(), [this] {
      ErrorCode ignored;
      m_acceptor.close(ignored);
      m_pause.cancel();
      m_isClosed = true;
    });
    while (!m_isClosed || m_connections.count() != 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      // Each time, since a connection may have gone on to wait for a request meanwhile.
      m_connections.forEach(&Connection::finish);
      std::this_thread::sleep_for(kBetweenLooks);
    }
    return true;
  }

 private:
  void _listen() {
    try {
      const tcp::endpoint place(boost::asio::ip::make_address(m_settings.address),
                                static_cast<unsigned short>(m_settings.port));
      m_acceptor.open(place.protocol());
      m_acceptor.set_option(tcp::acceptor::reuse_address(true));
      m_acceptor.bind(place);
      m_acceptor.listen(static_cast<int>(m_settings.backlog));
    } catch (const boost::system::system_error& failure) {
      throw zaroruntime::RuntimeError("cannot listen at " + placeOf(m_settings) + ": " + failure.code().message());
    }
  }

  void _accept() {
    const std::string why = failureOf([this] {
      m_acceptor.async_accept(boost::asio::make_strand(m_context),
                              [this](ErrorCode failure, tcp::socket socket) { _accepted(failure, std::move(socket)); });
    });
    if (!why.empty()) {
      _acceptLater();
    }
  }

  void _accepted(ErrorCode failure, tcp::socket socket) {
    if (!m_acceptor.is_open()) {
      return;
    }
    if (failure) {
      // Without descriptors or memory the connection waits on, and would be told of at once.
      _acceptLater();
      return;
    }
    const std::string why = failureOf([&] { _takeIn(std::move(socket)); });
    if (why.empty()) {
      _accept();
    } else {
      _lose(why);
      _acceptLater();
    }
  }

  void _acceptLater() {
    constexpr std::chrono::milliseconds kPause(100);
    m_pause.expires_after(kPause);
    m_pause.async_wait([this](ErrorCode cancelled) {
      if (!cancelled) {
        _accept();
      }
    });
  }

  void _takeIn(tcp::socket socket) {
    m_threads->probe();
    if (m_connections.count() < m_most || m_connections.makeRoom()) {
      _begin(std::move(socket));
    } else {
      _turnAway(std::move(socket));
    }
  }

  // A connection that was closed for want of memory, say: then the log may have none either.
  void _lose(const std::string& why) noexcept {
    m_metrics.countTurnedAway();
    static_cast<void>(failureOf([&] { m_log.error("a connection is closed: " + why); }));
  }

  void _begin(tcp::socket socket) {
    ErrorCode gone;
    const tcp::endpoint peer = socket.remote_endpoint(gone);
    if (gone) {
      return;
    }
    if (const TlsContext tls = std::atomic_load(&m_tls)) {
      std::make_shared<Session<TlsStream>>(*m_surroundings, tls, TlsStream(std::move(socket), *tls), peer)->start();
    } else {
      std::make_shared<Session<PlainStream>>(*m_surroundings, nullptr, PlainStream(std::move(socket)), peer)->start();
    }
  }

  // Every connection waits for another policy or takes an answer.
  void _turnAway(tcp::socket socket) {
    static const std::string answer =
        "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 2\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    m_metrics.countTurnedAway();
    if (!m_settings.https) {
      ErrorCode ignored;
      socket.non_blocking(true, ignored);
      socket.write_some(boost::asio::buffer(answer), ignored);
    }
  }

  const ServerSettings& m_settings;
  const RequestHandler& m_handler;
  ServerMetrics& m_metrics;
  const ServiceLog& m_log;
  const std::size_t m_most;
  TlsContext m_tls;  // by the atomic operations
  Connections m_connections;
  std::unique_ptr<SessionSurroundings> m_surroundings;
  boost::asio::io_context m_context;  // its sessions go before what they use
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_work;
  tcp::acceptor m_acceptor;
  boost::asio::steady_timer m_pause;
  std::atomic<bool> m_isClosed{false};
  std::unique_ptr<WorkerThreads> m_threads;  // wait for the context to be stopped
};

HttpServer::HttpServer(const ServerSettings& settings, const RequestHandler& handler, ServerMetrics& metrics,
                       const ServiceLog& log)
    : m_implementation(std::make_unique<Implementation>(settings, handler, metrics, log)) {}

HttpServer::~HttpServer() = default;

void HttpServer::start() {
  m_implementation->start();
}

void HttpServer::reloadTls() {
  m_implementation->reloadTls();
}

void HttpServer::tellOfChange() {
  m_implementation->tellOfChange();
}

bool HttpServer::finish(std::chrono::milliseconds longest) {
  return m_implementation->finish(longest);
}
