#include "addressmatch/index/PerfectHash.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using zaro_addressmatch::HashSeed;
using zaro_addressmatch::hashText;
using zaro_addressmatch::PerfectHash;
using zaro_addressmatch::processHashSeed;

std::vector<std::uint64_t> randomHashes(std::size_t count) {
  std::mt19937_64 random(count);
  std::vector<std::uint64_t> hashes(count);
  for (std::uint64_t& hash : hashes) {
    hash = random();
  }
  return hashes;
}

void expectPlacesOfTheirOwn(const PerfectHash& hash, const std::vector<std::uint64_t>& keys) {
  EXPECT_EQ(hash.slotCount(), PerfectHash::slotCountFor(keys.size()));
  std::vector<bool> taken(hash.slotCount());
  for (const std::uint64_t key : keys) {
    const std::size_t place = hash(key);
    ASSERT_LT(place, hash.slotCount());
    ASSERT_FALSE(taken[place]);
    taken[place] = true;
  }
}

TEST(PerfectHash, everyKeyHasAPlaceOfItsOwn) {
  for (const std::size_t count : {0u, 1u, 2u, 3u, 10u, 1000u, 200000u}) {
    const std::vector<std::uint64_t> hashes = randomHashes(count);
    PerfectHash hash;
    ASSERT_TRUE(hash.build(hashes)) << count;
    expectPlacesOfTheirOwn(hash, hashes);
  }
}

// Sets of the usual size have no pilot beyond a byte, unless their keys crowd.
TEST(PerfectHash, keysOfBigPilotsHavePlacesOfTheirOwn) {
  std::vector<std::uint64_t> hashes = randomHashes(20000);
  for (std::uint64_t& hash : hashes) {
    hash /= 2;  // in half of the buckets, which are twice as full
  }
  PerfectHash hash;
  ASSERT_TRUE(hash.build(hashes));
  ASSERT_GT(hash.mostTries(), 256u) << "no pilot that does not fit into a byte is tried here";
  expectPlacesOfTheirOwn(hash, hashes);
}

TEST(PerfectHash, otherKeysHaveSomePlace) {
  PerfectHash hash;
  EXPECT_EQ(hash(0), 0u);
  EXPECT_EQ(hash(~std::uint64_t{0}), 0u);
  ASSERT_TRUE(hash.build(randomHashes(1000)));
  for (const std::uint64_t key : randomHashes(5000)) {
    ASSERT_LT(hash(key), hash.slotCount());
  }
}

TEST(PerfectHash, sameHashTwiceHasNoPlaces) {
  PerfectHash hash;
  EXPECT_FALSE(hash.build({1, 2, 1}));
}

TEST(PerfectHash, keysThatAreNotScatteredHaveNoPlaces) {
  std::vector<std::uint64_t> hashes = randomHashes(1000);
  for (std::uint64_t& hash : hashes) {
    hash &= 0xFFFFFFFFu;  // all in the first group
  }
  PerfectHash hash;
  EXPECT_FALSE(hash.build(hashes));
}

// Domains that fall together under a seed that is known.
std::vector<std::string> collidingDomains(const HashSeed& known, std::size_t count) {
  std::vector<std::string> domains;
  for (unsigned int number = 0; domains.size() != count; ++number) {
    const std::string domain = "d" + std::to_string(number) + ".test";
    if (hashText(known, domain.data(), domain.size()) >> 56 == 0) {
      domains.push_back(domain);
    }
  }
  return domains;
}

TEST(PerfectHash, domainsThatCollideUnderAnotherSeedAreAsGoodAsAny) {
  const HashSeed known = {{1, 2, 3, 4}};
  const auto hashed = [](const HashSeed& seed, const std::vector<std::string>& domains) {
    std::vector<std::uint64_t> hashes;
    for (const std::string& domain : domains) {
      hashes.push_back(hashText(seed, domain.data(), domain.size()));
    }
    return hashes;
  };
  const std::vector<std::string> domains = collidingDomains(known, 10000);
  EXPECT_FALSE(PerfectHash().build(hashed(known, domains)));

  PerfectHash crafted;
  ASSERT_TRUE(crafted.build(hashed(processHashSeed(), domains)));
  PerfectHash any;
  ASSERT_TRUE(any.build(randomHashes(domains.size())));
  EXPECT_LT(crafted.mostTries(), 20 * any.mostTries());
}

}  // namespace
