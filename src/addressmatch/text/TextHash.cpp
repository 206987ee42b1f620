#include "addressmatch/text/TextHash.h"

#include <chrono>
#include <exception>
#include <random>

namespace zaro_addressmatch {

namespace {

HashSeed drawnSeed() {
  HashSeed seed = {};
  try {
    std::random_device device;
    for (std::uint64_t& word : seed.words) {
      word = static_cast<std::uint64_t>(device()) << 32 | device();
    }
  } catch (const std::exception&) {
    // No source of randomness: where the process lies and when it began is the best there is.
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    std::mt19937_64 engine(static_cast<std::uint64_t>(now) ^ reinterpret_cast<std::uintptr_t>(&seed));
    for (std::uint64_t& word : seed.words) {
      word = engine();
    }
  }
  return seed;
}

}  // namespace

const HashSeed& processHashSeed() {
  static const HashSeed seed = drawnSeed();
  return seed;
}

}  // namespace zaro_addressmatch
