#include "pelmo/protocol/result_code.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string_view>

namespace pelmo {
namespace {

TEST(ResultCode, KindStatusAndText) {
  using enum ResultKind;
  struct Case {
    ResultCode code;
    ResultKind kind;
    std::optional<std::uint8_t> status;
    std::string_view text;
  };
  for (const Case& c : {
           Case{RC_OK, success, {}, "success"},

           Case{RC_OUT_OF_RANGE, device_status, 0xFD, "out of range (device status 0xFD)"},
           Case{RC_BAD_HEADER, local_or_device, 0xFA,
                "bad frame start byte, or invalid firmware header"},
           Case{RC_BAD_CRC, local_or_device, 0xF9, "CRC mismatch, or invalid firmware CRC"},
           Case{RC_TIMEOUT, local_failure, {}, "no response (time-out)"},
           Case{-255, device_status, 0x01, "failure status from the device"},

           Case{RC_CANCELLED, local_failure, {}, "cancelled"},
           Case{-256, not_a_result, {}, "not a result code"},

       }) {
    EXPECT_EQ(result_kind(c.code), c.kind) << c.code;
    EXPECT_EQ(device_status_of(c.code), c.status) << c.code;
    EXPECT_EQ(result_text(c.code), c.text) << c.code;
  }
  // Every status byte folds into the code space and back, unless the number is a local one.
  std::set<std::string_view> local_texts;
  for (unsigned status = 1; status < 256; ++status) {
    const ResultCode code = device_status_code(static_cast<std::uint8_t>(status));
    if (result_kind(code) == local_failure) {
      EXPECT_EQ(device_status_of(code), std::nullopt) << code;
      local_texts.insert(result_text(code));
    } else {
      EXPECT_EQ(device_status_of(code), status) << code;
    }
  }
  EXPECT_EQ(local_texts.size(), 8u);  // each local failure with a text of its own
}

}  // namespace
}  // namespace pelmo
