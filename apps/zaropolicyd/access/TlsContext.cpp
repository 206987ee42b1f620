#include "access/TlsContext.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <memory>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/PrivateFile.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using Context = boost::asio::ssl::context;

namespace {

[[noreturn]] void throwTlsError(const std::string& path, const char* what) {
  std::array<char, 256> reason = {};
  ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
  ERR_clear_error();
  throw RuntimeError(path + ": " + what + ": " + reason.data(), FailureKind::Configuration);
}

// The library would ask for it at the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*own*/) {
  return 0;
}

struct KeyReader {
  explicit KeyReader(const std::string& text)
      : memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))),
        key(PEM_read_bio_PrivateKey(memory, nullptr, noPassword, nullptr)) {}
  ~KeyReader() {
    EVP_PKEY_free(key);
    BIO_free(memory);
  }
  KeyReader(const KeyReader&) = delete;
  KeyReader& operator=(const KeyReader&) = delete;

  BIO* memory;
  EVP_PKEY* key;
};

void useKey(SSL_CTX* context, const std::string& path) {
  std::string text = readPrivateFile(path);
  const KeyReader reader(text);
  OPENSSL_cleanse(text.data(), text.size());
  if (reader.key == nullptr) {
    throwTlsError(path, "no private key without a password");
  }
  if (SSL_CTX_use_PrivateKey(context, reader.key) != 1 || SSL_CTX_check_private_key(context) != 1) {
    throwTlsError(path, "not the key of the certificate");
  }
}

int acceptForNow(int /*right*/, X509_STORE_CTX* /*chain*/) {
  return 1;
}

void askForCertificates(SSL_CTX* context, const std::string& path) {
  STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(path.c_str());
  if (names == nullptr || SSL_CTX_load_verify_locations(context, path.c_str(), nullptr) != 1) {
    throwTlsError(path, "no certificates");
  }
  SSL_CTX_set_client_CA_list(context, names);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, acceptForNow);
}

// As the handshake does, by the CA of another context.
long verify(SSL* connection, X509* certificate, SSL_CTX* current) {
  using Check = std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)>;
  const Check check(X509_STORE_CTX_new(), X509_STORE_CTX_free);
  if (check == nullptr || X509_STORE_CTX_init(check.get(), SSL_CTX_get_cert_store(current), certificate,
                                              SSL_get_peer_cert_chain(connection)) != 1) {
    return X509_V_ERR_OUT_OF_MEM;
  }
  X509_STORE_CTX_set_default(check.get(), "ssl_client");
  return X509_verify_cert(check.get()) == 1 ? X509_V_OK : X509_STORE_CTX_get_error(check.get());
}

}  // namespace

std::shared_ptr<Context> makeTlsContext(const ServerSettings& settings) {
  constexpr const char* kCiphers = "ECDHE+AESGCM:ECDHE+CHACHA20";  // of TLS 1.2; those of 1.3 are all of this kind
  auto made = std::make_shared<Context>(Context::tls_server);
  SSL_CTX* const context = made->native_handle();
  ERR_clear_error();
  if (SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1 || SSL_CTX_set_cipher_list(context, kCiphers) != 1) {
    throwTlsError("TLS", "cannot be set up");
  }
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  // A resumed session would keep what was found about the client's certificate, whatever became of the CA.
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_num_tickets(context, 0);
  SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
  if (SSL_CTX_use_certificate_chain_file(context, settings.certificate.c_str()) != 1) {
    throwTlsError(settings.certificate, "no certificate");
  }
  useKey(context, settings.privateKey);
  if (!settings.clientCa.empty()) {
    askForCertificates(context, settings.clientCa);
  }
  return made;
}

std::optional<std::string> certificateFault(SSL* connection, Context& current) {
  using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
  const Certificate certificate(SSL_get_peer_certificate(connection), X509_free);
  if (certificate == nullptr || SSL_get_verify_mode(connection) == SSL_VERIFY_NONE) {
    return std::nullopt;
  }
  const long result = SSL_get_SSL_CTX(connection) == current.native_handle()
                          ? SSL_get_verify_result(connection)
                          : verify(connection, certificate.get(), current.native_handle());
  return result == X509_V_OK ? "" : X509_verify_cert_error_string(result);
}
