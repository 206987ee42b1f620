// Texts of header fields (RFC 5322, RFC 2047).
#pragma once

#include <optional>
#include <string>
#include <string_view>

// The first address of a From field, without display names and comments. Nothing when it has none.
std::optional<std::string> addressOfFrom(std::string_view value);

// A subject with a tag before it, the tag as encoded words where it is not plain ASCII. A subject that has the tag
// there already stays as it is.
std::string taggedSubject(const std::string& tag, const std::string& subject);

// A text as the value of a header field: in encoded words where it is not plain ASCII, on a line each.
std::string asHeaderText(const std::string& text);

// A text on one line of printable ASCII, other bytes as question marks, cut to what one line of SMTP takes.
std::string asReplyText(const std::string& text);
