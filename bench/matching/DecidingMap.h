// The peer of a decision: what one would write by hand for patterns of kinds 1 and 2 in several trees.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "KxWildcardEmail.h"
#include "Peers.h"

namespace bench {

// One flat_hash_map over the patterns of all trees, whose values carry tree, kind and weight, and the rules of the
// first tier: the lowest tree decides, the heaviest of each of its kinds are compared.
class DecidingMap {
 public:
  struct Listed {
    std::uint32_t tree;
    KxEmailBelongsTo kind;
    unsigned int weight;
  };

  explicit DecidingMap(std::size_t patterns) { m_map.reserve(patterns); }

  void add(const std::string& pattern, const Listed& listed) { m_map.emplace(pattern, listed); }
  KxMatchResult decide(const char* address) const {
    Best best[2];
    std::uint32_t tree = std::numeric_limits<std::uint32_t>::max();
    Candidates(address).forEachKey([&](std::string_view key) {
      const auto found = m_map.find(key);
      if (found == m_map.end() || found->second.tree > tree) {
        return;
      }
      const Listed& listed = found->second;
      if (listed.tree < tree) {
        tree = listed.tree;
        best[0] = best[1] = Best();
      }
      Best& ofKind = best[listed.kind - 1];
      if (listed.weight > ofKind.weight) {
        ofKind = {listed.weight, found->first.c_str()};
      }
    });
    if (best[0].weight == 0 && best[1].weight == 0) {
      return {0, 0, nullptr, 0};
    }
    const unsigned int both = best[0].weight != 0 && best[1].weight != 0 ? 128 : 0;
    const unsigned int code = best[0].weight == best[1].weight ? 9 : best[0].weight > best[1].weight ? 1 : 2;
    const KxEmailBelongsTo kind = code == 2 ? 2 : 1;
    return {static_cast<unsigned char>(code + both), tree, best[kind - 1].name, kind};
  }

 private:
  struct Best {
    unsigned int weight = 0;
    const char* name = nullptr;
  };

  FlatMap<Listed> m_map;
};

}  // namespace bench
