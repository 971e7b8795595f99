// Owns the process-wide detector facade for one replay: initialize() on
// construction, destroy() on destruction. One per process at a time, used from
// the replay's thread.
#pragma once

#include <string>

#include "client/HDSMLClient.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace hdsreplay {

class Facade {
 public:
  // Throws std::runtime_error naming the configuration when the library rejects
  // it or cannot open it.
  Facade(const std::string& configPath, bool debug);
  ~Facade();
  Facade(const Facade&) = delete;
  Facade& operator=(const Facade&) = delete;

  detector_wrapper::PresenceDetectorWrapper* operator->() const { return det_; }
  HDSMLClient* client() const { return det_->client; }

 private:
  detector_wrapper::PresenceDetectorWrapper* det_ = nullptr;
};

}  // namespace hdsreplay
