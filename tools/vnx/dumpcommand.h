// vnx dump: the command line around what lies in archives.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "exitstatus.h"

class DumpCommand {
 public:
  explicit DumpCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Writes what was asked for to standard output. Throws WrongCall and FileError.
  Exit run() const;

 private:
  CLI::App* command_;
  std::string file_, path_;
  bool json_ = false, hex_ = false;
};
