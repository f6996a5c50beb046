// vnx verify: the command line around whether a file can be read.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include <vnxstd/archive/limits.h>

#include "exitstatus.h"

class VerifyCommand {
 public:
  explicit VerifyCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Reads everything and says how it went. Throws WrongCall and FileError.
  Exit run() const;

 private:
  CLI::App* command_;
  std::string file_;
  qcArchiveLimits limits_;
};
