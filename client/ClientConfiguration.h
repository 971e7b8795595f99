// The client's JSON configuration file, read and checked in one place so that
// every error names the file and, where there is one, the key. Used by the
// client's constructor on the caller's thread; keeps no state.
#pragma once

#include <cstdint>
#include <optional>

#include "motion/GuardSettings.h"

struct ClientConfiguration {
  int32_t motionResW = 0;
  int32_t motionResH = 0;
  // Present when the file has a "guards" object (client/GuardConfiguration.h).
  std::optional<hdsml::GuardSettings> guards;
};

// Reads "vantor.motionResW" and "vantor.motionResH" from the file at `path`.
// Throws Boost.PropertyTree's json_parser_error (unreadable file, bad JSON,
// nesting deeper than any configuration needs, a file over 1 MiB),
// ptree_bad_path (missing key), ptree_bad_data (a value that is not an integer)
// or std::invalid_argument (an integer that is odd or outside 2..4096, or a bad
// "guards" object: an unknown key, a value out of range, a bad polygon).
ClientConfiguration readClientConfiguration(const char* path);
