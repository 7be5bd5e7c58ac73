#include "pelmo/commands/write_probe.hpp"

#include <array>

#include "pelmo/commands/transfer.hpp"
#include "pelmo/protocol/exchange.hpp"

namespace pelmo {
namespace {

// The probe's frames are empty; a longer answer is cut here and then fails to decode, which the
// probe lets pass.
constexpr std::size_t PROBE_BUFFER_SIZE = 32;

}  // namespace

ResultCode probe_before_write(const LinkDriver* link) {
  std::array<std::uint8_t, PROBE_BUFFER_SIZE> request{};
  std::array<std::uint8_t, PROBE_BUFFER_SIZE> response{};
  std::uint16_t request_length = 0;
  ResultCode rc = encode_frame(Direction::request, to_byte(CommandCode::CMD_BEGIN_WRITE), 0, 0,
                               nullptr, request, &request_length);
  if (rc != RC_OK) {
    return rc;
  }
  std::uint16_t response_length = 0;
  rc = exchange(link, std::span(request).first(request_length), response, ACK_MIN_COUNT, 0,
                &response_length, {.answer_bytes = static_cast<std::uint16_t>(FRAME_OVERHEAD)});
  if (rc != RC_OK) {
    return rc;
  }
  FrameFields fields;
  if (decode_frame(Direction::response, std::span(response).first(response_length), fields) !=
      RC_OK) {
    return RC_OK;
  }
  if (fields.code != 0) {
    return device_status_code(fields.code);
  }
  report_progress(*link);
  return RC_OK;
}

}  // namespace pelmo
