#include "tools/options/CommandLine.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace hdsreplay {

namespace {

// 0.1, 1000, 2.5: as a person writes them, not "1000.000000".
std::string plainNumber(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

}  // namespace

double parseNumber(const std::string& option, const std::string& text, double min, double max) {
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || errno != 0 || !std::isfinite(v))
    throw UsageError(option + ": '" + text + "' is not a number");
  if (v < min || v > max)
    throw UsageError(option + ": " + text + " is out of range: give a number from " +
                     plainNumber(min) + " to " + plainNumber(max));
  return v;
}

long long parseWholeNumber(const std::string& option, const std::string& text, long long min,
                           long long max) {
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || end != text.c_str() + text.size() || errno != 0)
    throw UsageError(option + ": '" + text + "' is not a whole number");
  if (v < min || v > max)
    throw UsageError(option + ": " + text + " is out of range: give a whole number " +
                     (max >= INT_MAX
                          ? "of at least " + std::to_string(min)
                          : "from " + std::to_string(min) + " to " + std::to_string(max)));
  return v;
}

Arguments readArguments(int argc, const char* const argv[], const OptionTable& options) {
  Arguments a;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "-h" || word == "--help") {
      a.help = true;
      return a;
    }
    if (word == "--version") {
      a.version = true;
      return a;
    }
    if (word == "--") {
      a.afterDashes.assign(argv + i + 1, argv + argc);
      break;
    }
    if (word.size() < 2 || word[0] != '-') {
      a.operands.push_back(word);
      continue;
    }
    const size_t eq = word.rfind("--", 0) == 0 ? word.find('=') : std::string::npos;
    const std::string name = word.substr(0, eq);
    if (const auto flag = options.flags.find(name); flag != options.flags.end()) {
      if (eq != std::string::npos) throw UsageError(name + " takes no value");
      flag->second();
      continue;
    }
    const auto option = options.withValue.find(name);
    if (option == options.withValue.end()) throw UsageError("unknown option " + name);
    if (eq != std::string::npos) {
      option->second(name, word.substr(eq + 1));
    } else if (i + 1 < argc) {
      option->second(name, argv[++i]);
    } else {
      throw UsageError(name + " needs a value");
    }
  }
  return a;
}

}  // namespace hdsreplay
