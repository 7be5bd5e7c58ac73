#include "app/factory_operations.hpp"

#include <cstdio>
#include <optional>
#include <string>

#include "app/data_files.hpp"
#include "app/operation_step.hpp"
#include "pelmo/commands/table_commands.hpp"
#include "pelmo/formats/factory_table_text.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

constexpr std::string_view WRITING = "Writing factory table ";
constexpr std::string_view VERIFYING = "Verificating factory table ";
constexpr std::string_view ERASING = "Erasing factory table ";
constexpr std::string_view TABLE_DIFFERS = "Factory table is different";
constexpr std::string_view VERIFY_FAILED = "Error while verificating factory table";

// Fills the run's table from the text file and lists it. On a parse failure the table is
// listed as far as it got and nothing may reach the device: the parser's result is returned.
ResultCode load_factory_file(RunContext& run) {
  const std::string& name = run.command_line.file_name;
  std::FILE* file = std::fopen(name.c_str(), "r");
  if (file == nullptr) {
    run.console.print("Error while opening file %s\n", name.c_str());
    return RC_FAILED;
  }
  const std::optional<std::string> text = read_stream_text(file, FACTORY_TEXT_MAX_BYTES);
  std::fclose(file);
  if (!text) {
    run.console.print("File %s is larger than %u bytes\n", name.c_str(),
                      static_cast<unsigned>(FACTORY_TEXT_MAX_BYTES));
    return RC_FAILED;
  }
  FactoryTable& table = run.records.factory_table;
  table = FactoryTable{};
  const ResultCode result = parse_factory_table(std::string_view{*text}, table);
  if (result < RC_OK) {
    run.console.write_line("Parsing factory table file error");
  }
  print_factory_table(table, run.console.stream(), nullptr);
  run.console.flush();
  return result < RC_OK ? result : RC_OK;
}

ResultCode write_step(RunContext& run, const OperationStep& step) {
  return run_step(run.console, step,
                  [&] { return write_factory_table(run.link, &run.records.factory_table); });
}

ResultCode verify_step(RunContext& run, const OperationStep& step) {
  return run_step(run.console, step,
                  [&] { return verify_factory_table(run.link, &run.records.factory_table); });
}

ResultCode erase_step(RunContext& run, const OperationStep& step) {
  return run_step(run.console, step, [&] { return erase_factory_table(run.link); });
}

}  // namespace

ResultCode handle_read_factory(RunContext& run) {
  constexpr OperationStep STEP{
      .label = "Reading factory table ", .ok_width = {12}, .error_width = {12}};
  FactoryTable& table = run.records.factory_table;
  table = FactoryTable{};
  const ResultCode result =
      run_step(run.console, STEP, [&] { return read_factory_table(run.link, &table); });
  if (result != RC_OK) {
    return result;
  }
  // A file that cannot be created leaves the listing on the console only.
  OutputFile file(run.command_line.file_name, "w");
  print_factory_table(table, run.console.stream(), file.stream());
  run.console.flush();
  if (!file.finish()) {
    return report_write_failure(run.console, run.command_line.file_name);
  }
  return result;
}

ResultCode handle_write_factory(RunContext& run) {
  const ResultCode loaded = load_factory_file(run);
  if (loaded != RC_OK) {
    return loaded;
  }
  return write_step(run, {.label = WRITING, .ok_width = {10}, .error_width = {10}});
}

ResultCode handle_verify_factory(RunContext& run) {
  const ResultCode loaded = load_factory_file(run);
  if (loaded != RC_OK) {
    return loaded;
  }
  return verify_step(run, {.label = VERIFYING,
                           .ok_width = {11},
                           .error_width = {11},
                           .mismatch_line = TABLE_DIFFERS,
                           .failure_line = VERIFY_FAILED});
}

ResultCode handle_erase_factory(RunContext& run) {
  return erase_step(run, {.label = ERASING, .ok_width = {10}, .error_width = {10}});
}

ResultCode handle_erase_write_verify_factory(RunContext& run) {
  const ResultCode loaded = load_factory_file(run);
  if (loaded != RC_OK) {
    return loaded;
  }
  ResultCode result = erase_step(run, {.label = ERASING, .ok_width = {10}, .error_width = {13}});
  if (result != RC_OK) {
    return result;
  }
  result = write_step(run, {.label = WRITING, .ok_width = {10}, .error_width = {11}});
  if (result != RC_OK) {
    return result;
  }
  return verify_step(run, {.label = VERIFYING,
                           .ok_width = {10},
                           .error_width = {11},
                           .mismatch_line = TABLE_DIFFERS,
                           .failure_line = VERIFY_FAILED});
}

}  // namespace pelmo
