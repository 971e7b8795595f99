// Writes a client configuration file for a test and removes it afterwards.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
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

// Sets an environment variable for the lifetime of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      hadOld_ = true;
      old_ = old;
    }
    if (value != nullptr)
      ::setenv(name, value, 1);
    else
      ::unsetenv(name);
  }
  ~ScopedEnv() {
    if (hadOld_)
      ::setenv(name_.c_str(), old_.c_str(), 1);
    else
      ::unsetenv(name_.c_str());
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool hadOld_ = false;
};

}  // namespace hdsml
