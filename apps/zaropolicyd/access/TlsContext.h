// What TLS connections are made with.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <optional>
#include <string>

#include "store/ServerSettings.h"

// Reads the files of the settings. TLS 1.2 and up, with ciphers that keep past traffic secret. Where there is a client
// CA, clients are asked for a certificate; a wrong one, or none, is no failure of the handshake, since the answer is to
// say so. Throws RuntimeError naming the file.
std::shared_ptr<boost::asio::ssl::context> makeTlsContext(const ServerSettings& settings);

// What is wrong with the certificate of a connection's client, by the client CA of `current`, which may be another than
// the handshake's; empty: nothing. Nothing at all when it has none, or is not asked for one.
std::optional<std::string> certificateFault(SSL* connection, boost::asio::ssl::context& current);
