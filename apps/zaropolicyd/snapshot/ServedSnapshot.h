// The policy as clients get it. Never changes once it is made, so that any number of threads send from it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct ServedSnapshot {
  std::uint64_t version;
  std::string tag;  // "VERSION-SHA256", in its quotes
  std::shared_ptr<const std::string> text;
  std::shared_ptr<const std::string> gzip;
  std::size_t rules;
};
