// Fuzzes the configuration reader with arbitrary file content. Whatever the
// bytes, a client is built (with a motion resolution the library accepts) or
// one of the exceptions the README lists escapes; anything else, a crash, a
// hang or another exception, is a finding. The seeds include "guards" objects
// (masks, numbers out of range, unknown keys), whose reader is fuzzed alike.
#include <unistd.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "client/GuardedAnalysis.h"
#include "client/HDSMLClient.h"

namespace {

std::string gPath;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* dir = std::getenv("TMPDIR");
  gPath = std::string(dir != nullptr ? dir : "/tmp") + "/hdsml_fuzz_config_" +
          std::to_string(getpid()) + ".json";
  std::atexit([] { std::remove(gPath.c_str()); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* file = std::fopen(gPath.c_str(), "wb");
  if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
    std::perror(gPath.c_str());
    std::abort();
  }
  namespace pt = boost::property_tree;
  try {
    HDSMLClient* client = HDSMLClient::initialize(gPath.c_str(), false, "");
    // The file exists and is no directory, so null is not a valid answer.
    if (client == nullptr) std::abort();
    for (const int side : {client->motionResW, client->motionResH})
      if (side < 2 || side > 4096 || side % 2 != 0) std::abort();
    // With a "guards" object, whatever its masks and numbers, the guards run
    // and report with a light mode the motion thread knows.
    hdsml::GuardReport report;
    if (hdsml::lastGuardReport(*client, report) && report.lightMode != 1) std::abort();
    HDSMLClient::destroy(client);
  } catch (const pt::json_parser_error&) {
  } catch (const pt::ptree_bad_path&) {
  } catch (const pt::ptree_bad_data&) {
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
