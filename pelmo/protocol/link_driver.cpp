#include "pelmo/protocol/link_driver.hpp"

namespace pelmo {
namespace {

LinkDriver* bound_driver = nullptr;

}  // namespace

ResultCode bind_link_driver(LinkDriver* driver) {
  if (driver == nullptr) {
    return RC_NULL_POINTER;
  }
  if (!driver->send || !driver->receive) {
    return RC_NO_DRIVER;
  }
  bound_driver = driver;
  return RC_OK;
}

LinkDriver* bound_link_driver() {
  return bound_driver;
}

}  // namespace pelmo
