#include "pelmo/transport/win32/win32_serial_device.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelmo/transport/serial_settings.hpp"
#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo::port::win32 {

namespace {

// Reads and writes are bounded so their counts always fit the interface's signed results.
constexpr std::size_t MAX_TRANSFER = 0x7FFFFFFF;

DWORD transfer_size(std::size_t size) {
  return static_cast<DWORD>(std::min(size, MAX_TRANSFER));
}

// Interval MAXDWORD with both read totals 0: a read hands over what has already arrived, possibly
// nothing, without waiting. Write totals 0: a write returns once all is handed over.
constexpr COMMTIMEOUTS POLLING_TIMEOUTS = {MAXDWORD, 0, 0, 0, 0};

class Win32SerialDevice final : public SerialDevice {
 public:
  explicit Win32SerialDevice(HANDLE handle) : handle_(handle) {
    original_.DCBlength = sizeof(original_);
    has_original_ = GetCommState(handle_, &original_) != 0;
  }
  ~Win32SerialDevice() override {
    // The next user of the port gets it back as it was.
    if (has_original_) {
      SetCommState(handle_, &original_);
    }
    CloseHandle(handle_);
  }
  Win32SerialDevice(const Win32SerialDevice&) = delete;
  Win32SerialDevice& operator=(const Win32SerialDevice&) = delete;

  std::int32_t read(std::span<std::uint8_t> buffer) override {
    std::int32_t delivered = 0;
    if (pending_ && !buffer.empty()) {
      buffer[0] = *pending_;
      pending_.reset();
      buffer = buffer.subspan(1);
      delivered = 1;
    }
    DWORD count = 0;
    if (!ReadFile(handle_, buffer.data(), transfer_size(buffer.size()), &count, nullptr)) {
      return delivered > 0 ? delivered : -1;
    }
    return delivered + static_cast<std::int32_t>(count);
  }

  // A handle opened without overlapped I/O cannot be waited on, so the wait is a read of one byte
  // under time-outs that make it wait for the first byte; the byte is kept for the next read.
  bool wait_readable(std::uint32_t timeout_ms) override {
    if (pending_) {
      return true;
    }
    COMMTIMEOUTS waiting = {MAXDWORD, MAXDWORD, std::clamp<DWORD>(timeout_ms, 1, MAXDWORD - 1), 0,
                            0};
    COMMTIMEOUTS polling = POLLING_TIMEOUTS;
    std::uint8_t byte = 0;
    DWORD count = 0;
    const bool read = SetCommTimeouts(handle_, &waiting) &&
                      ReadFile(handle_, &byte, 1, &count, nullptr) && count == 1;
    SetCommTimeouts(handle_, &polling);
    if (read) {
      pending_ = byte;
    }
    return read;
  }

  std::int32_t write(std::span<const std::uint8_t> bytes) override {
    DWORD count = 0;
    if (!WriteFile(handle_, bytes.data(), transfer_size(bytes.size()), &count, nullptr)) {
      return -1;
    }
    return static_cast<std::int32_t>(count);
  }

 private:
  HANDLE handle_;
  std::optional<std::uint8_t> pending_;  // a byte wait_readable took from the port
  DCB original_{};  // the settings the port had before this program changed them
  bool has_original_ = false;
};

SerialOpenResult failure(SerialOpenStatus status, DWORD error) {
  SerialOpenResult result;
  result.status = status;
  result.os_error = static_cast<int>(error);
  return result;
}

}  // namespace

SerialOpenResult open_serial_device(const std::string& device_path, const LineSettings& line) {
  // Share mode 0: the port belongs to this program until it is closed. Not overlapped: the
  // time-outs below make every read return at once, and the transport polls.
  HANDLE handle = CreateFileA(device_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return failure(SerialOpenStatus::open_failed, GetLastError());
  }
  // From here on the device owns the handle and closes it on every failure below.
  auto device = std::make_unique<Win32SerialDevice>(handle);

  // Whatever the settings text leaves out stays zero, so no flow control or character
  // translation sneaks in from the port's previous configuration. DTR and RTS are raised by the
  // text itself ("dtr=on rts=on").
  DCB control{};
  control.DCBlength = sizeof(control);
  const std::string settings_text = format_line_settings(line);
  if (!BuildCommDCBA(settings_text.c_str(), &control)) {
    return failure(SerialOpenStatus::settings_failed, GetLastError());
  }
  if (!SetCommState(handle, &control)) {
    return failure(SerialOpenStatus::config_failed, GetLastError());
  }
  COMMTIMEOUTS timeouts = POLLING_TIMEOUTS;
  if (!SetCommTimeouts(handle, &timeouts)) {
    return failure(SerialOpenStatus::timeouts_failed, GetLastError());
  }
  // A freshly opened port starts empty on most drivers; make sure of it, so that a late answer to
  // an earlier, interrupted run is not taken for the answer to this run's first request.
  PurgeComm(handle, PURGE_RXCLEAR | PURGE_RXABORT);

  SerialOpenResult result;
  result.status = SerialOpenStatus::ok;
  result.device = std::move(device);
  return result;
}

}  // namespace pelmo::port::win32
