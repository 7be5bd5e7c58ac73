#pragma once

#include <stdexcept>
#include <string>

namespace pelmo::sim {

// An endpoint that cannot be set up; the text names what failed and the system's reason.
struct EndpointError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "what: strerror(errno)" for the current errno.
std::string system_failure(const std::string& what);

}  // namespace pelmo::sim
