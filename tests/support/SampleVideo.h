// What a test that needs a sample recording (scripts/samples puts them in
// data/) does without it: it skips on a developer's machine and fails in CI,
// where a skipped exactness test would pass unnoticed. CI is set when the
// environment variable CI holds anything but "", "0" or "false": hosted CI
// services set it, .ci/run sets it when unset, and the Debian roots of
// scripts/check-fresh and scripts/cross-arm64 inherit it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace hdsml {

inline bool ciIsSet() {
  const std::string value = std::getenv("CI") ? std::getenv("CI") : "";
  return !value.empty() && value != "0" && value != "false";
}

}  // namespace hdsml

// In a test body: unless `available`, skips the test, or fails it in CI.
#define HDSML_REQUIRE_SAMPLE(available, path)                                        \
  do {                                                                               \
    if (available) break;                                                            \
    if (::hdsml::ciIsSet()) FAIL() << (path) << " missing or unreadable, CI is set"; \
    GTEST_SKIP() << (path) << " missing; scripts/samples fetches it";                \
  } while (0)
