#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

using Ipv4Address = std::array<std::uint8_t, 4>;

// "a.b.c.d".
std::string dotted_address(const Ipv4Address& address);

// Exactly four decimal numbers of 0 to 255 joined by dots, nothing else; none otherwise.
std::optional<Ipv4Address> parse_dotted_address(std::string_view text);

// How well a host address fits the device's: 0 when the first bytes differ, else 1 plus one for
// each further leading byte that matches (the fourth byte is not compared), so 1 to 3.
int address_match_score(const Ipv4Address& host, const Ipv4Address& device);

// The host address to bind so that datagrams leave through the interface facing the device: the
// best-scoring one (the first among equals) when it scores at least 2, otherwise none (bind to all
// interfaces).
std::optional<Ipv4Address> choose_local_address(std::span<const Ipv4Address> host,
                                                const Ipv4Address& device);

// Fills `out` with this host's IPv4 addresses in lookup order; returns how many were filled, 0 when
// `out` is empty, there are none, or the lookup fails. Starts the socket library (1.1) on its own
// account and leaves it started.
std::size_t list_local_addresses(port::PortLayer& ports, std::span<Ipv4Address> out);

}  // namespace pelmo
