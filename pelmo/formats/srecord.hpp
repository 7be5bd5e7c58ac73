#pragma once

#include <cstddef>
#include <string_view>

#include "pelmo/formats/image_segment.hpp"

namespace pelmo {

// Reads Motorola S-record text as segments at the addresses its data records name.
//   S0          header, not looked at beyond its checksum
//   S1 S2 S3    data at 16-, 24- and 32-bit addresses
//   S5 S6       the number of data records so far, in 16 or 24 bits; checked
//   S7 S8 S9    termination (32-, 24-, 16-bit start address): required; lines after it are not read
// Every record is "S", its type digit, then hexadecimal digit pairs: the byte count (address, data
// and checksum bytes), the address, the data and the checksum, the ones' complement of the sum of
// the count, address and data bytes. Nothing may follow the checksum but the line end (LF or
// CR LF). The records may carry at most `max_bytes` of data. Errors are located by line.
SegmentRead read_srecord_segments(std::string_view text, std::size_t max_bytes);

}  // namespace pelmo
