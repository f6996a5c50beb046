// vnx blobs: the command line around the regions of an image.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "blobs.h"

class BlobsCommand {
 public:
  explicit BlobsCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Finds, prints and draws. Returns whether there was anything. Throws WrongCall and FileError.
  bool run() const;

 private:
  BlobParams params() const;

  CLI::App* command_;
  std::string image_, threshold_ = "auto", overlay_;
  bool isDark_ = false;
  long leastArea_ = 1;
};
