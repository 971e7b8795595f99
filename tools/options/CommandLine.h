// What every tool's command line shares: the error a bad one gets, the
// readers of numbers, and the grammar of the words. -h, --help and --version
// end the reading; "--" ends the options; a word that starts with '-' (a lone
// "-" aside) is an option, which takes its value after '=' (--name=value) or
// as the next word (--name value); any other word is an operand.
#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace hdsreplay {

// A bad command line; the message is meant for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A number, or a whole number, from `min` to `max` given to `option`. Throws
// UsageError naming the option, the text and the range.
double parseNumber(const std::string& option, const std::string& text, double min, double max);
long long parseWholeNumber(const std::string& option, const std::string& text, long long min,
                           long long max);

// A tool's options: those without a value and those with one, each with what
// it does; the second are called with the option's name and its value.
struct OptionTable {
  std::map<std::string, std::function<void()>> flags;
  std::map<std::string, std::function<void(const std::string&, const std::string&)>> withValue;
};

struct Arguments {
  bool help = false;
  bool version = false;
  std::vector<std::string> operands;
  std::vector<std::string> afterDashes;  // the words after "--"

  // The operands, those after "--" last.
  std::vector<std::string> allOperands() const {
    std::vector<std::string> all = operands;
    all.insert(all.end(), afterDashes.begin(), afterDashes.end());
    return all;
  }
};

// argv[0] is the program name. Applies each option as it comes. Throws
// UsageError: "unknown option --x", "--x needs a value", "--x takes no value",
// or what an option's action throws.
Arguments readArguments(int argc, const char* const argv[], const OptionTable& options);

}  // namespace hdsreplay
