#pragma once

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// PelmoWin's process-wide binding of its one link: a pointer to a record the run keeps alive. The
// library never looks at it; every command takes its LinkDriver explicitly. Binding again replaces
// it; a record without send or receive is refused and the earlier binding stays.
ResultCode bind_link_driver(const LinkDriver* driver);

// Forgets the bound record.
void unbind_link_driver();

// The bound record, or null before any successful bind and after unbind_link_driver.
const LinkDriver* bound_link_driver();

// Binds the run's link for as long as the run lasts, so no pointer to it outlives the run.
class LinkBinding {
 public:
  explicit LinkBinding(const LinkDriver* driver) : result_(bind_link_driver(driver)) {}
  LinkBinding(const LinkBinding&) = delete;
  LinkBinding& operator=(const LinkBinding&) = delete;
  ~LinkBinding() {
    if (result_ == RC_OK) {
      unbind_link_driver();
    }
  }
  ResultCode result() const { return result_; }

 private:
  ResultCode result_;
};

}  // namespace pelmo
