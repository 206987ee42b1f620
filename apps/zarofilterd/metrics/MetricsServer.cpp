#include "metrics/MetricsServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "ZaroRuntime/RuntimeError.h"
#include "service/OpenMetrics.h"

namespace {

constexpr unsigned int kMostConnections = 16;
constexpr unsigned int kIdleSeconds = 10;

MHD_Result respond(MHD_Connection* connection, unsigned int status, const std::string& text, const char* type) {
  MHD_Response* response =
      MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) {
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  const MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result answer(void* metrics, MHD_Connection* connection, const char* url, const char* method,
                  const char* /*version*/, const char* /*upload*/, std::size_t* /*uploaded*/, void** /*state*/) {
  const char* const plain = "text/plain; charset=utf-8";
  if (std::strcmp(url, "/metrics") != 0) {
    return respond(connection, MHD_HTTP_NOT_FOUND, "not found\n", plain);
  }
  if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0) {
    return respond(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "GET only\n", plain);
  }
  try {
    return respond(connection, MHD_HTTP_OK, static_cast<FilterMetrics*>(metrics)->text(), kOpenMetricsType);
  } catch (const std::exception&) {
    return MHD_NO;  // ends the connection; nothing may be thrown through the library
  }
}

sockaddr_storage socketAddress(const std::string& text) {
  sockaddr_storage storage = {};
  const std::size_t colon = text.rfind(':');
  const auto port = htons(static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1))));
  if (text[0] == '[') {
    auto& address = reinterpret_cast<sockaddr_in6&>(storage);
    address.sin6_family = AF_INET6;
    address.sin6_port = port;
    inet_pton(AF_INET6, text.substr(1, colon - 2).c_str(), &address.sin6_addr);
  } else {
    auto& address = reinterpret_cast<sockaddr_in&>(storage);
    address.sin_family = AF_INET;
    address.sin_port = port;
    inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr);
  }
  return storage;
}

}  // namespace

struct MetricsServer::Daemon {
  MHD_Daemon* daemon = nullptr;
  ~Daemon() {
    if (daemon != nullptr) {
      MHD_stop_daemon(daemon);
    }
  }
};

MetricsServer::MetricsServer(const std::string& address, FilterMetrics& metrics)
    : m_daemon(std::make_unique<Daemon>()) {
  const sockaddr_storage where = socketAddress(address);
  const unsigned int family = where.ss_family == AF_INET6 ? MHD_USE_IPv6 : MHD_NO_FLAG;
  m_daemon->daemon = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | family, 0, nullptr, nullptr, answer, &metrics,
                                      MHD_OPTION_SOCK_ADDR, &where, MHD_OPTION_CONNECTION_LIMIT, kMostConnections,
                                      MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_LISTENING_ADDRESS_REUSE,
                                      1U, MHD_OPTION_END);
  if (m_daemon->daemon == nullptr) {
    throw zaroruntime::RuntimeError("[mail_filter] metrics: cannot listen at " + address + ": " + std::strerror(errno),
                                    zaroruntime::FailureKind::Configuration);
  }
}

MetricsServer::~MetricsServer() = default;
