#include "pelmo/session/outcome.hpp"

namespace pelmo {

std::string_view failure_kind_name(FailureKind kind) {
  switch (kind) {
    case FailureKind::none:
      return "ok";
    case FailureKind::device_status:
      return "device-status";
    case FailureKind::timeout:
      return "timeout";
    case FailureKind::protocol:
      return "protocol";
    case FailureKind::mismatch:
      return "mismatch";
    case FailureKind::input:
      return "input";
    case FailureKind::link:
      return "link";
    case FailureKind::cancelled:
      return "cancelled";
  }
  return "unknown";
}

}  // namespace pelmo
