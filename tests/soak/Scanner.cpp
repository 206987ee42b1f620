// A scanner as gateways have them: matches on several threads, and takes its list anew from the policy database again
// and again.
//
//   soak_scanner GROUP-ID THREADS
//
// ZARO_HOME names the installation. The group's members are patterns of blocked.test, none of free.test, and one
// generation-N@marker.test, which says which list it is: every answer must be of the list that the thread has. Prints
// one JSON object each second, and ends when standard input does; with status 1 after a wrong answer or a failure.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AddressGroup.h"
#include "KxWildcardEmail.h"
#include "RdbmsInterface.h"
#include "ZaroRuntime/ConnectionPool.h"
#include "ZaroRuntime/LastFailure.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr KxEmailBelongsTo kBlock = 2;
const std::string kMarker = "generation-";

struct List {
  unsigned long generation = 0;
  std::unique_ptr<KxWildcardNode> tree;
  std::vector<KxWildcardNode*> trees;  // as `matchEmailAddress` takes them
};

// How long answers took: eight buckets for each power of two of nanoseconds.
class Latencies {
 public:
  void add(Clock::duration took) {
    const auto nanoseconds = static_cast<std::uint64_t>(std::chrono::nanoseconds(took).count()) | 8;
    const auto power = static_cast<unsigned int>(63 - __builtin_clzll(nanoseconds));
    m_counts[power * 8 + (nanoseconds >> (power - 3) & 7)].fetch_add(1, std::memory_order_relaxed);
  }
  // Takes what was added since the last time.
  std::vector<std::uint64_t> take() {
    std::vector<std::uint64_t> counts;
    for (std::atomic<std::uint64_t>& count : m_counts) {
      counts.push_back(count.exchange(0, std::memory_order_relaxed));
    }
    return counts;
  }
  // The upper end of the bucket in which a share of all is reached, in nanoseconds.
  static std::uint64_t reached(const std::vector<std::uint64_t>& counts, double share) {
    std::uint64_t all = 0;
    for (const std::uint64_t count : counts) {
      all += count;
    }
    std::uint64_t sum = 0;
    for (std::size_t bucket = 0; bucket != counts.size(); ++bucket) {
      sum += counts[bucket];
      if (sum != 0 && static_cast<double>(sum) >= share * static_cast<double>(all)) {
        return (8 + bucket % 8 + 1) << (bucket / 8 - 3);
      }
    }
    return 0;
  }

 private:
  std::array<std::atomic<std::uint64_t>, 64 * 8> m_counts = {};
};

class Scanner {
 public:
  explicit Scanner(unsigned int group) : m_group(group) {}

  // The loader's thread: makes and destroys all trees, since both touch what trees share.
  void load() {
    const unsigned long failures = zaroruntime::failureCount();
    std::vector<AddressGroup::AddressGroupMember> members;
    if (AddressGroup::getAddressGroupMembersByID(m_group, members) != 0 || zaroruntime::failureCount() != failures) {
      fail(zaroruntime::lastFailure());
      return;
    }
    auto list = std::make_shared<List>();
    list->tree.reset(KxWildcardEmail::makeNewTree());
    list->trees.push_back(list->tree.get());
    std::vector<const char*> patterns;
    for (const AddressGroup::AddressGroupMember& member : members) {
      patterns.push_back(member.second.c_str());
      if (member.second.compare(0, kMarker.size(), kMarker) == 0) {
        list->generation = std::strtoul(member.second.c_str() + kMarker.size(), nullptr, 10);
      }
    }
    if (list->tree->addAddressPatterns(patterns.data(), patterns.size(), kBlock) != patterns.size()) {
      fail("a pattern was refused");
      return;
    }
    KxWildcardEmail::initScanTimeMode();
    publish(std::move(list));
    ++m_reloads;
  }

  // A scanning thread.
  void scan() {
    while (!m_ended) {
      const std::shared_ptr<List> list = current();
      ask("user7@d7.blocked.test", *list, true);
      ask("anyone@sub.wild.blocked.test", *list, true);
      ask("user7@free.test", *list, false);
      ask(marker(list->generation), *list, true);
      ask(marker(list->generation + 1), *list, false);
      ask(marker(list->generation - 1), *list, false);
    }
  }

  void report() {
    const std::vector<std::uint64_t> counts = m_latencies.take();
    std::uint64_t answers = 0;
    for (const std::uint64_t count : counts) {
      answers += count;
    }
    std::printf(
        "{\"answers\": %llu, \"p50\": %llu, \"p99\": %llu, \"max\": %llu, \"reloads\": %lu, \"generation\": %lu, "
        "\"wrong\": %lu, \"failed\": %lu}\n",
        static_cast<unsigned long long>(answers), static_cast<unsigned long long>(Latencies::reached(counts, 0.5)),
        static_cast<unsigned long long>(Latencies::reached(counts, 0.99)),
        static_cast<unsigned long long>(Latencies::reached(counts, 1)), m_reloads, current()->generation,
        m_wrong.load(), m_failed);
    std::fflush(stdout);
  }

  // Once the scanning threads have ended.
  bool end() {
    publish(nullptr);
    return m_wrong == 0 && m_failed == 0;
  }
  void stop() { m_ended = true; }
  bool isLoaded() const { return current() != nullptr; }

 private:
  static std::string marker(unsigned long generation) { return kMarker + std::to_string(generation) + "@marker.test"; }

  void ask(const std::string& address, List& list, bool isBlocked) {
    const Clock::time_point start = Clock::now();
    const unsigned int code = KxWildcardEmail::matchEmailAddress(address.c_str(), list.trees, nullptr, nullptr, nullptr);
    m_latencies.add(Clock::now() - start);
    if (code != (isBlocked ? kBlock : 0u)) {
      ++m_wrong;
    }
  }

  std::shared_ptr<List> current() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_current;
  }

  // No thread can ask for an old list any more, so that one with a single owner is the loader's to destroy.
  void publish(std::shared_ptr<List> list) {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_current.swap(list);
    }
    if (list != nullptr) {
      m_old.push_back(std::move(list));
    }
    const auto gone =
        std::partition(m_old.begin(), m_old.end(), [](const std::shared_ptr<List>& old) { return old.use_count() > 1; });
    std::atomic_thread_fence(std::memory_order_acquire);
    m_old.erase(gone, m_old.end());
  }

  void fail(const std::string& reason) {
    ++m_failed;
    std::fprintf(stderr, "soak_scanner: %s\n", reason.c_str());
  }

  const unsigned int m_group;
  mutable std::mutex m_mutex;
  std::shared_ptr<List> m_current;
  std::vector<std::shared_ptr<List>> m_old;
  Latencies m_latencies;
  std::atomic<bool> m_ended{false};
  std::atomic<unsigned long> m_wrong{0};
  unsigned long m_failed = 0;
  unsigned long m_reloads = 0;
};

// Whether standard input has ended; waits for it a while.
bool isOver(std::chrono::milliseconds patience) {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, static_cast<int>(patience.count())) != 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || !ZARO::RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr)) {
    std::fprintf(stderr, "usage: soak_scanner GROUP-ID THREADS, with ZARO_HOME set\n");
    return 2;
  }
  // Locks the default table while it is empty, so that each tree keeps the texts of its patterns, and takes them along.
  KxWildcardEmail::initScanTimeMode();
  Scanner scanner(static_cast<unsigned int>(std::strtoul(argv[1], nullptr, 10)));
  scanner.load();
  if (!scanner.isLoaded()) {
    return 1;
  }
  std::vector<std::thread> threads;
  for (unsigned long thread = 0; thread != std::strtoul(argv[2], nullptr, 10); ++thread) {
    threads.emplace_back([&scanner] { scanner.scan(); });
  }
  for (Clock::time_point next = Clock::now(); !isOver(std::chrono::milliseconds(100));) {
    scanner.load();
    if (Clock::now() >= next) {
      scanner.report();
      next += std::chrono::seconds(1);
    }
  }
  scanner.stop();
  for (std::thread& thread : threads) {
    thread.join();
  }
  scanner.report();
  const bool isRight = scanner.end();
  zaroruntime::closePools();
  return isRight ? 0 : 1;
}
