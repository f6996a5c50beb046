// vnx render: the command line around the drawing of archives.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

class RenderCommand {
 public:
  explicit RenderCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Draws and says what. Returns whether there was something to draw. Throws WrongCall and FileError, the
  /// latter also when what was drawn is only what lies before the damage to an archive.
  bool run() const;

 private:
  CLI::App* command_;
  std::string archive_, output_;
};
