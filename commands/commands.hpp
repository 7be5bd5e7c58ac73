#pragma once

// Every bootloader command in one include.
#include "commands/firmware_commands.hpp"  // IWYU pragma: export
#include "commands/info_commands.hpp"      // IWYU pragma: export
#include "commands/table_commands.hpp"     // IWYU pragma: export
