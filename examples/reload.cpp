// Reloads a list of address patterns while scanners match on it.
//
//   reload [PATTERNS [GENERATIONS [SCANNERS]]]
//
// One thread, the loader, makes and destroys all trees, because both touch what the trees share. It makes each list
// aside, freezes it and publishes it. A scanner takes the list that is published, works with it for a while and takes
// the next. Who lets go of an old list last hands it back, and the loader destroys it.
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KxWildcardEmail.h"

namespace {

struct List {
  std::size_t generation;
  std::unique_ptr<KxWildcardNode> tree;
  std::vector<KxWildcardNode*> trees;  // as `matchEmailAddress` takes them
};

class Publication {
 public:
  // Scanners.
  std::shared_ptr<List> current() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_current;
  }
  // The loader. Null ends the publication.
  void publish(std::unique_ptr<List> list) {
    std::shared_ptr<List> published(list.release(), [this](List* old) { retire(old); });
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_current.swap(published);
    // The lock goes first: the old list may retire here, which takes it again.
  }
  // The loader. Destroys the lists that no scanner has any more, and returns how many.
  std::size_t destroyRetired() {
    std::vector<std::unique_ptr<List>> retired;
    const std::lock_guard<std::mutex> lock(m_mutex);
    retired.swap(m_retired);
    return retired.size();
  }

 private:
  void retire(List* old) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (old != nullptr) {
      m_retired.emplace_back(old);
    }
  }

  mutable std::mutex m_mutex;
  std::vector<std::unique_ptr<List>> m_retired;
  std::shared_ptr<List> m_current;  // retires into the above
};

std::string domainOf(std::size_t number, std::size_t generation) {
  return "d" + std::to_string(number / 8) + ".g" + std::to_string(generation) + ".test";
}

// Made up here; a gateway reads its patterns from where it keeps them.
std::vector<std::string> patternsOf(std::size_t generation, std::size_t count) {
  std::vector<std::string> patterns;
  for (std::size_t number = 0; number != count; ++number) {
    patterns.push_back((number % 8 == 0 ? "*@*." : "user" + std::to_string(number) + "@") + domainOf(number, generation));
  }
  return patterns;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::size_t heapInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

std::unique_ptr<List> load(std::size_t generation, std::size_t count) {
  const std::vector<std::string> patterns = patternsOf(generation, count);
  std::vector<const char*> texts;
  texts.reserve(patterns.size());
  for (const std::string& pattern : patterns) {
    texts.push_back(pattern.c_str());
  }
  const std::size_t before = heapInUse();
  const auto start = std::chrono::steady_clock::now();
  auto list = std::make_unique<List>();
  list->generation = generation;
  list->tree.reset(KxWildcardEmail::makeNewTree());
  list->tree->addAddressPatterns(texts.data(), texts.size(), 1);
  list->trees.push_back(list->tree.get());
  const double filled = secondsSince(start);
  KxWildcardEmail::initScanTimeMode();
  const double millions = static_cast<double>(count) / 1e6;
  std::cout << "generation " << generation << ": for a million patterns " << filled / millions << " s to fill, "
            << (secondsSince(start) - filled) / millions << " s to freeze, "
            << static_cast<double>(heapInUse() - before) / millions / 1e6 << " MB\n";
  return list;
}

// What scanners found out together.
struct Tally {
  std::atomic<std::size_t> right{0};
  std::atomic<std::size_t> wrong{0};
};

// Asks, until the publication ends, for an address of the list's generation and for one of the next.
void scan(const Publication& publication, std::size_t count, Tally& tally) {
  constexpr std::size_t kForOneMessage = 16;
  std::size_t number = 0;
  while (const std::shared_ptr<List> list = publication.current()) {
    for (std::size_t i = 0; i != kForOneMessage; ++i, number = (number + 7) % count) {
      const auto codeOf = [&](std::size_t generation) {
        const std::string address = "user" + std::to_string(number) + "@sub." + domainOf(number, generation);
        return KxWildcardEmail::matchEmailAddress(address.c_str(), list->trees, nullptr, nullptr, nullptr);
      };
      const bool isRight = codeOf(list->generation) == 1 && codeOf(list->generation + 1) == 0;
      ++(isRight ? tally.right : tally.wrong);
    }
  }
}

std::size_t argument(int argc, char** argv, int position, std::size_t usual) {
  return argc > position ? std::strtoul(argv[position], nullptr, 10) : usual;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t patterns = argument(argc, argv, 1, 100000);
  const std::size_t generations = argument(argc, argv, 2, 4);
  const std::size_t scanners = argument(argc, argv, 3, 2);

  // Locks the default table while it is empty. Each tree then keeps the texts of its patterns itself, and takes them
  // along when it is destroyed; what is in a table stays as long as the process.
  KxWildcardEmail::initScanTimeMode();

  Publication publication;
  publication.publish(load(0, patterns));
  Tally tally;
  std::vector<std::thread> threads;
  for (std::size_t scanner = 0; scanner != scanners; ++scanner) {
    threads.emplace_back([&] { scan(publication, patterns, tally); });
  }
  std::size_t destroyed = 0;
  for (std::size_t generation = 1; generation < generations; ++generation) {
    publication.publish(load(generation, patterns));
    destroyed += publication.destroyRetired();
  }
  // The scanners go on for a moment.
  for (const std::size_t before = tally.right; scanners != 0 && tally.right == before && tally.wrong == 0;) {
    std::this_thread::yield();
  }
  publication.publish(nullptr);
  for (std::thread& thread : threads) {
    thread.join();
  }
  destroyed += publication.destroyRetired();
  std::cout << "answers from another list than the scanner had: " << tally.wrong << "\nlists destroyed: " << destroyed
            << '\n';
  return tally.wrong == 0 && destroyed == generations ? 0 : 1;
}
