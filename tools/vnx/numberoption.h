// Options of the command line that take a number.
#pragma once

#include <CLI/CLI.hpp>

#include <limits>
#include <sstream>
#include <string>

#include "numbers.h"

/// Adds an option, or an argument, that sets `value` to a decimal number from `least` to `most`; anything else is a
/// wrong call.
template <class T>
CLI::Option* addNumber(CLI::App& command, const std::string& name, T& value, const std::string& what, T least, T most) {
  const auto take = [&value, name, least, most](const std::string& text) {
    const auto number = readNumber<T>(text);
    if (number && *number >= least && *number <= most) {
      value = *number;
      return;
    }
    std::ostringstream reason;
    reason.precision(std::numeric_limits<T>::max_digits10);
    reason << "takes a number from " << least << " to " << most << ", not \"" << text << '"';
    throw CLI::ValidationError(name, reason.str());
  };
  return command.add_option_function<std::string>(name, take, what)->type_name("NUMBER");
}
