// The files that a policy server's settings name.
#pragma once

#include <memory>

#include "access/Tokens.h"
#include "store/ServerSettings.h"

// The tokens of `token_file`; null without one. Throws RuntimeError naming setting and file.
std::shared_ptr<const Tokens> readTokens(const ServerSettings& settings);

// Throws RuntimeError for a file that cannot be used.
void requireServerFiles(const ServerSettings& settings);
