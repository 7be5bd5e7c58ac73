#include "pelmo/transport/local_address.hpp"

#include <algorithm>

namespace pelmo {

int address_match_score(const Ipv4Address& host, const Ipv4Address& device) {
  int score = 0;
  // Leading bytes only: a match after a mismatch says nothing about the network.
  for (std::size_t i = 0; i < 3 && host[i] == device[i]; ++i) {
    ++score;
  }
  return score;
}

std::optional<Ipv4Address> choose_local_address(std::span<const Ipv4Address> host,
                                                const Ipv4Address& device) {
  constexpr int MIN_SCORE = 2;
  int best_score = 0;
  std::optional<Ipv4Address> best;
  for (const Ipv4Address& address : host) {
    const int score = address_match_score(address, device);
    if (score > best_score) {
      best_score = score;
      best = address;
    }
  }
  if (best_score < MIN_SCORE) {
    return std::nullopt;
  }
  return best;
}

std::size_t list_local_addresses(port::PortLayer& ports, std::span<Ipv4Address> out) {
  if (out.empty() || ports.start_sockets(1, 1).failed()) {
    return 0;
  }
  const std::vector<Ipv4Address> addresses = ports.host_addresses();
  const std::size_t count = std::min(addresses.size(), out.size());
  std::copy_n(addresses.begin(), count, out.begin());
  return count;
}

}  // namespace pelmo
