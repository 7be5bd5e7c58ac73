#pragma once

#include <cstdio>
#include <cstdlib>

// A broken property is a finding: say which and abort, so that libFuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                               \
  do {                                                                                      \
    if (!(condition)) {                                                                     \
      std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                         \
    }                                                                                       \
  } while (false)
