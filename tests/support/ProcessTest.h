// Tests with a process of their own, for state that a process can have only once.
//
//   PROCESS_TEST(RdbmsInit, succeedsOnce) { ... }               // a plain test
//   PROCESS_TEST_F(RdbmsInitTest, succeedsOnce) { ... }         // with a fixture, which is made in the child
//
// The body runs in a forked child of the test program; assertions work as everywhere. The test fails, and shows what
// the child wrote, when an assertion in the child fails, an exception leaves the body, a sanitizer reports (leaks
// included: the child ends by std::exit, so that they are looked for), the child dies, or it takes longer than
// PROCESS_TEST_SECONDS. GTEST_SKIP in a body ends it like a success.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#ifndef PROCESS_TEST_SECONDS
#define PROCESS_TEST_SECONDS 60
#endif

// Runs `body` in a child process that may take `seconds`; a failure there is a failure of the running test.
void runInOwnProcess(const std::function<void()>& body, unsigned int seconds = PROCESS_TEST_SECONDS);

// The same, but says what went wrong instead: how the child failed and what it wrote. Empty when nothing did.
std::string failureInOwnProcess(const std::function<void()>& body, unsigned int seconds);

#define PROCESS_TEST(Suite, name)                    \
  struct Suite##_##name##_InChild {                  \
    static void body();                              \
  };                                                 \
  TEST(Suite, name) {                                \
    runInOwnProcess(Suite##_##name##_InChild::body); \
  }                                                  \
  void Suite##_##name##_InChild::body()

#define PROCESS_TEST_F(Fixture, name)                 \
  class Fixture##_##name##_InChild : public Fixture { \
   public:                                            \
    static void run() {                               \
      Fixture##_##name##_InChild test;                \
      test.SetUp();                                   \
      if (!HasFatalFailure()) {                       \
        test.body();                                  \
      }                                               \
      test.TearDown();                                \
    }                                                 \
                                                      \
   private:                                           \
    void TestBody() override {}                       \
    void body();                                      \
  };                                                  \
  TEST_F(Fixture, name) {                             \
    runInOwnProcess(Fixture##_##name##_InChild::run); \
  }                                                   \
  void Fixture##_##name##_InChild::body()
