#include "commands/CommandLine.h"

#include "commands/Commands.h"

CommandLine::CommandLine()
    : m_app("Make, check and ask the policy database of the gateway.", "zaroctl"), m_tree(m_app) {
  m_app.require_subcommand(1);
  m_app.fallthrough();  // global options after the command too
  m_app.footer(examplesText({"zaroctl init --sample /opt/gateway", "ZARO_HOME=/opt/gateway zaroctl check",
                             "zaroctl --home /opt/gateway admin id postmaster"}));
  m_app.add_option("--home", m_options.home, "The installation directory; else ZARO_HOME names it")->type_name("DIR");
  CLI::Option* json = m_app.add_flag("--json", m_options.json, "Print the result as JSON");
  m_app.add_option("-q,--query", m_options.query, "Print one value of each result, by its key in JSON")
      ->type_name("KEY")
      ->excludes(json);
  m_app.add_flag("-v,--verbose", m_options.verbosity, "Log warnings to standard error; twice: every step");
  m_app.set_version_flag("--version", "zaroctl " ZAROCTL_VERSION);
  addAllCommands(m_tree);
}
