#include "policyclient/HttpTransfer.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <exception>

#include "ZaroRuntime/RuntimeError.h"

using Clock = std::chrono::steady_clock;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

// In seconds; of any number that a server may send, milliseconds can be made.
constexpr curl_off_t kLongestPause = 24 * 60 * 60;
constexpr long kDeadBytesASecond = 100;  // anything slower is a connection that has died
// A body that is slower would keep the client from the next server for hours: a snapshot may have a gigabyte.
constexpr curl_off_t kSlowestBytesASecond = 10000;

struct KindRow {
  CURLcode code;
  FailureKind kind;
};

// Whatever else happens to a connection may not happen to the next one.
constexpr KindRow kKinds[] = {
    {CURLE_URL_MALFORMAT, FailureKind::Configuration},      {CURLE_SSL_CERTPROBLEM, FailureKind::Configuration},
    {CURLE_SSL_CACERT_BADFILE, FailureKind::Configuration}, {CURLE_PEER_FAILED_VERIFICATION, FailureKind::Other},
    {CURLE_SSL_CONNECT_ERROR, FailureKind::Other},          {CURLE_UNSUPPORTED_PROTOCOL, FailureKind::Other},
    {CURLE_BAD_CONTENT_ENCODING, FailureKind::Data},
};

FailureKind kindOf(CURLcode code) {
  for (const KindRow& row : kKinds) {
    if (row.code == code) {
      return row.kind;
    }
  }
  return FailureKind::ConnectionLost;
}

void startLibrary() {
  static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (code != CURLE_OK) {
    throw RuntimeError(std::string("libcurl cannot be initialised: ") + curl_easy_strerror(code));
  }
}

template <typename Value>
void set(CURL* easy, CURLoption option, Value value) {
  const CURLcode code = curl_easy_setopt(easy, option, value);
  if (code == CURLE_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
  if (code != CURLE_OK) {
    throw RuntimeError("libcurl does not take option " + std::to_string(option) + ": " + curl_easy_strerror(code));
  }
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, ListDeleter>;

HeaderList listOf(const std::vector<std::string>& headers) {
  HeaderList list;
  for (const std::string& header : headers) {
    curl_slist* longer = curl_slist_append(list.get(), header.c_str());
    if (longer == nullptr) {
      throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return list;
}

long statusOf(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return status;
}

// What arrives. Nothing may be thrown through the library.
class Arrival {
 public:
  Arrival(CURL* easy, std::size_t largest) : m_easy(easy), m_left(largest) {}

  std::string body;
  std::exception_ptr failure;

  static std::size_t take(char* bytes, std::size_t /*one*/, std::size_t count, void* arrival) {
    auto& self = *static_cast<Arrival*>(arrival);
    try {
      self._take(bytes, count);
      return count;
    } catch (...) {
      self.failure = std::current_exception();
      return 0;
    }
  }

 private:
  void _take(const char* bytes, std::size_t count) {
    if (count > m_left) {
      throw RuntimeError("the answer is larger than a snapshot may be", FailureKind::Data);
    }
    m_left -= count;
    if (statusOf(m_easy) == 200) {
      body.append(bytes, count);
    }
  }

  CURL* m_easy;
  std::size_t m_left;
};

}  // namespace

struct HttpTransfer::Impl {
  explicit Impl(const HttpOptions& options) : largestBody(options.largestBody), connectTimeout(options.connectTimeout) {
    startLibrary();
    easy.reset(curl_easy_init());
    multi.reset(curl_multi_init());
    if (easy == nullptr || multi == nullptr) {
      throw std::bad_alloc();
    }
    setFixed();
    setOptions(options);
  }

  void setFixed() {
    set(easy.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    set(easy.get(), CURLOPT_FOLLOWLOCATION, 0L);
    set(easy.get(), CURLOPT_PROXY, "");
    set(easy.get(), CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    set(easy.get(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(easy.get(), CURLOPT_ACCEPT_ENCODING, "gzip");
    set(easy.get(), CURLOPT_USERAGENT, "zaro-policy-client");
    set(easy.get(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(easy.get(), CURLOPT_SSL_VERIFYPEER, 1L);
    set(easy.get(), CURLOPT_SSL_VERIFYHOST, 2L);
    set(easy.get(), CURLOPT_NOSIGNAL, 1L);
    set(easy.get(), CURLOPT_QUICK_EXIT, 1L);  // an interrupted look-up of a name is not waited for
    set(easy.get(), CURLOPT_TCP_KEEPALIVE, 1L);
    set(easy.get(), CURLOPT_LOW_SPEED_LIMIT, kDeadBytesASecond);
    set(easy.get(), CURLOPT_ERRORBUFFER, reason.data());
    set(easy.get(), CURLOPT_WRITEFUNCTION, &Arrival::take);
  }

  void setOptions(const HttpOptions& options) {
    set(easy.get(), CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout.count()));
    set(easy.get(), CURLOPT_FORBID_REUSE, options.keepAlive ? 0L : 1L);
    if (!options.ca.empty()) {
      set(easy.get(), CURLOPT_CAINFO, options.ca.c_str());
      set<const char*>(easy.get(), CURLOPT_CAPATH, nullptr);  // the system's authorities do not count then
    }
    if (!options.certificate.empty()) {
      set(easy.get(), CURLOPT_SSLCERT, options.certificate.c_str());
      const std::string& key = options.privateKey.empty() ? options.certificate : options.privateKey;
      set(easy.get(), CURLOPT_SSLKEY, key.c_str());
      set(easy.get(), CURLOPT_KEYPASSWD, "");  // else a key that has one makes OpenSSL ask at the terminal
    }
  }

  // Whether the answer takes longer than its size allows.
  bool isTooSlow(Clock::time_point began, std::chrono::seconds patience) const {
    curl_off_t bytes = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_SIZE_DOWNLOAD_T, &bytes);
    return Clock::now() - began > connectTimeout + patience + std::chrono::seconds(bytes / kSlowestBytesASecond);
  }

  // Nothing when it was interrupted.
  std::optional<CURLcode> perform(std::chrono::seconds patience) {
    if (interrupted.exchange(false)) {
      return std::nullopt;  // a connection that is kept stays
    }
    const Clock::time_point began = Clock::now();
    curl_multi_add_handle(multi.get(), easy.get());
    std::optional<CURLcode> code;
    for (int running = 1; running != 0;) {
      constexpr int kLongestPoll = 1000;  // milliseconds
      curl_multi_perform(multi.get(), &running);
      if (interrupted.exchange(false)) {
        break;
      }
      if (running != 0 && isTooSlow(began, patience)) {
        code = CURLE_OPERATION_TIMEDOUT;
        break;
      }
      if (running != 0) {
        curl_multi_poll(multi.get(), nullptr, 0, kLongestPoll, nullptr);
        continue;
      }
      int left = 0;
      const CURLMsg* message = curl_multi_info_read(multi.get(), &left);
      code = message != nullptr ? message->data.result : CURLE_FAILED_INIT;
    }
    curl_multi_remove_handle(multi.get(), easy.get());
    return code;
  }

  std::string header(const char* name) const {
    curl_header* found = nullptr;
    const bool there = curl_easy_header(easy.get(), name, 0, CURLH_HEADER, -1, &found) == CURLHE_OK;
    return there ? found->value : "";
  }

  // The library's own texts of these two tell the milliseconds, and the log has a failure once as long as it is the same.
  std::string whyFailed(CURLcode code) const {
    if (code == CURLE_COULDNT_CONNECT) {
      long error = 0;
      curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &error);
      return std::string("cannot be reached") +
             (error != 0 ? std::string(": ") + std::strerror(static_cast<int>(error)) : "");
    }
    if (code == CURLE_OPERATION_TIMEDOUT) {
      return "does not answer in time";
    }
    if (code == CURLE_SSL_CERTPROBLEM) {
      return std::string(reason.data()) + "; the key must belong to the certificate and have no password";
    }
    return reason[0] != '\0' ? reason.data() : curl_easy_strerror(code);
  }

  const std::size_t largestBody;
  const std::chrono::seconds connectTimeout;
  std::array<char, CURL_ERROR_SIZE> reason = {};
  std::unique_ptr<CURLM, MultiDeleter> multi;
  std::unique_ptr<CURL, EasyDeleter> easy;
  std::atomic<bool> interrupted{false};
};

HttpTransfer::HttpTransfer(const HttpOptions& options) : m_impl(std::make_unique<Impl>(options)) {}

HttpTransfer::~HttpTransfer() = default;

std::optional<HttpAnswer> HttpTransfer::get(const HttpRequest& request) {
  CURL* easy = m_impl->easy.get();
  const HeaderList headers = listOf(request.headers);
  Arrival arrival(easy, m_impl->largestBody);
  m_impl->reason[0] = '\0';
  set(easy, CURLOPT_URL, request.url.c_str());
  set(easy, CURLOPT_HTTPHEADER, headers.get());
  set(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(request.patience.count()));
  set(easy, CURLOPT_WRITEDATA, &arrival);
  const std::optional<CURLcode> code = m_impl->perform(request.patience);
  set<curl_slist*>(easy, CURLOPT_HTTPHEADER, nullptr);
  if (!code) {
    return std::nullopt;
  }
  if (arrival.failure) {
    std::rethrow_exception(arrival.failure);
  }
  if (*code != CURLE_OK) {
    throw RuntimeError(m_impl->whyFailed(*code), kindOf(*code));
  }
  HttpAnswer answer;
  answer.status = statusOf(easy);
  answer.etag = m_impl->header("ETag");
  curl_off_t pause = 0;
  curl_easy_getinfo(easy, CURLINFO_RETRY_AFTER, &pause);
  answer.retryAfter = std::chrono::seconds(std::clamp<curl_off_t>(pause, 0, kLongestPause));
  answer.body = std::move(arrival.body);
  return answer;
}

void HttpTransfer::interrupt() {
  m_impl->interrupted = true;
  curl_multi_wakeup(m_impl->multi.get());
}
