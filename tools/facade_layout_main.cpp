// hds-facade-layout: prints where each field of the detector facade lies in the
// object that PresenceDetectorWrapper::initialize() returns, so that a host
// written in C, Java or Kotlin can read the results without this library's C++
// headers. Built for the target (arm64 for a phone), it prints that target's
// layout; the order and widths are fixed, and arm64 and x86-64 agree.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/options/Version.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

struct Field {
  const char* name;
  const char* type;
  size_t offset;
  size_t size;
};

#define HDSML_FIELD(name, type) \
  { #name, type, offsetof(PresenceDetectorWrapper, name), sizeof(PresenceDetectorWrapper::name) }

const Field kFields[] = {
    HDSML_FIELD(client, "pointer"),
    HDSML_FIELD(state, "int32"),
    HDSML_FIELD(status, "int32"),
    HDSML_FIELD(detectTimeMs, "float32"),
    HDSML_FIELD(confidence, "float32"),
    HDSML_FIELD(detectCount, "int32"),
    HDSML_FIELD(outputFrameTimestamp, "int64"),
    HDSML_FIELD(outputWallClock, "int64"),
    HDSML_FIELD(stateChangeTimestamp, "int64"),
    HDSML_FIELD(frameResult, "int32"),
    HDSML_FIELD(motionDetected, "bool8"),
    HDSML_FIELD(motionScore, "float32"),
    HDSML_FIELD(motionFrameTimestamp, "int64"),
    HDSML_FIELD(motionWallClock, "int64"),
};

#undef HDSML_FIELD

bool littleEndian() {
  const uint32_t one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 1;
}

}  // namespace

constexpr const char* kUsage =
    "usage: hds-facade-layout [--help | --version]\n"
    "Prints the size of the detector facade (detector_wrapper::PresenceDetectorWrapper)\n"
    "and the offset, size and type of each field, for hosts that read it without\n"
    "the C++ header. Takes no arguments.\n";

int main(int argc, char** argv) {
  if (argc > 1) {
    const std::string arg = argv[1];
    if (argc == 2 && (arg == "-h" || arg == "--help")) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (argc == 2 && arg == "--version") {
      std::fputs(hdsreplay::versionLine("hds-facade-layout").c_str(), stdout);
      return 0;
    }
    std::fprintf(stderr, "hds-facade-layout: unknown argument '%s'\n%s",
                 (arg == "-h" || arg == "--help" || arg == "--version" ? argv[2] : argv[1]), kUsage);
    return 2;
  }
  std::printf("detector_wrapper::PresenceDetectorWrapper: %zu bytes, aligned to %zu, %s\n",
              sizeof(PresenceDetectorWrapper), alignof(PresenceDetectorWrapper),
              littleEndian() ? "little-endian" : "big-endian");
  std::printf("%6s %4s  %-7s  %s\n", "offset", "size", "type", "field");
  for (const Field& f : kFields) std::printf("%6zu %4zu  %-7s  %s\n", f.offset, f.size, f.type, f.name);
  return 0;
}
