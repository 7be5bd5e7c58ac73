#include "simulator/endpoint_error.hpp"

#include <cerrno>
#include <cstring>

namespace pelmo::sim {

std::string system_failure(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace pelmo::sim
