#include "pelmo/transport/local_address.hpp"

#include <algorithm>

#include "pelmo/formats/number_text.hpp"

namespace pelmo {

std::string dotted_address(const Ipv4Address& address) {
  std::string text;
  for (const std::uint8_t byte : address) {
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  }
  return text;
}

std::optional<Ipv4Address> parse_dotted_address(std::string_view text) {
  Ipv4Address address{};
  for (std::size_t i = 0; i < address.size(); ++i) {
    const std::size_t dot = text.find('.');
    const bool last = i + 1 == address.size();
    if (last != (dot == std::string_view::npos)) {
      return std::nullopt;  // three dots, no more and no fewer
    }
    const ParsedNumber part = parse_unsigned(text.substr(0, dot), 10, 255);
    if (part.error != NumberError::none) {
      return std::nullopt;
    }
    address[i] = static_cast<std::uint8_t>(part.value);
    text = last ? std::string_view() : text.substr(dot + 1);
  }
  return address;
}

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
