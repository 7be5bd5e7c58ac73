#include "pelmo/session/device_session.hpp"

#include <algorithm>
#include <cstdio>

#include "pelmo/commands/commands.hpp"

namespace pelmo {
namespace {

// What a verify or a write moves in 8-byte units; the device seals the length it wrote.
constexpr std::uint64_t WRITE_UNIT = 8;

// The erase allowance of a table, whose size the bootloader does not report: the most it can be.
constexpr std::uint64_t TABLE_ERASE_AREA = 64u * 1024u;

FailureKind kind_of(ResultCode code, FailureKind mismatch_kind) {
  if (code == RC_MISMATCH) {
    return mismatch_kind;
  }
  switch (code) {
    case RC_OK:
      return FailureKind::none;
    case RC_TIMEOUT:
      return FailureKind::timeout;
    case RC_CANCELLED:
      return FailureKind::cancelled;
    case RC_NO_DRIVER:
    case RC_FAILED:
      return FailureKind::link;
    default:
      break;
  }
  // A firmware status of bad header or bad CRC shares its number with the local failure, but the
  // fast engine drops corrupt frames before they are decoded, so the device said it.
  switch (result_kind(code)) {
    case ResultKind::device_status:
    case ResultKind::local_or_device:
      return FailureKind::device_status;
    default:
      return FailureKind::protocol;
  }
}

std::string format(const char* pattern, auto... values) {
  char line[256];
  std::snprintf(line, sizeof line, pattern, values...);
  return line;
}

Outcome success(std::string message, std::uint64_t bytes = 0) {
  return Outcome{.message = std::move(message), .bytes = bytes};
}

Outcome failure(ResultCode code, FailureKind kind, std::string message) {
  return Outcome{.code = code, .kind = kind, .message = std::move(message)};
}

}  // namespace

std::string_view step_name(Step step) {
  switch (step) {
    case Step::query:
      return "query";
    case Step::erase:
      return "erase";
    case Step::write:
      return "write";
    case Step::verify:
      return "verify";
    case Step::read:
      return "read";
    case Step::compare:
      return "compare";
  }
  return "step";
}

DeviceSession::DeviceSession(port::PortLayer& ports) : link_(ports) {
  link_.set_transfer_observer([this](const TransferProgress& progress) {
    if (observer_) {
      // A read's buffer is the whole area; the step's own total is what the device is known to
      // hold, never less than what has come.
      const std::uint64_t total =
          step_total_ != 0 ? std::max<std::uint64_t>(step_total_, progress.done) : progress.total;
      observer_(StepProgress{progress.device, step_, progress.done, total});
    }
  });
}

Outcome DeviceSession::open(const DeviceAddress& device, const SessionOptions& options,
                            UdpHub* hub) {
  area_.reset();
  const bool udp = std::holds_alternative<UdpDevice>(device);
  LinkProfile profile = udp ? FAST_UDP_PROFILE : FAST_SERIAL_PROFILE;
  profile.max_attempts = options.attempts;
  profile.retransmission.fixed_wait_ms = options.fixed_wait_ms;
  const OpenResult opened = udp && hub != nullptr
                                ? link_.open(*hub, std::get<UdpDevice>(device), profile)
                                : link_.open(device, profile);
  if (!opened.ok) {
    return failure(RC_FAILED, FailureKind::link, opened.message);
  }
  return success("open");
}

void DeviceSession::close() {
  link_.close();
  area_.reset();
}

Outcome DeviceSession::run_step(Step step, std::uint64_t total,
                                const std::function<ResultCode()>& command,
                                FailureKind mismatch_kind) {
  step_ = step;
  step_total_ = total;
  if (observer_) {
    observer_(StepProgress{link_.name(), step, 0, total});
  }
  const ResultCode code = link_.driver() == nullptr ? RC_NO_DRIVER : command();
  if (code == RC_OK) {
    return {};
  }
  const FailureKind kind = kind_of(code, mismatch_kind);
  const std::string_view name = step_name(step);
  switch (kind) {
    case FailureKind::timeout: {
      const ExchangeTally& tally = link_.last_timeout();
      return failure(code, kind,
                     format("%.*s: no answer from the device after %u attempt%s in %.2f s",
                            static_cast<int>(name.size()), name.data(), tally.attempts,
                            tally.attempts == 1 ? "" : "s", tally.waited_ms / 1000.0));
    }
    case FailureKind::device_status:
      return failure(
          code, kind,
          format("%.*s: the device answered status 0x%02X (%.*s)", static_cast<int>(name.size()),
                 name.data(), static_cast<unsigned>(device_status_of(code).value_or(0)),
                 static_cast<int>(result_text(code).size()), result_text(code).data()));
    case FailureKind::link:
      if (link_.driver() == nullptr) {
        return failure(code, kind, "the link is not open");
      }
      break;
    case FailureKind::cancelled:
      return failure(code, kind,
                     format("%.*s: cancelled", static_cast<int>(name.size()), name.data()));
    default:
      break;
  }
  return failure(code, kind,
                 format("%.*s: %.*s (%d)", static_cast<int>(name.size()), name.data(),
                        static_cast<int>(result_text(code).size()), result_text(code).data(),
                        static_cast<int>(code)));
}

Outcome DeviceSession::firmware_info(FirmwareInfo& info) {
  Outcome outcome =
      run_step(Step::query, 0, [&] { return read_firmware_info(link_.driver(), info); });
  if (outcome.ok()) {
    outcome.message = "firmware information read";
  }
  return outcome;
}

Outcome DeviceSession::bootloader_info(BootloaderInfo& info) {
  Outcome outcome =
      run_step(Step::query, 0, [&] { return read_bootloader_info(link_.driver(), info); });
  if (outcome.ok()) {
    area_ = FirmwareArea{info.fw_address, info.fw_max_size};
    outcome.message = "bootloader information read";
  }
  return outcome;
}

Outcome DeviceSession::firmware_area(FirmwareArea& area) {
  if (!area_) {
    BootloaderInfo info{};
    if (Outcome outcome = bootloader_info(info); !outcome.ok()) {
      return outcome;
    }
  }
  area = *area_;
  return success("firmware area known");
}

Outcome DeviceSession::place(const FirmwareFile& file, std::vector<std::uint8_t>& image) {
  FirmwareArea area{};
  if (Outcome outcome = firmware_area(area); !outcome.ok()) {
    return outcome;
  }
  PlacedFirmware placed = place_firmware(file, area);
  if (!placed.error.empty()) {
    return failure(RC_OUT_OF_RANGE, FailureKind::input, placed.error);
  }
  image = std::move(placed.image);
  return {};
}

Outcome DeviceSession::holds_image(std::span<const std::uint8_t> image, bool& identical) {
  identical = false;
  FirmwareInfo info{};
  const Outcome asked = firmware_info(info);
  if (asked.kind == FailureKind::device_status) {
    return {};  // no valid firmware: certainly not this image
  }
  if (!asked.ok()) {
    return asked;
  }
  // The device seals the length it wrote, the image's rounded up to whole write units: a longer
  // firmware that merely begins with the image differs here.
  const std::uint64_t written = (image.size() + WRITE_UNIT - 1) / WRITE_UNIT * WRITE_UNIT;
  if (info.size != written) {
    return {};
  }
  // The device compares every byte after its seal (the seal is its own, not the image's).
  const Outcome compared = run_step(
      Step::compare, image.size(), [&] { return verify_firmware(link_.driver(), image); },
      FailureKind::mismatch);
  if (compared.kind == FailureKind::mismatch) {
    return {};
  }
  identical = compared.ok();
  return compared;
}

Outcome DeviceSession::write_step(std::span<const std::uint8_t> image) {
  const auto length = static_cast<std::uint32_t>(image.size());
  Outcome written =
      run_step(Step::write, length, [&] { return write_firmware(link_.driver(), image, length); });
  if (!written.ok()) {
    written.message += "; the device's firmware is incomplete: flash it again";
  }
  return written;
}

Outcome DeviceSession::flash(const FirmwareFile& file, const FlashOptions& options) {
  std::vector<std::uint8_t> image;
  if (Outcome outcome = place(file, image); !outcome.ok()) {
    return outcome;
  }
  if ((options.verify || options.skip_identical) && image.size() < MIN_VERIFY_LENGTH) {
    return failure(RC_BAD_LENGTH, FailureKind::input,
                   format("the image is %zu bytes; a verified flash needs at least %u (the "
                          "firmware header)",
                          image.size(), static_cast<unsigned>(MIN_VERIFY_LENGTH)));
  }
  if (options.skip_identical) {
    bool identical = false;
    if (Outcome outcome = holds_image(image, identical); !outcome.ok()) {
      return outcome;
    }
    if (identical) {
      Outcome skipped = success(
          format("the device already holds these %zu bytes: nothing written", image.size()));
      skipped.skipped = true;
      return skipped;
    }
  }
  link_.set_erase_area(area_->max_size);
  if (Outcome outcome = run_step(Step::erase, 0, [&] { return erase_firmware(link_.driver()); });
      !outcome.ok()) {
    return outcome;
  }
  if (Outcome written = write_step(image); !written.ok()) {
    return written;
  }
  if (options.verify) {
    if (Outcome verified = compare_step(
            image.size(), [&] { return verify_firmware(link_.driver(), image); }, "firmware");
        !verified.ok()) {
      return verified;
    }
  }
  return success(
      format(options.verify ? "erased, wrote and verified %zu bytes" : "erased and wrote %zu bytes",
             image.size()),
      image.size());
}

Outcome DeviceSession::write(const FirmwareFile& file) {
  std::vector<std::uint8_t> image;
  if (Outcome outcome = place(file, image); !outcome.ok()) {
    return outcome;
  }
  if (Outcome written = write_step(image); !written.ok()) {
    return written;
  }
  return success(format("wrote %zu bytes", image.size()), image.size());
}

Outcome DeviceSession::verify(const FirmwareFile& file) {
  std::vector<std::uint8_t> image;
  if (Outcome outcome = place(file, image); !outcome.ok()) {
    return outcome;
  }
  if (image.size() < MIN_VERIFY_LENGTH) {
    return failure(RC_BAD_LENGTH, FailureKind::input,
                   format("the image is %zu bytes; a verify needs at least %u (the firmware "
                          "header)",
                          image.size(), static_cast<unsigned>(MIN_VERIFY_LENGTH)));
  }
  if (Outcome verified = compare_step(
          image.size(), [&] { return verify_firmware(link_.driver(), image); }, "firmware");
      !verified.ok()) {
    return verified;
  }
  return success(format("verified %zu bytes", image.size()), image.size());
}

Outcome DeviceSession::erase() {
  FirmwareArea area{};
  if (Outcome outcome = firmware_area(area); !outcome.ok()) {
    return outcome;
  }
  link_.set_erase_area(area.max_size);
  if (Outcome outcome = run_step(Step::erase, 0, [&] { return erase_firmware(link_.driver()); });
      !outcome.ok()) {
    return outcome;
  }
  return success("firmware erased");
}

Outcome DeviceSession::read(std::vector<std::uint8_t>& firmware) {
  FirmwareArea area{};
  if (Outcome outcome = firmware_area(area); !outcome.ok()) {
    return outcome;
  }
  // The firmware's sealed size, when it has a valid header, is what the read will bring.
  FirmwareInfo info{};
  const bool sized = firmware_info(info).ok() && info.size != 0 && info.size <= area.max_size;
  firmware.assign(area.max_size, 0xFF);
  std::uint32_t length = 0;
  Outcome outcome = run_step(Step::read, sized ? info.size : area.max_size,
                             [&] { return read_firmware(link_.driver(), firmware, &length); });
  if (!outcome.ok()) {
    firmware.clear();
    return outcome;
  }
  firmware.resize(length);
  return success(format("read %u bytes", static_cast<unsigned>(length)), length);
}

Outcome DeviceSession::compare_step(std::uint64_t size, const std::function<ResultCode()>& command,
                                    std::string_view what) {
  Outcome verified = run_step(Step::verify, size, command, FailureKind::mismatch);
  if (verified.kind == FailureKind::mismatch) {
    verified.message = "verify: the device's " + std::string(what) + " differs";
  }
  return verified;
}

Outcome DeviceSession::rewrite_table(const TableCommands& table, std::uint64_t size) {
  link_.set_erase_area(TABLE_ERASE_AREA);
  if (Outcome outcome = run_step(Step::erase, 0, table.erase); !outcome.ok()) {
    return outcome;
  }
  if (Outcome outcome = run_step(Step::write, size, table.write); !outcome.ok()) {
    outcome.message += "; the " + std::string(table.title) + " is incomplete: write it again";
    return outcome;
  }
  if (Outcome outcome = compare_step(size, table.verify, table.title); !outcome.ok()) {
    return outcome;
  }
  return success(std::string(table.title) + format(" erased, written and verified: %llu bytes",
                                                   static_cast<unsigned long long>(size)),
                 size);
}

Outcome DeviceSession::read_factory(FactoryTable& table) {
  FactoryTable read{};
  Outcome outcome = run_step(Step::read, FACTORY_TABLE_SIZE,
                             [&] { return read_factory_table(link_.driver(), &read); });
  if (!outcome.ok()) {
    return outcome;
  }
  table = read;
  return success("factory table read", FACTORY_TABLE_SIZE);
}

Outcome DeviceSession::write_factory(const FactoryTable& table) {
  const LinkDriver* link = link_.driver();
  return rewrite_table({.title = "factory table",
                        .erase = [&] { return erase_factory_table(link); },
                        .write = [&] { return write_factory_table(link, &table); },
                        .verify = [&] { return verify_factory_table(link, &table); }},
                       FACTORY_TABLE_SIZE);
}

Outcome DeviceSession::verify_factory(const FactoryTable& table) {
  Outcome verified = compare_step(
      FACTORY_TABLE_SIZE, [&] { return verify_factory_table(link_.driver(), &table); },
      "factory table");
  return verified.ok() ? success("factory table verified", FACTORY_TABLE_SIZE) : verified;
}

Outcome DeviceSession::erase_factory() {
  link_.set_erase_area(TABLE_ERASE_AREA);
  Outcome erased = run_step(Step::erase, 0, [&] { return erase_factory_table(link_.driver()); });
  return erased.ok() ? success("factory table erased") : erased;
}

namespace {

bool is_backup(CalibrationTableKind table) {
  return table == CalibrationTableKind::backup;
}

std::string_view table_title(CalibrationTableKind table) {
  return is_backup(table) ? "calibration backup table" : "calibration table";
}

Outcome too_large_table(std::size_t size) {
  return failure(RC_BAD_LENGTH, FailureKind::input,
                 format("the calibration data is %zu bytes; a table holds at most %u", size,
                        static_cast<unsigned>(CALIBRATION_MAX_BYTES)));
}

}  // namespace

Outcome DeviceSession::read_calibration(CalibrationTableKind table,
                                        std::vector<std::uint8_t>& data) {
  data.assign(CALIBRATION_MAX_BYTES, 0);
  std::uint32_t length = 0;
  Outcome outcome = run_step(Step::read, CALIBRATION_MAX_BYTES, [&] {
    return read_calibration_table(link_.driver(), is_backup(table), data, &length);
  });
  if (!outcome.ok()) {
    data.clear();
    return outcome;
  }
  data.resize(length);
  return success(
      std::string(table_title(table)) + format(" read: %u bytes", static_cast<unsigned>(length)),
      length);
}

Outcome DeviceSession::write_calibration(CalibrationTableKind table,
                                         std::span<const std::uint8_t> data) {
  if (data.size() > CALIBRATION_MAX_BYTES) {
    return too_large_table(data.size());
  }
  const LinkDriver* link = link_.driver();
  const bool backup = is_backup(table);
  return rewrite_table({.title = table_title(table),
                        .erase = [&] { return erase_calibration_table(link, backup); },
                        .write = [&] { return write_calibration_table(link, backup, data); },
                        .verify = [&] { return verify_calibration_table(link, backup, data); }},
                       data.size());
}

Outcome DeviceSession::verify_calibration(CalibrationTableKind table,
                                          std::span<const std::uint8_t> data) {
  if (data.size() > CALIBRATION_MAX_BYTES) {
    return too_large_table(data.size());
  }
  Outcome verified = compare_step(
      data.size(), [&] { return verify_calibration_table(link_.driver(), is_backup(table), data); },
      table_title(table));
  return verified.ok() ? success(std::string(table_title(table)) +
                                     format(" verified: %zu bytes", data.size()),
                                 data.size())
                       : verified;
}

Outcome DeviceSession::erase_calibration(CalibrationTableKind table) {
  link_.set_erase_area(TABLE_ERASE_AREA);
  Outcome erased = run_step(
      Step::erase, 0, [&] { return erase_calibration_table(link_.driver(), is_backup(table)); });
  return erased.ok() ? success(std::string(table_title(table)) + " erased") : erased;
}

Outcome DeviceSession::read_control(ControlRecord& record) {
  ControlRecord read{};
  if (Outcome outcome =
          run_step(Step::query, 0, [&] { return pelmo::read_control(link_.driver(), read); });
      !outcome.ok()) {
    return outcome;
  }
  record = read;
  return success("control record read");
}

Outcome DeviceSession::clear_control() {
  if (Outcome outcome =
          run_step(Step::query, 0, [&] { return pelmo::clear_control(link_.driver()); });
      !outcome.ok()) {
    return outcome;
  }
  return success("control record cleared");
}

Outcome DeviceSession::restart() {
  if (Outcome outcome = run_step(Step::query, 0, [&] { return restart_device(link_.driver()); });
      !outcome.ok()) {
    return outcome;
  }
  close();
  return success("device restarted");
}

}  // namespace pelmo
