// What a good engineer would write, or take, in the place of the tree. All of them answer alike: the numbers of the
// patterns that contain an address, the most specific domain first, a concrete local part before "*".
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>
#include <absl/strings/string_view.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace bench {

using Matches = std::vector<std::uint32_t>;

// Debian builds Abseil for C++14, and its own maps of texts do not find by standard views. The hash is its own.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return absl::Hash<absl::string_view>()(absl::string_view(text.data(), text.size()));
  }
};
template <typename Value>
using FlatMap = absl::flat_hash_map<std::string, Value, TextHash, std::equal_to<>>;

// An address in lower case, and the keys under which patterns that contain it may be stored.
class Candidates {
 public:
  explicit Candidates(const char* address) {
    m_size = 0;
    for (; address[m_size] != '\0' && m_size != kRoom; ++m_size) {
      const char character = address[m_size];
      m_text[m_size] = character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
    }
    m_at = std::string_view(m_text, m_size).find('@');
  }

  std::string_view text() const { return {m_text, m_size}; }
  std::string_view name() const { return {m_text, m_at}; }
  std::string_view domain() const { return text().substr(m_at + 1); }

  // Calls `visit(key)` for every key, the most specific first.
  template <typename Visit>
  void forEachKey(Visit visit) {
    visit(text());
    char anyName[kRoom + 8] = "*@";
    std::memcpy(anyName + 2, m_text + m_at + 1, m_size - m_at - 1);
    visit(std::string_view(anyName, m_size - m_at + 1));
    char below[kRoom + 8];
    std::memcpy(below, m_text, m_at + 1);
    char anyBelow[kRoom + 8] = "*@*.";
    below[m_at + 1] = '*';
    below[m_at + 2] = '.';
    for (std::size_t dot = text().find('.', m_at + 1); dot != std::string_view::npos; dot = text().find('.', dot + 1)) {
      const std::size_t left = m_size - dot - 1;
      std::memcpy(below + m_at + 3, m_text + dot + 1, left);
      visit(std::string_view(below, m_at + 3 + left));
      std::memcpy(anyBelow + 4, m_text + dot + 1, left);
      visit(std::string_view(anyBelow, 4 + left));
    }
    visit(std::string_view(below, m_at + 2));
    visit(std::string_view("*@*"));
  }

 private:
  static constexpr std::size_t kRoom = 256;

  char m_text[kRoom];
  std::size_t m_size;
  std::size_t m_at;
};

// A hash map from the pattern's text, asked for every key.
template <typename Map>
class ProbedMap {
 public:
  void fill(const std::vector<std::string>& patterns) {
    m_map.reserve(patterns.size());
    for (std::uint32_t i = 0; i != patterns.size(); ++i) {
      m_map.emplace(patterns[i], i);
    }
  }
  void find(const char* address, Matches& out) const {
    Candidates(address).forEachKey([&](std::string_view key) {
      const auto found = m_map.find(key);
      if (found != m_map.end()) {
        out.push_back(found->second);
      }
    });
  }

 private:
  Map m_map;
};

using FlatHashMap = ProbedMap<FlatMap<std::uint32_t>>;

// The standard map finds by its own type of key only, so that the keys are views of texts kept beside it.
class StandardMap {
 public:
  void fill(const std::vector<std::string>& patterns) {
    m_texts = patterns;
    m_map.reserve(patterns.size());
    for (std::uint32_t i = 0; i != patterns.size(); ++i) {
      m_map.emplace(m_texts[i], i);
    }
  }
  void find(const char* address, Matches& out) const {
    Candidates(address).forEachKey([&](std::string_view key) {
      const auto found = m_map.find(key);
      if (found != m_map.end()) {
        out.push_back(found->second);
      }
    });
  }

 private:
  std::vector<std::string> m_texts;
  std::unordered_map<std::string_view, std::uint32_t> m_map;
};

// A map from the domain to what is stored at it and below it; each with a map from the local part.
class TwoLevelMap {
 public:
  void fill(const std::vector<std::string>& patterns) {
    for (std::uint32_t i = 0; i != patterns.size(); ++i) {
      const std::string_view pattern = patterns[i];
      const std::size_t at = pattern.find('@');
      const std::string_view name = pattern.substr(0, at);
      std::string_view domain = pattern.substr(at + 1);
      const bool below = domain[0] == '*';
      if (below) {
        domain.remove_prefix(domain.size() == 1 ? 1 : 2);
      }
      Domain& entry = m_domains[domain];
      std::unique_ptr<Level>& level = below ? entry.below : entry.here;
      if (level == nullptr) {
        level = std::make_unique<Level>();
      }
      if (name == "*") {
        level->any = i;
      } else {
        level->names.emplace(name, i);
      }
    }
  }
  void find(const char* address, Matches& out) const {
    const Candidates candidates(address);
    const std::string_view domain = candidates.domain();
    const auto here = m_domains.find(domain);
    if (here != m_domains.end() && here->second.here != nullptr) {
      take(*here->second.here, candidates.name(), out);
    }
    for (std::size_t dot = domain.find('.'); dot != std::string_view::npos; dot = domain.find('.', dot + 1)) {
      takeBelow(domain.substr(dot + 1), candidates.name(), out);
    }
    takeBelow({}, candidates.name(), out);
  }

 private:
  static constexpr std::uint32_t kNone = static_cast<std::uint32_t>(-1);
  struct Level {
    std::uint32_t any = kNone;
    FlatMap<std::uint32_t> names;
  };
  struct Domain {
    std::unique_ptr<Level> here;
    std::unique_ptr<Level> below;
  };

  static void take(const Level& level, std::string_view name, Matches& out) {
    const auto found = level.names.find(name);
    if (found != level.names.end()) {
      out.push_back(found->second);
    }
    if (level.any != kNone) {
      out.push_back(level.any);
    }
  }
  void takeBelow(std::string_view domain, std::string_view name, Matches& out) const {
    const auto found = m_domains.find(domain);
    if (found != m_domains.end() && found->second.below != nullptr) {
      take(*found->second.below, name, out);
    }
  }

  FlatMap<Domain> m_domains;
};

}  // namespace bench
