// What requests say in their target and their fields (RFC 9110, HTTP Semantics, 2022). Anything may stand there: what
// has no meaning is told as such, and nothing throws.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

struct Target {
  std::string_view path;
  std::optional<std::chrono::seconds> wait;  // of the query
};

// Takes a target apart: /PATH?QUERY, or the same behind a scheme and a host. Of the query, `wait` counts: a number of
// seconds, not more than `longest`. Nothing when it is no target, or `wait` is no number or stands there twice.
std::optional<Target> parseTarget(std::string_view target, std::chrono::seconds longest);

// Whether If-None-Match holds a tag, which stands there in its quotes. Weak tags match as well; "*" matches any.
bool holdsTag(std::string_view ifNoneMatch, std::string_view tag);

// Whether Accept-Encoding wants gzip rather than the plain text.
bool takesGzip(std::string_view acceptEncoding);

// The token of an Authorization field of the scheme Bearer; nothing for another scheme and for what is no token.
std::optional<std::string_view> bearerToken(std::string_view authorization);

// Whether a text can be a token of the scheme Bearer.
bool isToken(std::string_view text);
