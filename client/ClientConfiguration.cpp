#include "client/ClientConfiguration.h"

#include "client/GuardConfiguration.h"

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

namespace pt = boost::property_tree;

// A configuration holds two numbers; anything this large is not one, and
// reading it whole (a device file, say) would only exhaust memory.
constexpr size_t kMaxFileBytes = 1 << 20;
// The JSON reader recurses once per level of nesting, so a few hundred
// kilobytes of '[' overflow the stack. A configuration nests two levels.
constexpr int kMaxNesting = 64;

std::string readWholeFile(const std::string& path) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file)
    throw pt::json_parser_error(std::string("cannot open file: ") + std::strerror(errno), path, 0);
  std::string text;
  char chunk[4096];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
    text.append(chunk, got);
    if (text.size() > kMaxFileBytes)
      throw pt::json_parser_error("larger than 1 MiB, not a configuration", path, 0);
  }
  // A directory opens but does not read (EISDIR).
  if (std::ferror(file.get()))
    throw pt::json_parser_error(std::string("cannot read the file: ") + std::strerror(errno), path,
                                0);
  return text;
}

// Counts brackets outside strings the way the JSON reader tokenises them. After
// a syntax error the count may be off, but the reader stops at that error.
void checkNesting(const std::string& text, const std::string& path) {
  int depth = 0;
  unsigned long line = 1;
  bool inString = false, escaped = false;
  for (const char c : text) {
    if (c == '\n') ++line;
    if (inString) {
      if (escaped)
        escaped = false;
      else if (c == '\\')
        escaped = true;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxNesting)
        throw pt::json_parser_error("nested deeper than 64 levels", path, line);
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
}

pt::ptree parseJson(const std::string& path) {
  const std::string text = readWholeFile(path);
  checkNesting(text, path);
  std::istringstream stream(text);
  pt::ptree config;
  try {
    pt::read_json(stream, config);
  } catch (const pt::json_parser_error& e) {
    // Parsed from memory, the reader's message lacks the file's name.
    throw pt::json_parser_error(e.message(), path, e.line());
  }
  return config;
}

// What the integer conversion accepts, digits of any length included: spaces,
// an optional sign, digits, spaces. Such a value that did not convert is an
// integer out of range rather than something else.
bool isIntegerText(const std::string& text) {
  size_t i = 0, end = text.size();
  while (i < end && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  while (end > i && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  if (i < end && (text[i] == '+' || text[i] == '-')) ++i;
  if (i == end) return false;
  for (; i < end; ++i)
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
  return true;
}

// A motion resolution must be even (4:2:0 chroma halves it, and the colour
// conversion needs whole chroma rows) and small enough that the buffer sizes fit
// an int. Anything else would crash inside OpenCV, so it is refused up front.
int readMotionResolution(const pt::ptree& config, const char* key, const std::string& path) {
  constexpr int kMax = 4096;
  const std::string where = path + ": " + key;
  const auto node = config.get_child_optional(key);
  if (!node) throw pt::ptree_bad_path(path + ": missing key", pt::ptree::path_type(key));
  const std::string& raw = node->data();
  const boost::optional<int> value = node->get_value_optional<int>();
  const std::string rule = "must be an even number from 2 to " + std::to_string(kMax);
  if (!value) {
    if (isIntegerText(raw))
      throw std::invalid_argument(where + " is out of range: " + rule + ", got " + raw);
    throw pt::ptree_bad_data(where + " is not an integer: \"" + raw + "\"", raw);
  }
  if (*value < 2 || *value > kMax)
    throw std::invalid_argument(where + " is out of range: " + rule + ", got " +
                                std::to_string(*value));
  if (*value % 2 != 0)
    throw std::invalid_argument(where + " is odd: " + rule + ", got " + std::to_string(*value));
  return *value;
}

}  // namespace

ClientConfiguration readClientConfiguration(const char* path) {
  const pt::ptree config = parseJson(path);
  ClientConfiguration result;
  result.motionResW = readMotionResolution(config, "vantor.motionResW", path);
  result.motionResH = readMotionResolution(config, "vantor.motionResH", path);
  result.guards = hdsml::readGuardSettings(config, path);
  return result;
}
