#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KxWildcardEmail.h"

int main(int argc, char** argv) {
  const std::unique_ptr<KxWildcardNode> blocked(KxWildcardEmail::makeNewTree());
  blocked->addAddressPattern("*@*.example.test", 2, nullptr, nullptr);
  blocked->addAddressPattern("postmaster@*", 1, nullptr, nullptr);
  KxWildcardEmail::initScanTimeMode();  // from here on any number of threads may match

  std::vector<KxWildcardNode*> trees = {blocked.get()};
  std::vector<std::string> answers(static_cast<std::size_t>(argc));
  std::vector<std::thread> threads;
  for (int i = 1; i < argc; ++i) {
    threads.emplace_back([&, i] {
      const char* pattern = nullptr;
      const int code = KxWildcardEmail::matchEmailAddress(argv[i], trees, nullptr, &pattern, nullptr);
      answers[static_cast<std::size_t>(i)] = std::to_string(code) + ' ' + (pattern != nullptr ? pattern : "-");
    });
  }
  for (int i = 1; i < argc; ++i) {
    threads[static_cast<std::size_t>(i - 1)].join();
    std::cout << argv[i] << ' ' << answers[static_cast<std::size_t>(i)] << '\n';
  }
}
