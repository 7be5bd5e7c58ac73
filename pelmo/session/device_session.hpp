#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pelmo/commands/records.hpp"
#include "pelmo/formats/firmware_file.hpp"
#include "pelmo/session/outcome.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo {

// How a session drives its link; the fast profiles with these overrides.
struct SessionOptions {
  std::uint16_t attempts = 0;       // sends per request, the first included; 0: the deadline alone
  std::uint32_t fixed_wait_ms = 0;  // a fixed wait per attempt instead of the adaptive one
};

// The step an operation is in, for progress displays.
enum class Step : std::uint8_t { query, erase, write, verify, read, compare };

// "query", "erase", ...
std::string_view step_name(Step step);

// Where one device's work is: at the start of each step (done 0) and after each chunk of a
// transfer. `total` is 0 for steps whose size is not known (erase, query).
struct StepProgress {
  std::string_view device;
  Step step = Step::query;
  std::uint64_t done = 0;
  std::uint64_t total = 0;
};
using StepObserver = std::function<void(const StepProgress&)>;

struct FlashOptions {
  bool verify = true;
  // Write nothing when the device already holds exactly this image.
  bool skip_identical = false;
};

enum class CalibrationTableKind : std::uint8_t { main, backup };

// The largest calibration table a session reads or writes.
inline constexpr std::uint32_t CALIBRATION_MAX_BYTES = 1024u * 1024u;

// One device's work for the modern front ends: opens the link with the fast engine and runs whole
// operations, checking every input against the device before anything is erased. One object per
// device; sessions on different devices run on different threads at once (UDP devices through one
// shared UdpHub). Prints nothing; every result is an Outcome whose message names the cause.
class DeviceSession {
 public:
  explicit DeviceSession(port::PortLayer& ports);
  DeviceSession(const DeviceSession&) = delete;
  DeviceSession& operator=(const DeviceSession&) = delete;

  // Opens the device's link with the fast profile. UDP devices go through `hub` when given (it
  // must outlive the session), else through a socket of their own.
  Outcome open(const DeviceAddress& device, const SessionOptions& options, UdpHub* hub = nullptr);
  void close();
  bool is_open() const { return link_.is_open(); }
  // "udp:192.168.1.15", "serial:/dev/ttyUSB0".
  const std::string& name() const { return link_.name(); }

  void set_observer(StepObserver observer) { observer_ = std::move(observer); }
  // Asked between exchanges: true ends the operation with RC_CANCELLED.
  void set_cancel(std::function<bool()> cancelled) { link_.set_cancel(std::move(cancelled)); }

  Outcome firmware_info(FirmwareInfo& info);
  Outcome bootloader_info(BootloaderInfo& info);
  // The firmware area from the bootloader information, asked once per open.
  Outcome firmware_area(FirmwareArea& area);

  // Places `file` in the device's area (refused with kind input when it does not fit, before
  // anything is erased), then erases, writes and, unless told otherwise, verifies.
  Outcome flash(const FirmwareFile& file, const FlashOptions& options = {});
  Outcome write(const FirmwareFile& file);   // no erase first
  Outcome verify(const FirmwareFile& file);  // kind mismatch when the device holds other bytes
  Outcome erase();
  Outcome read(std::vector<std::uint8_t>& firmware);

  Outcome read_factory(FactoryTable& table);
  Outcome write_factory(const FactoryTable& table);  // erase, write, verify
  Outcome verify_factory(const FactoryTable& table);
  Outcome erase_factory();

  Outcome read_calibration(CalibrationTableKind table, std::vector<std::uint8_t>& data);
  Outcome write_calibration(CalibrationTableKind table,
                            std::span<const std::uint8_t> data);  // erase, write, verify
  Outcome verify_calibration(CalibrationTableKind table, std::span<const std::uint8_t> data);
  Outcome erase_calibration(CalibrationTableKind table);

  Outcome read_control(ControlRecord& record);
  Outcome clear_control();
  // The device leaves its bootloader; the session closes its link.
  Outcome restart();

 private:
  // Runs one command as `step`: tells the observer, then turns the command's code into an
  // outcome whose message names the step.
  Outcome run_step(Step step, std::uint64_t total, const std::function<ResultCode()>& command,
                   FailureKind mismatch_kind = FailureKind::protocol);
  // Writes the placed image; a failure says the firmware is left incomplete.
  Outcome write_step(std::span<const std::uint8_t> image);
  // A verify whose mismatch says that the device's `what` differs.
  Outcome compare_step(std::uint64_t size, const std::function<ResultCode()>& command,
                       std::string_view what);
  // A table is always rewritten whole: erase, write, verify.
  struct TableCommands {
    std::string_view title;  // "factory table"
    std::function<ResultCode()> erase, write, verify;
  };
  Outcome rewrite_table(const TableCommands& table, std::uint64_t size);
  // The file placed into the device's area, or the outcome that says why it cannot be.
  Outcome place(const FirmwareFile& file, std::vector<std::uint8_t>& image);
  // True when the device holds exactly `image` (its sealed length and, by the device's own
  // compare, its bytes); an outcome when asking failed.
  Outcome holds_image(std::span<const std::uint8_t> image, bool& identical);

  DeviceLink link_;
  StepObserver observer_;
  Step step_ = Step::query;
  std::uint64_t step_total_ = 0;
  std::optional<FirmwareArea> area_;
};

}  // namespace pelmo
