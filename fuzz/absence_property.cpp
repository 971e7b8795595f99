// Fuzzes the absence threshold property with arbitrary text. The parser must
// give exactly what its character arithmetic (value * 10 + code - 48, no digit
// check) gives wherever that fits in 64 bits, and -1 ("unset") wherever it
// does not, without undefined behaviour on the way.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "client/HDSMLClient.h"

namespace {

// The same arithmetic in 128 bits, which cannot overflow for 99 characters of
// at most 3 decimal digits' worth each.
int64_t expectedThreshold(const std::string& text) {
  if (text.empty()) return -1;
  __int128 value = 0;
  for (const char c : text) {
    value = value * 10;
    if (value > INT64_MAX || value < INT64_MIN) return -1;
    value += c - 48;
    if (value > INT64_MAX || value < INT64_MIN) return -1;
  }
  return static_cast<int64_t>(value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The environment holds C strings, and the library reads at most 99 bytes.
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\0')).substr(0, 99);
  setenv("PERSIST_HDS_CV_ABSENCE", text.c_str(), 1);
  if (getPropValForAbsence() != expectedThreshold(text)) std::abort();
  return 0;
}
