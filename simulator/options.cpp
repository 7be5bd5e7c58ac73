#include "simulator/options.hpp"

#include <algorithm>
#include <cctype>

#include "pelmo/commands/command_code.hpp"
#include "pelmo/commands/records.hpp"
#include "pelmo/formats/number_text.hpp"
#include "pelmo/protocol/frame.hpp"
#include "pelmo/version.hpp"

namespace pelmo::sim {
namespace {

using Apply = void (*)(SimulatorOptions&, std::string_view);

struct OptionSpec {
  std::string_view name;
  std::string_view argument;  // empty: a flag
  std::string_view help;
  Apply apply;
};

std::string quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string_view::npos) {
      return parts;
    }
    start = end + 1;
  }
}

CodeSet parse_code_list(std::string_view text) {
  CodeSet codes;
  for (std::string_view item : split(text, ',')) {
    codes.set(parse_code(item));
  }
  return codes;
}

std::uint32_t parse_u32(std::string_view text, std::string_view what) {
  return static_cast<std::uint32_t>(parse_number(text, 0xFFFFFFFFu, what));
}

std::string parse_text(std::string_view text, std::size_t max, std::string_view what) {
  if (text.size() > max) {
    throw UsageError(std::string(what) + " is longer than " + std::to_string(max) + " characters");
  }
  return std::string(text);
}

UdpAddress parse_udp(std::string_view text) {
  UdpAddress result;
  const std::size_t colon = text.find(':');
  const std::string_view host = text.substr(0, colon);
  if (colon != std::string_view::npos) {
    result.port = static_cast<std::uint16_t>(parse_number(text.substr(colon + 1), 0xFFFF, "port"));
  }
  const auto parts = split(host, '.');
  if (parts.size() != 4) {
    throw UsageError("not an IPv4 address: " + quoted(host));
  }
  for (std::size_t i = 0; i < 4; ++i) {
    if (parts[i].empty() || !std::all_of(parts[i].begin(), parts[i].end(), is_decimal_digit)) {
      throw UsageError("not an IPv4 address: " + quoted(host));
    }
    result.address[i] = static_cast<std::uint8_t>(parse_number(parts[i], 255, "address byte"));
  }
  return result;
}

StatusOverride parse_status_override(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    throw UsageError("--status wants CODE=STATUS[@N], got " + quoted(text));
  }
  StatusOverride entry;
  entry.code = parse_code(text.substr(0, equals));
  std::string_view status = text.substr(equals + 1);
  if (const std::size_t at = status.find('@'); at != std::string_view::npos) {
    entry.nth = static_cast<std::uint32_t>(parse_number(status.substr(at + 1), 0xFFFFFFFFu, "N"));
    if (entry.nth == 0) {
      throw UsageError("--status counts requests from 1");
    }
    status = status.substr(0, at);
  }
  entry.status = static_cast<std::uint8_t>(parse_number(status, 0xFF, "status"));
  return entry;
}

void parse_bl_version(SimulatorOptions& options, std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos) {
    throw UsageError("--bl-version wants MAJOR.MINOR, got " + quoted(text));
  }
  options.device.bl_version_major =
      static_cast<std::uint16_t>(parse_number(text.substr(0, dot), 0xFFFF, "version"));
  options.device.bl_version_minor =
      static_cast<std::uint16_t>(parse_number(text.substr(dot + 1), 0xFFFF, "version"));
}

const std::vector<OptionSpec>& option_table() {
  static const std::vector<OptionSpec> table = {
      // Endpoints.
      {"--udp", "ADDR[:PORT]", "serve UDP on this IPv4 address (port 57998; 0 picks a free one)",
       [](SimulatorOptions& o, std::string_view v) { o.udp.push_back(parse_udp(v)); }},
      {"--pty", "", "serve a pseudo-terminal (serial line); its path is printed",
       [](SimulatorOptions& o, std::string_view) { o.pty = true; }},
      {"--pty-link", "PATH", "also make PATH a symlink to the pty (implies --pty)",
       [](SimulatorOptions& o, std::string_view v) {
         o.pty = true;
         o.pty_link = std::string(v);
       }},
      {"--baud-pace", "", "pace the pty both ways at 11520 bytes/s, like 115200 8N1",
       [](SimulatorOptions& o, std::string_view) { o.baud_pace = true; }},
      // The device.
      {"--fw-address", "N", "firmware area address (0x08000000)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.fw_address = parse_u32(v, "--fw-address");
       }},
      {"--fw-max-size", "N", "firmware area size limit in bytes (524288)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.fw_max_size =
             static_cast<std::uint32_t>(parse_number(v, 256u * 1024u * 1024u, "--fw-max-size"));
       }},
      {"--calib-max-size", "N", "size limit of each calibration table (4096)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.calib_max_size =
             static_cast<std::uint32_t>(parse_number(v, 16u * 1024u * 1024u, "--calib-max-size"));
       }},
      {"--bl-name", "TEXT", "bootloader name (up to 31 characters)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.bl_name = parse_text(v, BL_NAME_MAX, "--bl-name");
       }},
      {"--bl-version", "MAJ.MIN", "bootloader version (1.0)", parse_bl_version},
      {"--bl-date", "TEXT", "bootloader build date (up to 15 characters)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.bl_compile_date = parse_text(v, BL_STAMP_MAX, "--bl-date");
       }},
      {"--bl-time", "TEXT", "bootloader build time (up to 15 characters)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.bl_compile_time = parse_text(v, BL_STAMP_MAX, "--bl-time");
       }},
      {"--control-version", "N", "struct version in the control record (1)",
       [](SimulatorOptions& o, std::string_view v) {
         o.device.control_struct_version =
             static_cast<std::uint16_t>(parse_number(v, 0xFFFF, "--control-version"));
       }},
      {"--state", "DIR", "keep areas and records in files in DIR across runs",
       [](SimulatorOptions& o, std::string_view v) { o.state_dir = std::string(v); }},
      {"--load-firmware", "FILE", "preload the firmware area as stored (header taken as it is)",
       [](SimulatorOptions& o, std::string_view v) { o.load_firmware = std::string(v); }},
      {"--load-factory", "FILE", "preload the factory table (raw bytes)",
       [](SimulatorOptions& o, std::string_view v) { o.load_factory = std::string(v); }},
      {"--load-calib", "FILE", "preload the calibration table (raw bytes)",
       [](SimulatorOptions& o, std::string_view v) { o.load_calib = std::string(v); }},
      {"--load-calib-backup", "FILE", "preload the calibration backup table (raw bytes)",
       [](SimulatorOptions& o, std::string_view v) { o.load_calib_backup = std::string(v); }},
      {"--read-chunk", "N", "answer reads with N bytes (1..2036) whatever is asked",
       [](SimulatorOptions& o, std::string_view v) {
         const auto n = parse_number(v, MAX_FRAME_PAYLOAD, "--read-chunk");
         if (n == 0) {
           throw UsageError("--read-chunk must be at least 1");
         }
         o.device.read_chunk = static_cast<std::uint16_t>(n);
       }},
      {"--erase-ms", "T", "an erase takes T ms before it is answered",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.erase_ms = parse_u32(v, "--erase-ms");
       }},
      // Faults; P is a percentage, CODES a comma list of codes (0x44 or ERASE_FW).
      {"--seed", "N", "seed of the random faults (1)",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.seed = parse_number(v, ~0ull, "--seed");
       }},
      {"--silent-first", "N", "do not answer the first N requests",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.silent_first = parse_number(v, ~0ull, "--silent-first");
       }},
      {"--silent-after", "N", "answer N requests, then none",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.silent_after = parse_number(v, ~0ull, "--silent-after");
       }},
      {"--silent-code", "CODES", "never answer these codes",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.silent_codes |= parse_code_list(v);
       }},
      {"--drop-requests", "P", "lose P% of requests before the device sees them",
       [](SimulatorOptions& o, std::string_view v) { o.faults.drop_requests = parse_chance(v); }},
      {"--drop-responses", "P", "execute, but lose P% of the answers",
       [](SimulatorOptions& o, std::string_view v) { o.faults.drop_responses = parse_chance(v); }},
      {"--corrupt-crc", "P", "break the CRC of P% of the answers",
       [](SimulatorOptions& o, std::string_view v) { o.faults.corrupt_crc = parse_chance(v); }},
      {"--corrupt-crc-code", "CODES", "break the CRC of every answer to these codes",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.corrupt_crc_codes |= parse_code_list(v);
       }},
      {"--status", "CODE=ST[@N]", "answer status ST to CODE (only its Nth request), no execution",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.status_overrides.push_back(parse_status_override(v));
       }},
      {"--wrong-address", "CODES", "echo the request's address plus one",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.wrong_address_codes |= parse_code_list(v);
       }},
      {"--extra-payload", "CODES", "append one byte (0xEE) to the answer's payload",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.extra_payload_codes |= parse_code_list(v);
       }},
      {"--split", "", "send each answer in two datagrams or serial writes",
       [](SimulatorOptions& o, std::string_view) { o.faults.split = true; }},
      {"--split-gap-ms", "N", "pause between the two pieces of a split answer (20)",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.split_gap_ms = parse_u32(v, "--split-gap-ms");
       }},
      {"--stray", "CODES", "UDP: first send a copy of the answer from another port",
       [](SimulatorOptions& o, std::string_view v) { o.faults.stray_codes |= parse_code_list(v); }},
      {"--stray-rate", "P", "UDP: the same for P% of the answers",
       [](SimulatorOptions& o, std::string_view v) { o.faults.stray = parse_chance(v); }},
      {"--duplicate", "P", "send P% of the answers twice",
       [](SimulatorOptions& o, std::string_view v) { o.faults.duplicate = parse_chance(v); }},
      {"--delay-ms", "N", "answer every request N ms late",
       [](SimulatorOptions& o, std::string_view v) {
         o.faults.delay_ms = parse_u32(v, "--delay-ms");
       }},
      // The run.
      {"--log", "FILE", "write the request log to FILE instead of standard output",
       [](SimulatorOptions& o, std::string_view v) { o.log_path = std::string(v); }},
      {"--exit-after", "N", "stop after N requests (and their answers)",
       [](SimulatorOptions& o, std::string_view v) {
         o.exit_after = parse_number(v, ~0ull, "--exit-after");
       }},
      {"--help", "", "show this text",
       [](SimulatorOptions& o, std::string_view) { o.help = true; }},
  };
  return table;
}

}  // namespace

std::uint64_t parse_number(std::string_view text, std::uint64_t max, std::string_view what) {
  unsigned radix = 10;
  std::string_view digits = text;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    radix = 16;
    digits.remove_prefix(2);
  }
  const ParsedNumber number = parse_unsigned(digits, radix, max);
  switch (number.error) {
    case NumberError::none:
      break;
    case NumberError::not_a_number:
      throw UsageError(std::string(what) + ": not a number: " + quoted(text));
    case NumberError::too_large:
      throw UsageError(std::string(what) + ": " + quoted(text) + " is above " +
                       std::to_string(max));
  }
  return number.value;
}

std::uint8_t parse_code(std::string_view text) {
  if (!text.empty() && is_decimal_digit(text[0])) {
    return static_cast<std::uint8_t>(parse_number(text, 0xFF, "command code"));
  }
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  for (unsigned code = 0; code < 256; ++code) {
    if (!upper.empty() && command_name(static_cast<std::uint8_t>(code)) == upper) {
      return static_cast<std::uint8_t>(code);
    }
  }
  throw UsageError("unknown command code " + quoted(text));
}

Chance parse_chance(std::string_view text) {
  std::string_view number = text;
  if (!number.empty() && number.back() == '%') {
    number.remove_suffix(1);
  }
  const std::size_t dot = number.find('.');
  const std::string_view whole = number.substr(0, dot);
  const std::string_view fraction =
      dot == std::string_view::npos ? std::string_view{} : number.substr(dot + 1);
  if (whole.empty() || fraction.size() > 4 || (dot != std::string_view::npos && fraction.empty())) {
    throw UsageError("not a percentage: " + quoted(text));
  }
  std::uint64_t per_million = parse_number(whole, 1000, "percentage") * 10000;
  std::uint64_t scale = 1000;
  for (char c : fraction) {
    if (!is_decimal_digit(c)) {
      throw UsageError("not a percentage: " + quoted(text));
    }
    per_million += static_cast<std::uint64_t>(digit_value(c)) * scale;
    scale /= 10;
  }
  if (per_million > 1000000) {
    throw UsageError("a percentage is at most 100: " + quoted(text));
  }
  return Chance{static_cast<std::uint32_t>(per_million)};
}

SimulatorOptions parse_options(const std::vector<std::string_view>& arguments) {
  SimulatorOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const auto& table = option_table();
    const auto option = std::find_if(table.begin(), table.end(),
                                     [&](const OptionSpec& s) { return s.name == argument; });
    if (option == table.end()) {
      throw UsageError("unknown option " + quoted(argument));
    }
    std::string_view value;
    if (!option->argument.empty()) {
      if (i + 1 >= arguments.size()) {
        throw UsageError(std::string(argument) + " needs " + std::string(option->argument));
      }
      value = arguments[++i];
    }
    option->apply(options, value);
  }
  if (options.help) {
    return options;
  }
  if (options.udp.empty() && !options.pty) {
    throw UsageError("no endpoint: give --udp ADDR or --pty");
  }
  if (options.device.fw_max_size < FIRMWARE_INFO_SIZE) {
    throw UsageError("--fw-max-size must hold the 96-byte firmware header");
  }
  return options;
}

std::string usage_text() {
  std::string text =
      "usage: pelmo-device [--udp ADDR[:PORT]]... [--pty] [--pty-link PATH] [options]\n"
      "A simulated bootloader device for PelmoWin " PELMO_VERSION_TEXT
      ". Log lines: rx/tx/drop, see --log.\n"
      "P is a percentage (0 to 100), CODES a comma list of command codes (0x44 or ERASE_FW).\n"
      "Statuses it answers: 0xFD end of data or past the area's limit, 0xF5 verify found a\n"
      "difference, 0xFA/0xF9 no valid firmware header/CRC, 0xFB firmware block not in 8-byte\n"
      "units, 0xFE unknown command.\n";
  for (const OptionSpec& option : option_table()) {
    std::string left = "  " + std::string(option.name);
    if (!option.argument.empty()) {
      left += " " + std::string(option.argument);
    }
    left.resize(std::max<std::size_t>(left.size() + 1, 30), ' ');
    text += left + std::string(option.help) + "\n";
  }
  return text;
}

}  // namespace pelmo::sim
