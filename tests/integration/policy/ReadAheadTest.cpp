#include "policy/ReadAhead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

using Number = std::unique_ptr<int>;  // items are moved, not copied

// Counts up to `last`, then has no more.
std::function<std::optional<Number>()> upTo(int last, std::atomic<int>& read) {
  return [last, &read]() -> std::optional<Number> {
    return read < last ? std::make_optional(std::make_unique<int>(++read)) : std::nullopt;
  };
}

TEST(ReadAhead, handsOnAllInTheirOrder) {
  for (const std::size_t most : {1, 2, 1000}) {
    std::atomic<int> read{0};
    ReadAhead<Number> numbers(upTo(500, read), most);
    for (int expected = 1; expected <= 500; ++expected) {
      const std::optional<Number> number = numbers.next();
      ASSERT_TRUE(number.has_value());
      ASSERT_EQ(**number, expected);
    }
    EXPECT_FALSE(numbers.next().has_value());
    EXPECT_FALSE(numbers.next().has_value());
  }
}

TEST(ReadAhead, readsWhileNothingIsUsedButNoMoreThanMayWait) {
  std::atomic<int> read{0};
  ReadAhead<Number> numbers(upTo(500, read), 3);
  while (read != 4) {  // three wait, and one more for a place
    std::this_thread::yield();
  }
  EXPECT_EQ(**numbers.next(), 1);
  while (read != 5) {
    std::this_thread::yield();
  }
}

TEST(ReadAhead, throwsWhatReadingThrewBehindWhatCameBefore) {
  int read = 0;
  ReadAhead<int> numbers(
      [&]() -> std::optional<int> {
        return ++read < 3 ? std::make_optional(read) : throw std::runtime_error("no third");
      },
      10);
  EXPECT_EQ(numbers.next(), 1);
  EXPECT_EQ(numbers.next(), 2);
  EXPECT_THROW(numbers.next(), std::runtime_error);
  EXPECT_THROW(numbers.next(), std::runtime_error);
}

TEST(ReadAhead, endsWhileItReads) {
  std::promise<void> begun;
  std::promise<void> goesOn;
  std::thread letting;
  {
    ReadAhead<int> numbers(
        [&]() -> std::optional<int> {
          begun.set_value();
          goesOn.get_future().wait();
          return 1;
        },
        1);
    begun.get_future().wait();
    letting = std::thread([&] { goesOn.set_value(); });
  }
  letting.join();
}

TEST(ReadAhead, endsWhileNothingMoreMayWait) {
  std::atomic<int> read{0};
  const ReadAhead<Number> numbers(upTo(500, read), 1);
  while (read != 2) {
    std::this_thread::yield();
  }
}

}  // namespace
