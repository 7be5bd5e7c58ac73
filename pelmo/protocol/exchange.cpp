#include "pelmo/protocol/exchange.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include "pelmo/protocol/frame.hpp"
#include "pelmo/protocol/round_trip_estimator.hpp"

namespace pelmo {
namespace {

constexpr std::uint32_t FLUSH_TIMEOUT_MS = 2;

std::uint16_t low16(std::int64_t value) {
  return static_cast<std::uint16_t>(value & 0xFFFF);
}

std::span<std::uint8_t> capped(std::span<std::uint8_t> buffer) {
  return buffer.first(std::min<std::size_t>(buffer.size(), 0xFFFF));
}

std::uint32_t sum_capped(std::uint64_t a, std::uint64_t b) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(a + b, UINT32_MAX));
}

// How the attempts of one exchange are paced and judged. The classic way: a fixed wait, a fixed
// number of attempts, every answer taken. The adaptive way: the link's estimate, a deadline, and
// answers matched against the request.
class Pacing {
 public:
  Pacing(const LinkDriver& driver, std::size_t request_bytes, std::uint16_t min_count,
         std::uint32_t timeout_ms, const AnswerExpectation& expect)
      : driver_(driver),
        estimator_(driver.clock_ms ? driver.estimator : nullptr),
        expect_(expect),
        classic_wait_(timeout_ms + driver.extra_timeout_ms) {
    if (estimator_ == nullptr) {
      return;
    }
    const std::uint16_t answer_bytes = expect.answer_bytes != 0
                                           ? expect.answer_bytes
                                           : std::max<std::uint16_t>(min_count, FRAME_OVERHEAD);
    frame_bytes_ = request_bytes + answer_bytes;
    erase_wait_ = sum_capped(driver.erase_timeout_ms, driver.extra_timeout_ms);
    // An erase whose answer is lost is sent again and waits its whole allowance anew, so its
    // deadline admits three allowances: two losses in a row still end in an answer.
    const std::uint32_t device_work =
        expect.wait == AnswerWait::erase
            ? sum_capped(erase_wait_, sum_capped(erase_wait_, erase_wait_))
            : sum_capped(timeout_ms, driver.extra_timeout_ms);
    budget_ = sum_capped(estimator_->settings().deadline_ms, device_work);
    start_ = now();
  }

  bool adaptive() const { return estimator_ != nullptr; }
  std::uint32_t elapsed() const { return now() - start_; }
  std::uint32_t now() const { return adaptive() ? driver_.clock_ms() : 0; }
  bool cancelled() const { return driver_.cancelled && driver_.cancelled(); }

  bool may_send(unsigned attempt) const {
    if (!adaptive()) {
      return attempt < driver_.max_attempts;
    }
    return (driver_.max_attempts == 0 || attempt < driver_.max_attempts) && until_deadline() > 0;
  }

  // The receive wait of an attempt about to start; the classic 0 selects the transport's
  // default, the adaptive wait is never 0.
  std::uint32_t attempt_wait() {
    if (!adaptive()) {
      return classic_wait_;
    }
    const std::uint32_t wait =
        expect_.wait == AnswerWait::erase ? erase_wait_ : estimator_->next_wait_ms(frame_bytes_);
    return std::clamp(wait, std::uint32_t{1}, until_deadline());
  }

  // What is left of an attempt's `wait` begun at `since`; 0 once it is over (always, classic).
  std::uint32_t left_of(std::uint32_t wait, std::uint32_t since) const {
    if (!adaptive()) {
      return 0;
    }
    const std::uint32_t elapsed = now() - since;
    return std::min(elapsed < wait ? wait - elapsed : 0, until_deadline());
  }

  // Whether `answer` answers this request. Anything that does not decode is the caller's to
  // report; a non-zero status is taken whatever address it carries, as the device need not echo
  // on failure.
  bool belongs(std::span<const std::uint8_t> answer) const {
    if (!adaptive() || !expect_.echo) {
      return true;
    }
    FrameFields fields;
    if (decode_frame(Direction::response, answer, fields) != RC_OK || fields.code != 0) {
      return true;
    }
    return fields.address == *expect_.echo;
  }

  void answered(unsigned attempt, bool sent, std::uint32_t sent_at) {
    // Karn: after a resend nobody knows which send the answer belongs to.
    if (adaptive() && expect_.wait == AnswerWait::round_trip && attempt == 0 && sent) {
      estimator_->sample(now() - sent_at);
    }
  }

  void silent() {
    if (adaptive() && expect_.wait == AnswerWait::round_trip) {
      estimator_->silent_attempt();
    }
  }

 private:
  std::uint32_t until_deadline() const {
    const std::uint32_t elapsed = now() - start_;
    return elapsed < budget_ ? budget_ - elapsed : 0;
  }

  const LinkDriver& driver_;
  RoundTripEstimator* estimator_;
  const AnswerExpectation& expect_;
  std::uint32_t classic_wait_;
  std::size_t frame_bytes_ = 0;
  std::uint32_t erase_wait_ = 0;
  std::uint32_t budget_ = 0;
  std::uint32_t start_ = 0;
};

}  // namespace

ResultCode exchange(const LinkDriver* driver, std::span<const std::uint8_t> request,
                    std::span<std::uint8_t> response, std::uint16_t min_count,
                    std::uint32_t timeout_ms, std::uint16_t* response_length,
                    const AnswerExpectation& expect) {
  if (!link_usable(driver)) {
    return RC_NO_DRIVER;
  }
  const auto buffer = capped(response);
  if (driver->flush_before_exchange != 0) {
    // Discard whatever the device sent unasked. A receive that keeps returning data would hold
    // us here forever, so the drain is bounded by what a sane link can deliver.
    for (int round = 0; round < 1024; ++round) {
      if (low16(driver->receive(buffer, min_count, FLUSH_TIMEOUT_MS)) == 0) {
        break;
      }
    }
  }
  Pacing pacing(*driver, request.size(), min_count, timeout_ms, expect);
  const auto request_length = low16(static_cast<std::int64_t>(request.size()));
  unsigned sends = 0;
  for (unsigned attempt = 0; pacing.may_send(attempt); ++attempt, ++sends) {
    if (pacing.cancelled()) {
      return RC_CANCELLED;
    }
    const std::uint32_t sent_at = pacing.now();
    const bool sent = low16(driver->send(request)) == request_length;
    if (!sent && !pacing.adaptive()) {
      continue;
    }
    // (The adaptive way waits out a failed send too, so that a link that refuses to send is not
    // hammered until the deadline, and an answer to an earlier send may still come.)
    if (sent && driver->settle_delay_ms != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(driver->settle_delay_ms));
    }
    const std::uint32_t wait = pacing.attempt_wait();
    const std::uint32_t wait_start = pacing.now();
    // Answers to earlier requests are dropped; the rest of the same wait goes on.
    for (std::uint32_t left = wait;;) {
      const std::uint16_t received = low16(driver->receive(buffer, min_count, left));
      if (received == 0) {
        break;
      }
      if (pacing.belongs(buffer.first(received))) {
        pacing.answered(attempt, sent, sent_at);
        if (response_length != nullptr) {
          *response_length = received;
        }
        return RC_OK;
      }
      if (pacing.cancelled()) {
        return RC_CANCELLED;
      }
      left = pacing.left_of(wait, wait_start);
      if (left == 0) {
        break;
      }
    }
    pacing.silent();
  }
  if (driver->tally != nullptr) {
    *driver->tally = {.attempts = sends, .waited_ms = pacing.elapsed()};
  }
  return RC_TIMEOUT;
}

}  // namespace pelmo
