#include "policy/ReadAhead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

using Number = std::unique_ptr<int>;  // items are moved, not copied

// Counts up to `last`, then has no more.
std::function<std::optional<Number>()> upTo(int last, std::atomic<int>& read) {
  return [last, &read]() -> std::optional<Number> {
    return read < last ? std::make_optional(std::make_unique<int>(++read)) : std::nullopt;
  };
}

TEST(ReadAhead, handsOnAllInTheirOrder) {
  std::atomic<int> read{0};
  ReadAhead<Number> numbers(upTo(500, read));
  for (int expected = 1; expected <= 500; ++expected) {
    const std::optional<Number> number = numbers.next();
    ASSERT_TRUE(number.has_value());
    ASSERT_EQ(**number, expected);
  }
  EXPECT_FALSE(numbers.next().has_value());
  EXPECT_FALSE(numbers.next().has_value());
}

TEST(ReadAhead, readsWhileNothingIsUsedAndKeepsNothingThatReadingHeld) {
  std::atomic<int> read{0};
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> transaction = held;
  ReadAhead<Number> numbers([numbered = upTo(500, read), kept = std::move(held)] { return numbered(); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!transaction.expired()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  EXPECT_EQ(read, 500);
  EXPECT_EQ(**numbers.next(), 1);
}

TEST(ReadAhead, throwsWhatReadingThrewBehindWhatCameBefore) {
  int read = 0;
  ReadAhead<int> numbers([&]() -> std::optional<int> {
    return ++read < 3 ? std::make_optional(read) : throw std::runtime_error("no third");
  });
  EXPECT_EQ(numbers.next(), 1);
  EXPECT_EQ(numbers.next(), 2);
  EXPECT_THROW(numbers.next(), std::runtime_error);
  EXPECT_THROW(numbers.next(), std::runtime_error);
}

// What is left is not read then.
TEST(ReadAhead, mayEndWhileItReads) {
  std::promise<void> begun;
  std::promise<void> goesOn;
  std::thread letting;
  {
    const ReadAhead<int> endless([&, isFirst = true]() mutable -> std::optional<int> {
      if (std::exchange(isFirst, false)) {
        begun.set_value();
        goesOn.get_future().wait();
      }
      return 1;
    });
    begun.get_future().wait();
    letting = std::thread([&] { goesOn.set_value(); });
  }
  letting.join();
}

}  // namespace
