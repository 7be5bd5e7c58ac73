#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace pelmo::test {

// The COM numbers whose other end echoes every byte back, as tools/wine/with-echo-ports.py
// announces them in PELMO_TEST_ECHO_PORTS ("5,12"); empty when the tests run without that peer.
inline std::vector<int> echo_ports() {
  std::vector<int> ports;
  const char* text = std::getenv("PELMO_TEST_ECHO_PORTS");
  std::istringstream list(text != nullptr ? text : "");
  for (std::string item; std::getline(list, item, ',');) {
    if (!item.empty()) {
      ports.push_back(std::stoi(item));
    }
  }
  return ports;
}

}  // namespace pelmo::test
