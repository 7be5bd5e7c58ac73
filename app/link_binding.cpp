#include "app/link_binding.hpp"

namespace pelmo {
namespace {

const LinkDriver* bound_driver = nullptr;

}  // namespace

ResultCode bind_link_driver(const LinkDriver* driver) {
  if (driver == nullptr) {
    return RC_NULL_POINTER;
  }
  if (!driver->send || !driver->receive) {
    return RC_NO_DRIVER;
  }
  bound_driver = driver;
  return RC_OK;
}

void unbind_link_driver() {
  bound_driver = nullptr;
}

const LinkDriver* bound_link_driver() {
  return bound_driver;
}

}  // namespace pelmo
