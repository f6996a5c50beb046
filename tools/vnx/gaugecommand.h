// vnx gauge: the command line around the measurement of one feature.
#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <string>

#include "gauge.h"
#include "wrongcall.h"

class GaugeCommand {
 public:
  explicit GaugeCommand(CLI::App& app);
  bool wanted() const { return command_->parsed(); }

  /// Measures, prints and saves. Returns whether there was something to measure. Throws WrongCall and FileError.
  bool run() const;

 private:
  GaugeParams params() const;

  CLI::App* command_;
  CLI::Option *calibOption_, *transformOption_, *unitOption_;
  std::string image_, region_, feature_, polarity_ = "any", calib_, transform_ = "perspective", unit_ = "mm", save_,
                                         overlay_;
  int scans_ = 60;
};
