// One connection, plain or by TLS: reads a request, has it answered, holds it where it asks for that, sends the answer.
//
// 1. Everything happens on the connection's strand, one step after the other; a session lives as long as a step is
//    pending.
// 2. The receive time-out is for a whole request, from the end of the one before: a client that sends slowly gets no more
//    time. The send time-out is for each piece of an answer, so that a slow line can take a large policy.
// 3. An answer is sent from memory that all sessions share.
// 4. When the files of TLS have been read again, a connection by TLS ends with its next answer, and the client's
//    certificate counts by what is in them now.
#pragma once

#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "access/TlsContext.h"
#include "http/Connections.h"
#include "http/RequestHandler.h"
#include "http/WorkerThreads.h"
#include "store/ServerSettings.h"

// What all sessions share.
struct SessionSurroundings {
  SessionSurroundings(const ServerSettings& theSettings, const RequestHandler& theHandler, ServerMetrics& theMetrics,
                      const ServiceLog& theLog, Connections& theConnections, WorkerThreads& theThreads,
                      const std::shared_ptr<boost::asio::ssl::context>& theTls)
      : settings(theSettings),
        handler(theHandler),
        metrics(theMetrics),
        log(theLog),
        connections(theConnections),
        threads(theThreads),
        tls(theTls) {}

  const ServerSettings& settings;
  const RequestHandler& handler;
  ServerMetrics& metrics;
  const ServiceLog& log;
  Connections& connections;
  WorkerThreads& threads;
  const std::shared_ptr<boost::asio::ssl::context>& tls;  // of new connections, by the atomic operations
  std::atomic<bool> isEnding{false};
};

using PlainStream = boost::beast::tcp_stream;
using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

template <typename Stream>
class Session : public Connection, public std::enable_shared_from_this<Session<Stream>> {
 public:
  static constexpr bool kIsTls = std::is_same_v<Stream, TlsStream>;

  // `context` is that of the stream; null for a plain one.
  Session(SessionSurroundings& surroundings, std::shared_ptr<boost::asio::ssl::context> context, Stream stream,
          const boost::asio::ip::tcp::endpoint& peer)
      : m_surroundings(surroundings),
        m_context(std::move(context)),
        m_stream(std::move(stream)),
        m_peer(peer),
        m_holdTimer(m_stream.get_executor()) {}

  ~Session() override { m_place.reset(); }

  // Begins; once.
  void start() {
    m_owesSince = _now();
    m_place = m_surroundings.connections.add(*this);
    _post(&Session::_begin);
  }

  void wake() override { _post(&Session::_lookAgain); }
  void finish() override { _post(&Session::_finish); }
  void giveWay() override {
    m_owesSince = 0;
    _post(&Session::_giveWay);
  }
  long long owesSince() const override { return m_owesSince; }

 private:
  using Clock = std::chrono::steady_clock;
  using ErrorCode = boost::beast::error_code;
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  static constexpr std::uint32_t kLongestHeader = 16384;
  static constexpr std::uint64_t kLongestBody = 16384;
  // What a plain socket does not take of it is left for the next piece, but TLS has to get rid of it all.
  static constexpr std::size_t kPiece = kIsTls ? 65536 : 1U << 20U;
  static constexpr std::chrono::seconds kBetweenLooksAtThePeer{5};
  static constexpr std::chrono::seconds kForTheLastBytes{2};
  static constexpr std::size_t kMostLastBytes = 1U << 20U;

  static long long _now() { return Clock::now().time_since_epoch().count(); }

  // Has a step done on the strand, while the session lives.
  void _post(void (Session::*step)()) {
    // The reference moves: were it kept here, the session could be destroyed under the caller's lock.
    if (auto self = this->weak_from_this().lock()) {
      const auto executor = m_stream.get_executor();
      boost::asio::post(executor, [step, kept = std::move(self)] { (kept.get()->*step)(); });
    }
  }

  // A handler that keeps the session and goes on with a step.
  template <typename... Arguments>
  auto _then(void (Session::*step)(Arguments...)) {
    return [self = this->shared_from_this(), step](Arguments... arguments) { (self.get()->*step)(arguments...); };
  }

  auto& _socket() { return boost::beast::get_lowest_layer(m_stream); }

  void _setTimeOut(unsigned int seconds) {
    if (seconds == 0) {
      _socket().expires_never();
    } else {
      _socket().expires_after(std::chrono::seconds(seconds));
    }
  }

  // --- From the connection to a request ---

  void _begin() {
    ErrorCode ignored;
    _socket().socket().set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    if constexpr (kIsTls) {
      _setTimeOut(m_surroundings.settings.receiveSeconds);
      m_stream.async_handshake(boost::asio::ssl::stream_base::server, _then(&Session::_shakenHands));
    } else {
      _read();
    }
  }

  void _shakenHands(ErrorCode failure) {
    if (failure) {
      _countTimeOut(failure, "handshake");
      return;
    }
    _read();
  }

  void _read() {
    if (m_surroundings.isEnding) {
      _close();
      return;
    }
    m_owesSince = _now();
    m_isReading = true;
    m_isAnswering = false;
    m_parser.emplace();
    m_parser->header_limit(kLongestHeader);
    m_parser->body_limit(kLongestBody);
    _setTimeOut(m_surroundings.settings.receiveSeconds);
    boost::beast::http::async_read(m_stream, m_buffer, *m_parser, _then(&Session::_received));
  }

  // Whether nothing of the next request is there.
  bool _isIdle() const { return m_isReading && m_buffer.size() == 0 && !m_parser->got_some(); }

  void _received(ErrorCode failure, std::size_t /*size*/) {
    namespace http = boost::beast::http;
    const bool wasIdle = _isIdle();
    m_isReading = false;
    m_isAnswering = !failure;
    m_owesSince = 0;
    m_surroundings.threads.probe();
    if (!failure) {
      _takeRequest(m_parser->release());
    } else if (failure == boost::beast::error::timeout) {
      if (!wasIdle) {
        _countTimeOut(failure, "receive");
      }
    } else if (failure == http::error::end_of_stream || (m_mustEnd && wasIdle)) {
      _close();
    } else if (failure == http::error::header_limit) {
      _refuse(431, "the fields are too long");
    } else if (failure == http::error::body_limit) {
      _refuse(413, "the body is too long");
    } else if (failure.category() == make_error_code(http::error::bad_method).category() &&
               failure != http::error::partial_message) {
      _refuse(400, "that is no request");
    }
    // Otherwise the connection broke, and nothing more can be sent.
  }

  // Answers what is no request, or too much of one.
  void _refuse(unsigned int status, const char* why) {
    m_isAnswering = true;
    m_isHead = false;
    m_staysOpen = false;
    m_hasUnread = true;
    _send(plainAnswer(status, why));
  }

  template <typename Message>
  static std::string _joined(const Message& message, boost::beast::http::field name) {
    std::string all;
    const auto range = message.equal_range(name);
    for (auto field = range.first; field != range.second; ++field) {
      all.append(all.empty() ? "" : ", ").append(std::string(field->value()));
    }
    return all;
  }

  void _takeRequest(boost::beast::http::request<boost::beast::http::string_body> message) {
    using boost::beast::http::field;
    constexpr unsigned int kVersionWithHosts = 11;
    m_isHead = message.method_string() == "HEAD";
    m_staysOpen = message.keep_alive() && m_surroundings.settings.keepAlive;
    if (message.version() >= kVersionWithHosts && message.count(field::host) != 1) {
      m_staysOpen = false;
      _send(plainAnswer(400, "there must be one Host field"));
      return;
    }
    m_request.method = std::string(message.method_string());
    m_request.target = std::string(message.target());
    m_request.ifNoneMatch = _joined(message, field::if_none_match);
    m_request.acceptEncoding = _joined(message, field::accept_encoding);
    m_request.authorization = _joined(message, field::authorization);
    m_request.isLocal = _isLocal();
    _judgeCertificate();
    const Answer answer = m_surroundings.handler.answer(m_request);
    if (!answer.refusal.empty()) {
      m_surroundings.log.warning(
          LogFields("refused:").add("peer", m_peer.address().to_string()).add("path", answer.path).add("why", answer.refusal));
    }
    if (answer.hold.count() > 0) {
      m_holdEnd = Clock::now() + answer.hold;
      _socket().expires_never();
      m_surroundings.metrics.addHeld(1);
      m_isHeld = true;
      _hold(answer);
    } else {
      _send(answer);
    }
  }

  bool _isLocal() const {
    const boost::asio::ip::address& address = m_peer.address();
    const bool isMapped = address.is_v6() && address.to_v6().is_v4_mapped();
    return address.is_loopback() ||
           (isMapped && boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6()).is_loopback());
  }

  // Whether the files of TLS have been read again since the handshake.
  bool _isOutdated() const { return m_context != std::atomic_load(&m_surroundings.tls); }

  void _judgeCertificate() {
    if constexpr (kIsTls) {
      const std::optional<std::string> fault =
          certificateFault(m_stream.native_handle(), *std::atomic_load(&m_surroundings.tls));
      m_request.hasCertificate = fault && fault->empty();
      m_request.certificateFault = fault.value_or("");
    }
  }

  // --- Held requests ---

  void _hold(const Answer& answer) {
    const Clock::time_point now = Clock::now();
    if (now >= m_holdEnd || m_surroundings.isEnding || _isOutdated()) {
      _endHold();
      _send(answer);
      return;
    }
    m_holdTimer.expires_at(std::min(m_holdEnd, now + kBetweenLooksAtThePeer));
    m_holdTimer.async_wait(_then(&Session::_holdOver));
  }

  void _holdOver(ErrorCode /*cancelled*/) {
    if (_isPeerGone()) {
      _endHold();
      return;
    }
    _judgeCertificate();
    const Answer answer = m_surroundings.handler.answer(m_request);
    if (answer.hold.count() > 0) {
      _hold(answer);
    } else {
      _endHold();
      _send(answer);
    }
  }

  void _endHold() {
    m_isHeld = false;
    m_surroundings.metrics.addHeld(-1);
  }

  // Nothing is read meanwhile, which would tell.
  bool _isPeerGone() {
    pollfd peer = {_socket().socket().native_handle(), POLLRDHUP, 0};
    return poll(&peer, 1, 0) > 0 && (peer.revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0;
  }

  void _lookAgain() {
    if (m_isHeld) {
      m_holdTimer.cancel();
    }
  }

  // --- From the answer to the next request ---

  void _send(const Answer& answer) {
    namespace http = boost::beast::http;
    m_staysOpen = m_staysOpen && !m_surroundings.isEnding && !_isOutdated();
    const bool hasBody = answer.status != 304;
    http::response_header<> header;
    header.version(11);
    header.result(answer.status);
    header.set(http::field::date, _date());
    for (const auto& [name, value] : answer.fields) {
      header.set(name, value);
    }
    if (hasBody) {
      header.set(http::field::content_length, std::to_string(answer.body->size()));
    }
    header.set(http::field::connection, m_staysOpen ? "keep-alive" : "close");
    std::ostringstream text;
    text << header;
    m_header = text.str();
    m_body = answer.body;
    const bool sendsBody = hasBody && !m_isHead;
    m_surroundings.metrics.countRequest(answer.path, answer.status, m_header.size() + (sendsBody ? m_body->size() : 0));
    m_unsent.emplace(
        Buffers{boost::asio::buffer(m_header), sendsBody ? boost::asio::buffer(*m_body) : boost::asio::const_buffer()});
    _sendPiece();
  }

  static std::string _date() {
    const std::time_t now = std::time(nullptr);
    std::tm utc = {};
    gmtime_r(&now, &utc);
    std::array<char, 40> text = {};
    // The names of days and months are those of the C locale, which the program does not leave.
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text.data();
  }

  void _sendPiece() {
    _setTimeOut(m_surroundings.settings.sendSeconds);
    m_stream.async_write_some(boost::beast::buffers_prefix(kPiece, *m_unsent), _then(&Session::_sent));
  }

  void _sent(ErrorCode failure, std::size_t size) {
    if (failure) {
      _countTimeOut(failure, "send");
      return;
    }
    m_unsent->consume(size);
    if (boost::beast::buffer_bytes(*m_unsent) != 0) {
      _sendPiece();
      return;
    }
    m_body.reset();
    if (m_staysOpen) {
      _read();
    } else {
      _close();
    }
  }

  void _countTimeOut(ErrorCode failure, const char* what) {
    if (failure == boost::beast::error::timeout) {
      m_surroundings.metrics.countTimeOut(what);
    }
  }

  // --- The end ---

  void _close() {
    _socket().expires_after(kForTheLastBytes);
    if constexpr (kIsTls) {
      m_stream.async_shutdown(_then(&Session::_closed));
    } else {
      _closed(ErrorCode());
    }
  }

  // The socket is closed with the session. What the client has sent and was not read would have the kernel reset the
  // connection, and the answer would be lost: so it is read and dropped, within limits.
  void _closed(ErrorCode /*failure*/) {
    ErrorCode ignored;
    _socket().socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    if (m_hasUnread) {
      _drop(ErrorCode(), 0);
    }
  }

  void _drop(ErrorCode failure, std::size_t size) {
    m_dropped += size;
    if (!failure && m_dropped < kMostLastBytes) {
      _socket().async_read_some(boost::asio::buffer(m_rest), _then(&Session::_drop));
    }
  }

  // A request that has begun to come is waited for, a handshake is not.
  void _finish() {
    if (_isIdle()) {
      m_mustEnd = true;
      _socket().cancel();
    } else if (!m_isReading && !m_isAnswering) {
      _socket().close();
    }
    _lookAgain();
  }

  void _giveWay() {
    if (!m_isAnswering) {
      m_surroundings.metrics.countTurnedAway();
      _socket().close();
    }
  }

  using Buffers = std::array<boost::asio::const_buffer, 2>;

  SessionSurroundings& m_surroundings;
  const std::shared_ptr<boost::asio::ssl::context> m_context;  // before the stream, which uses it
  Stream m_stream;
  const boost::asio::ip::tcp::endpoint m_peer;
  boost::asio::steady_timer m_holdTimer;
  boost::beast::flat_buffer m_buffer{kLongestHeader + kLongestBody};
  std::optional<Parser> m_parser;
  Request m_request;
  std::string m_header;
  std::shared_ptr<const std::string> m_body;
  std::optional<boost::beast::buffers_suffix<Buffers>> m_unsent;
  std::array<char, 4096> m_rest;
  std::size_t m_dropped = 0;
  Clock::time_point m_holdEnd;
  bool m_isReading = false;
  bool m_isAnswering = false;
  bool m_isHeld = false;
  bool m_isHead = false;
  bool m_staysOpen = false;
  bool m_hasUnread = false;
  bool m_mustEnd = false;
  std::atomic<long long> m_owesSince{0};
  std::unique_ptr<Connections::Place> m_place;
};
