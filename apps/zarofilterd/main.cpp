// zarofilterd: applies the stored policy to passing mail.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Filter.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/ExitCode.h"
#include "console/Output.h"
#include "console/RunProgram.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "loading/PolicySource.h"
#include "policy/PolicyGeneration.h"
#include "store/FilterSettings.h"

using zaroruntime::Installation;
using zaroruntime::RuntimeError;

namespace {

struct Options {
  std::string home;
  bool check = false;
  bool foreground = false;
};

// What is logged and kept is for nobody else; sockets get their modes by the settings.
void setUmask() {
  constexpr mode_t kOwnerOnly = 0077;
  umask(kOwnerOnly);
}

// The library and the platform take these from the environment.
void setEnvironment(const CLI::App& app, const Options& options) {
  if (app.count("--home") != 0) {
    if (options.home.empty()) {
      throw UsageError("--home names no directory");
    }
    setenv("ZARO_HOME", options.home.c_str(), 1);
  }
  constexpr int kKeepWhatIsSet = 0;
  // See zaroctl: the driver of PostgreSQL would leave a log of its own in /tmp.
  setenv("ODBCINSTINI", "/dev/null", kKeepWhatIsSet);
  setenv("ZARO_LOG", options.foreground || options.check ? "stderr" : "syslog", kKeepWhatIsSet);
}

Output::Form outputForm() {
  return isatty(STDOUT_FILENO) != 0 ? Output::Form::Table : Output::Form::Lines;
}

// The settings that count, and the totals of the policy that would.
ExitCode check(const Installation& installation) {
  const zaroruntime::Settings stored = zaroruntime::readSettings(installation);
  tellOfDatabase(stored);
  const ReadSettings read = readAsFilter(stored);
  Output out(outputForm());
  Json record = Json::object();
  for (const ReadSetting& setting : read.settings) {
    record[setting.key] = setting.value;
  }
  if (!read.isComplete()) {
    out.record(record);
    out.finish();
    diagnose(whyUnreadable("the mail filter", read));
    return ExitCode::Configuration;
  }
  const FilterSettings settings = filterSettings(installation, stored);
  const PolicyGeneration generation(makePolicySource(settings)->loadUnless(std::nullopt).value());
  for (const std::string& warning : generation.warnings()) {
    diagnose(warning);
  }
  record["generation"] = generation.version();
  record["rules"] = generation.rules().size();
  record["trees"] = generation.trees();
  record["sender_patterns"] = generation.senderPatterns();
  record["recipient_patterns"] = generation.recipientPatterns();
  out.record(record);
  out.finish();
  return ExitCode::Found;
}

// Goes on in a child whose parent waits until it is ready. In the parent, does not return.
class Background {
 public:
  Background() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw RuntimeError(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    const pid_t child = fork();
    if (child < 0) {
      throw RuntimeError(std::string("cannot go to the background: ") + std::strerror(errno));
    }
    if (child > 0) {
      close(ends[1]);
      _exit(_statusOf(child, ends[0]));
    }
    close(ends[0]);
    m_parent = ends[1];
    setsid();
  }

  void tellReady() const {
    const char ready = 'r';
    static_cast<void>(!::write(m_parent, &ready, 1));
    close(m_parent);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      dup2(null, descriptor);
    }
    close(null);
  }

 private:
  // Waits until the child is ready or has ended.
  static int _statusOf(pid_t child, int pipe) {
    char byte = 0;
    if (read(pipe, &byte, 1) == 1) {
      return static_cast<int>(ExitCode::Found);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(ExitCode::Unavailable);
  }

  int m_parent = -1;
};

ExitCode serveMail(const Installation& installation, bool foreground) {
  const auto settingsNow = [&] { return filterSettings(installation, zaroruntime::readSettings(installation)); };
  if (foreground) {
    serve(settingsNow(), FilterLog(FilterLog::Target::StandardError), [] {});
  } else {
    const Background background;
    serve(settingsNow(), FilterLog(FilterLog::Target::SystemLog), [&] { background.tellReady(); });
  }
  return ExitCode::Found;
}

ExitCode run(int argc, const char* const* argv) {
  CLI::App app("Apply the stored policy to mail that Postfix or Sendmail passes on.", "zarofilterd");
  Options options;
  app.add_option("--home", options.home, "The installation directory; else ZARO_HOME names it")->type_name("DIR");
  app.add_flag("--check", options.check, "Show the settings that count and the totals of the policy, and end");
  app.add_flag("--foreground", options.foreground, "Stay in the foreground, with the log on standard error");
  app.set_version_flag("--version", "zarofilterd " ZAROFILTERD_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      app.exit(error);  // help or version, on standard output
      return ExitCode::Found;
    }
    diagnose(std::string(error.what()) + " (see zarofilterd --help)");
    return ExitCode::Usage;
  }
  setUmask();
  setEnvironment(app, options);
  const Installation installation = Installation::fromEnvironment();
  return options.check ? check(installation) : serveMail(installation, options.foreground);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram([&] { return run(argc, argv); });
}
