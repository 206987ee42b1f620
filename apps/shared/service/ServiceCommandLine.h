// What the command lines of services have in common: where the installation is, --check and --foreground.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>

#include "console/ExitCode.h"
#include "console/Output.h"
#include "service/ServiceLog.h"
#include "store/PolicySettings.h"

struct ServiceOptions {
  std::string home;
  bool check = false;
  bool foreground = false;

  ServiceLog::Target logTarget() const {
    return foreground ? ServiceLog::Target::StandardError : ServiceLog::Target::SystemLog;
  }
};

// `checked` is what --check shows beside the settings, `version` the line of --version.
void addServiceOptions(CLI::App& app, ServiceOptions& options, const char* checked, const char* version);

// Reads the command line, and sets the environment and the mask of new files by it. Returns the status with which the
// program ends at once: after help and version, which are printed, and for a wrong command line, which is told.
std::optional<ExitCode> beginService(CLI::App& app, const ServiceOptions& options, int argc, const char* const* argv);

// Prints the settings that a service would go by, with the totals of what it would do. Totals are asked for when the
// settings are complete; otherwise it tells what `service` lacks.
ExitCode printCheck(const ReadSettings& read, const char* service, const std::function<Json()>& totals);
