#include "pelmo/transport/posix/host_addresses.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace pelmo::port::posix {

std::vector<std::array<std::uint8_t, 4>> host_addresses() {
  std::vector<std::array<std::uint8_t, 4>> addresses;
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) {
    return addresses;
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;  // one entry per address, not one per socket type
  addrinfo* found = nullptr;
  if (getaddrinfo(name.data(), nullptr, &hints, &found) != 0) {
    return addresses;
  }
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET || entry->ai_addrlen < sizeof(sockaddr_in)) {
      continue;
    }
    sockaddr_in address{};
    std::memcpy(&address, entry->ai_addr, sizeof address);
    std::array<std::uint8_t, 4> bytes{};
    std::memcpy(bytes.data(), &address.sin_addr.s_addr, bytes.size());
    addresses.push_back(bytes);
  }
  freeaddrinfo(found);
  return addresses;
}

}  // namespace pelmo::port::posix
