#include "cli/json_report.hpp"

#include <nlohmann/json.hpp>

namespace pelmo::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string text_of(std::string_view text) {
  return std::string(text);
}

// Device texts are whatever bytes the device sent; the JSON text must stay valid UTF-8.
std::string dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json firmware_json(const FirmwareInfo& info) {
  const bool debug = is_debug_build(info);
  char version[32];
  std::snprintf(version, sizeof version, "%d.%02d.%03d", info.version_major, info.version_minor,
                info.version_patch);
  Json json{{"name", text_of(field_text(info.name))},
            {"version", version},
            {"version_major", info.version_major},
            {"version_minor", info.version_minor},
            {"version_patch", info.version_patch},
            {"debug", debug},
            {"compile_date", text_of(field_text(info.compile_date))},
            {"compile_time", text_of(field_text(info.compile_time))}};
  // A debug build's header holds markers where a release keeps its size and CRC.
  json["size"] = debug ? Json(nullptr) : Json(info.size);
  json["crc32"] = debug ? Json(nullptr) : Json(info.crc32);
  return json;
}

Json bootloader_json(const BootloaderInfo& info) {
  char version[32];
  std::snprintf(version, sizeof version, "%d.%02d", info.version_major, info.version_minor);
  return {{"name", text_of(field_text(info.name))},
          {"version", version},
          {"version_major", info.version_major},
          {"version_minor", info.version_minor},
          {"compile_date", text_of(field_text(info.compile_date))},
          {"compile_time", text_of(field_text(info.compile_time))},
          {"fw_address", info.fw_address},
          {"fw_max_size", info.fw_max_size}};
}

std::string address_text(const std::uint8_t* bytes, bool six) {
  std::string text;
  for (int i = 0; i < (six ? 6 : 4); ++i) {
    text += (i == 0 ? "" : ".") + std::to_string(bytes[i]);
  }
  return text;
}

Json factory_json(const FactoryTable& table) {
  char mac[32];
  std::snprintf(mac, sizeof mac, "%02X:%02X:%02X:%02X:%02X:%02X", table.mac[0], table.mac[1],
                table.mac[2], table.mac[3], table.mac[4], table.mac[5]);
  const bool six = table.ipv6 != 0;
  return {{"type", text_of(field_text(table.type))},
          {"sn", text_of(field_text(table.sn))},
          {"hw", table.hw},
          {"modif", table.modif},
          {"mac", mac},
          {"dhcp", table.dhcp},
          {"ipv6", six},
          {"ip_addr", address_text(table.ip_addr, six)},
          {"ip_mask", address_text(table.ip_mask, six)},
          {"ip_gtw", address_text(table.ip_gtw, six)}};
}

Json target_json(const TargetReport& report) {
  const Outcome& outcome = report.outcome;
  Json json{{"target", report.target},
            {"ok", report.ok()},
            {"code", report.output_failed && outcome.ok() ? RC_FAILED : outcome.code},
            {"message", outcome.message},
            {"seconds", report.seconds},
            {"bytes", outcome.bytes},
            {"result", report.result()},
            {"skipped", outcome.skipped}};
  if (!report.file.empty()) {
    json["file"] = report.file;
  }
  if (report.bootloader) {
    json["bootloader"] = bootloader_json(*report.bootloader);
  }
  if (report.firmware) {
    json["firmware"] = firmware_json(*report.firmware);
  } else if (report.bootloader) {
    json["firmware"] = nullptr;
    json["firmware_error"] = report.firmware_error;
  }
  if (report.control) {
    json["control"] = {{"struct_version", report.control->struct_version},
                       {"reset_count", report.control->reset_count}};
  }
  if (report.factory) {
    json["factory"] = factory_json(*report.factory);
  }
  return json;
}

}  // namespace

std::string json_report(const RunReport& run) {
  Json targets = Json::array();
  for (const TargetReport& report : run.targets) {
    targets.push_back(target_json(report));
  }
  return dump(Json{{"command", text_of(traits_of(run.command).name)},
                   {"ok", run.ok()},
                   {"targets", std::move(targets)}});
}

std::string json_refusal(std::string_view command, std::string_view error) {
  return dump(Json{{"command", text_of(command)},
                   {"ok", false},
                   {"refused", true},
                   {"error", text_of(error)},
                   {"targets", Json::array()}});
}

std::string json_ports(const std::vector<SerialPortEntry>& ports) {
  Json list = Json::array();
  for (const SerialPortEntry& port : ports) {
    list.push_back({{"path", port.path},
                    {"com", port.com.empty() ? Json(nullptr) : Json(port.com)},
                    {"aliases", port.aliases},
                    {"driver", port.driver}});
  }
  return dump(Json{{"command", "ports"}, {"ok", true}, {"ports", std::move(list)}});
}

}  // namespace pelmo::cli
