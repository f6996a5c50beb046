// vnx db: the command line around tool databases.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "exitstatus.h"

class DbCommand {
 public:
  explicit DbCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Does what was asked. Throws WrongCall and FileError.
  Exit run() const;

 private:
  CLI::App* command_;
  CLI::App *list_, *show_, *check_, *remove_, *renumber_, *grade_, *extract_, *salvage_;
  Exit extract() const;
  Exit salvage() const;

  std::string file_, wanted_, output_;
  bool inPlace_ = false;
  long number_ = 0, other_ = 0;
  float metric_ = 0;
  long type_ = 0;
  CLI::Option *typeGiven_, *metricGiven_;
};
