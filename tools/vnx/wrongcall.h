// What is thrown when the command line asks for something that cannot be.
#pragma once

#include <stdexcept>

/// The call is wrong: the text says how.
class WrongCall : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
