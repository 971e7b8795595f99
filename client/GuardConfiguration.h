// Reads and checks the optional "guards" object of the client's configuration.
// Every error names the file, the key and what is wrong. Used by
// readClientConfiguration on the caller's thread; keeps no state.
#pragma once

#include <optional>
#include <string>

#include <boost/property_tree/ptree_fwd.hpp>

#include "motion/GuardSettings.h"

namespace hdsml {

// Empty when the configuration has no "guards" key. Throws
// std::invalid_argument for an unknown key, a value of the wrong kind or out of
// range, and a polygon with fewer than 3 points or a coordinate outside 0 to 1.
std::optional<GuardSettings> readGuardSettings(const boost::property_tree::ptree& config,
                                               const std::string& path);

}  // namespace hdsml
