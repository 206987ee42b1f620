// GET over HTTP or HTTPS, by libcurl.
//
// 1. Certificates of servers are verified, always. No redirect is followed, no proxy of the environment asked, and
//    nothing is read from the user's configuration files.
// 2. One thread uses an object, but for `interrupt`.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct HttpOptions {
  bool keepAlive = true;
  std::chrono::seconds connectTimeout{60};
  std::size_t largestBody = 0;  // bytes, after decompression
  std::string ca;               // PEM file of the authorities that count; empty: those of the system
  std::string certificate;      // PEM file; empty: none
  std::string privateKey;       // PEM file without a password; empty: in the certificate's file
};

struct HttpRequest {
  std::string url;
  std::vector<std::string> headers;   // "Name: value"
  std::chrono::seconds patience{60};  // without an answer, or with one that does not go on; a body has 10 kB/s at least
};

struct HttpAnswer {
  long status = 0;
  std::string etag;
  std::chrono::seconds retryAfter{0};
  std::string body;  // of status 200 only
};

class HttpTransfer {
 public:
  // Throws RuntimeError.
  explicit HttpTransfer(const HttpOptions& options);
  ~HttpTransfer();
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // Nothing when it was interrupted. Throws RuntimeError, of kind
  //   Configuration    a file of the options cannot be used
  //   Data             the body is too large, or compressed in a way that was not asked for
  //   ConnectionLost   no answer, or only a part of one
  //   Other            the server's certificate is not good, or the server takes no TLS of ours
  std::optional<HttpAnswer> get(const HttpRequest& request);

  // Any thread: ends the request that is under way, or else the next one.
  void interrupt();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
