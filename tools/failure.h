// The one way a command fails: a message for the user, printed as one line.
#pragma once

#include <stdexcept>

namespace qdtool {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace qdtool
