#include "tools/host/Facade.h"

#include <exception>
#include <stdexcept>

namespace hdsreplay {

using detector_wrapper::PresenceDetectorWrapper;

Facade::Facade(const std::string& configPath, bool debug) {
  try {
    det_ = PresenceDetectorWrapper::initialize(configPath.c_str(), debug);
  } catch (const std::exception& e) {
    PresenceDetectorWrapper::destroy();
    throw std::runtime_error("configuration '" + configPath + "' was rejected: " + e.what());
  }
  if (det_ == nullptr || det_->client == nullptr) {
    PresenceDetectorWrapper::destroy();
    throw std::runtime_error("the library could not open configuration '" + configPath + "'");
  }
}

Facade::~Facade() { PresenceDetectorWrapper::destroy(); }

}  // namespace hdsreplay
