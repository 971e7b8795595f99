// Writes a client configuration file for a test and removes it afterwards.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace hdsml {

class TestConfig {
 public:
  // A configuration with the given motion resolution.
  TestConfig(int width, int height)
      : TestConfig("{ \"vantor\": { \"motionResW\": " + std::to_string(width) +
                   ", \"motionResH\": " + std::to_string(height) + " } }") {}

  // A configuration file holding exactly `json`.
  explicit TestConfig(const std::string& json) : path_(uniquePath()) {
    std::ofstream(path_) << json;
  }
  ~TestConfig() { std::remove(path_.c_str()); }
  TestConfig(const TestConfig&) = delete;
  TestConfig& operator=(const TestConfig&) = delete;

  const char* path() const { return path_.c_str(); }

 private:
  static std::string uniquePath() {
    static std::atomic<int> counter{0};
    return ::testing::TempDir() + "hdsml_config_" + std::to_string(::getpid()) + "_" +
           std::to_string(counter++) + ".json";
  }
  std::string path_;
};

// Sets (or, with null, unsets) an environment variable for the object's lifetime.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    if (old != nullptr) old_ = old;
    hadOld_ = old != nullptr;
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { hadOld_ ? ::setenv(name_.c_str(), old_.c_str(), 1) : ::unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_, old_;
  bool hadOld_;
};

}  // namespace hdsml
