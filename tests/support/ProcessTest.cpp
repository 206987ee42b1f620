#include "ProcessTest.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

constexpr int kAssertionFailed = 97;  // an exit status that no sanitizer uses

[[noreturn]] void runChild(const std::function<void()>& body, int output, unsigned int seconds) {
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  ::close(output);
  ::signal(SIGALRM, SIG_DFL);
  ::alarm(seconds);
  // Caught here: an exception that went on would leave the child running the rest of the tests.
  try {
    body();
  } catch (const std::exception& thrown) {
    ADD_FAILURE() << "exception left the test: " << thrown.what();
  } catch (const char* thrown) {
    ADD_FAILURE() << "text thrown out of the test: " << thrown;
  } catch (...) {
    ADD_FAILURE() << "exception of unknown type left the test";
  }
  // The search for leaks looks at no process that has been another user.
  if (::seteuid(::getuid()) == 0) {
    ::prctl(PR_SET_DUMPABLE, 1);
  }
  std::exit(testing::Test::HasFailure() ? kAssertionFailed : 0);
}

// Reads until the child has closed its end.
std::string readAll(int input) {
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t count = ::read(input, piece, sizeof piece);
    if (count > 0) {
      text.append(piece, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return text;
    }
  }
}

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

// Empty when all went well.
std::string describe(int status, unsigned int seconds) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    return "the child process did not end within " + std::to_string(seconds) + " seconds";
  }
  if (WIFSIGNALED(status)) {
    return std::string("the child process died: ") + ::strsignal(WTERMSIG(status));
  }
  if (WEXITSTATUS(status) == kAssertionFailed) {
    return "the test failed in its child process";
  }
  return WEXITSTATUS(status) == 0 ? "" : "the child process ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string failureInOwnProcess(const std::function<void()>& body, unsigned int seconds) {
  int ends[2];
  if (::pipe(ends) != 0) {
    return std::string("no pipe: ") + std::strerror(errno);
  }
  std::fflush(nullptr);  // or the child would write what is buffered a second time
  const pid_t child = ::fork();
  if (child < 0) {
    ::close(ends[0]);
    ::close(ends[1]);
    return std::string("no child process: ") + std::strerror(errno);
  }
  if (child == 0) {
    ::close(ends[0]);
    runChild(body, ends[1], seconds);
  }
  ::close(ends[1]);
  const std::string output = readAll(ends[0]);
  ::close(ends[0]);
  const std::string failure = describe(waitFor(child), seconds);
  return failure.empty() ? failure : failure + "; it wrote:\n" + output;
}

void runInOwnProcess(const std::function<void()>& body, unsigned int seconds) {
  const std::string failure = failureInOwnProcess(body, seconds);
  if (!failure.empty()) {
    ADD_FAILURE() << failure;
  }
}
