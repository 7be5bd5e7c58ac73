#pragma once

// Every bootloader command in one include.
#include "pelmo/commands/firmware_commands.hpp"  // IWYU pragma: export
#include "pelmo/commands/info_commands.hpp"      // IWYU pragma: export
#include "pelmo/commands/table_commands.hpp"     // IWYU pragma: export
#include "pelmo/commands/write_probe.hpp"        // IWYU pragma: export
