#include "Control.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace faults {

namespace {

constexpr std::size_t kPage = 4096;
static_assert(sizeof(Control) <= kPage);

Control* control = nullptr;       // null where no test has set one up
std::atomic<bool> inMain{false};  // what comes before is the loader's, and ends every process without memory

struct Range {
  std::uintptr_t begin;
  std::uintptr_t end;
};

constexpr std::size_t kMostRanges = 32;
Range ourRanges[kMostRanges];
std::size_t countOfRanges = 0;

// The driver manager is there from the start as well, its drivers come later.
constexpr const char* kOurLibraries[] = {"libZaro", "libstdc++", "libc.so", "libgcc_s", "libm.so"};

bool isOurObject(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  const char* const name = slash != nullptr ? slash + 1 : path;
  if (*name == '\0') {
    return true;  // the program itself
  }
  for (const char* ours : kOurLibraries) {
    if (std::strncmp(name, ours, std::strlen(ours)) == 0) {
      return true;
    }
  }
  return false;
}

int addObject(dl_phdr_info* object, std::size_t /*size*/, void* /*unused*/) {
  for (int at = 0; isOurObject(object->dlpi_name) && at < object->dlpi_phnum; ++at) {
    const auto& part = object->dlpi_phdr[at];
    if (part.p_type == PT_LOAD && countOfRanges < kMostRanges) {
      const std::uintptr_t begin = object->dlpi_addr + part.p_vaddr;
      ourRanges[countOfRanges++] = {begin, begin + part.p_memsz};
    }
  }
  return 0;
}

// For the test to tell whose crash it is. The unwinder has been made ready before, so that it takes no memory here.
void noteCulprit(int /*signal*/) {
  void* frames[24];
  const int count = backtrace(frames, 24);
  std::size_t used = 0;
  for (int at = 1; at < count; ++at) {
    Dl_info found = {};
    if (dladdr(frames[at], &found) == 0 || found.dli_fname == nullptr) {
      continue;
    }
    const char* const slash = std::strrchr(found.dli_fname, '/');
    const int written =
        std::snprintf(control->culprit + used, sizeof control->culprit - used, "%s(%s)+0x%zx ",
                      slash != nullptr ? slash + 1 : found.dli_fname, found.dli_sname != nullptr ? found.dli_sname : "?",
                      static_cast<std::size_t>(static_cast<char*>(frames[at]) - static_cast<char*>(found.dli_fbase)));
    used += written > 0 ? static_cast<std::size_t>(written) : 0;
    if (used >= sizeof control->culprit) {
      return;
    }
  }
}

void watchForCrashes() {
  void* frames[1];
  backtrace(frames, 1);
  struct sigaction action = {};
  action.sa_handler = noteCulprit;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // comes again, with its usual effect
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    sigaction(signal, &action, nullptr);
  }
}

__attribute__((constructor)) void setUp() {
  const char* const path = std::getenv("ZARO_FAULTS");
  const int file = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) {
    return;
  }
  void* const page = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (page != MAP_FAILED) {
    dl_iterate_phdr(addObject, nullptr);
    watchForCrashes();
    control = static_cast<Control*>(page);
  }
}

}  // namespace

bool isChosen(Kind kind, const char* name) noexcept {
  if (control == nullptr || !inMain || (__atomic_load_n(&control->kinds, __ATOMIC_RELAXED) & kind) == 0) {
    return false;
  }
  const std::uint64_t number = __atomic_add_fetch(&control->calls, 1, __ATOMIC_RELAXED);
  if (number < control->first || number > control->last || control->first == 0) {
    return false;
  }
  if (__atomic_add_fetch(&control->failed, 1, __ATOMIC_RELAXED) == 1) {
    std::memcpy(control->name, name, std::min(std::strlen(name), sizeof control->name - 1));
  }
  return true;
}

Action action() noexcept {
  return static_cast<Action>(control->action);
}

const char* sqlState() noexcept {
  return control->state;
}

void killProcess() noexcept {
  for (;;) {
    kill(getpid(), SIGKILL);
  }
}

bool isOurs(const void* address) noexcept {
  const auto place = reinterpret_cast<std::uintptr_t>(address);
  for (std::size_t at = 0; at < countOfRanges; ++at) {
    if (place >= ourRanges[at].begin && place < ourRanges[at].end) {
      return true;
    }
  }
  return false;
}

void* next(const char* name) noexcept {
  return dlsym(RTLD_NEXT, name);
}

}  // namespace faults

namespace {

using Main = int(int, char**, char**);
Main* realMain = nullptr;

int countingMain(int count, char** arguments, char** environment) {
  faults::inMain = true;
  return realMain(count, arguments, environment);
}

}  // namespace

extern "C" int __libc_start_main(Main* program, int count, char** arguments, void (*init)(), void (*fini)(),
                                 void (*loaderFini)(), void* stackEnd) {
  using Start = int(Main*, int, char**, void (*)(), void (*)(), void (*)(), void*);
  realMain = program;
  return reinterpret_cast<Start*>(faults::next("__libc_start_main"))(countingMain, count, arguments, init, fini,
                                                                     loaderFini, stackEnd);
}
