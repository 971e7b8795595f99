// The "guards" object of the configuration: what it accepts, and the message,
// naming the file and the key, for each thing it refuses.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "client/GuardedAnalysis.h"
#include "client/HDSMLClient.h"
#include "tests/support/TestConfig.h"

namespace {

using hdsml::TestConfig;

std::string withGuards(const std::string& guards) {
  return R"({"vantor": {"motionResW": 320, "motionResH": 240}, "guards": )" + guards + "}";
}

// "built" when a client comes up, else the exception's text.
std::string outcome(const std::string& json) {
  TestConfig config(json);
  testing::internal::CaptureStdout();
  std::string result;
  try {
    HDSMLClient* client = HDSMLClient::initialize(config.path(), false, "");
    hdsml::GuardReport report;
    result = client == nullptr                         ? "null"
             : hdsml::lastGuardReport(*client, report) ? "guarded"
                                                       : "built";
    HDSMLClient::destroy(client);
  } catch (const std::invalid_argument& e) {
    result = std::string(e.what());
    const std::string path = config.path();
    if (result.compare(0, path.size(), path) == 0) result.replace(0, path.size(), "P");
  }
  testing::internal::GetCapturedStdout();
  return result;
}

TEST(GuardConfigurationTest, AcceptsEveryGuardAndTheRangesEnds) {
  EXPECT_EQ(outcome(R"({"vantor": {"motionResW": 320, "motionResH": 240}})"), "built");
  EXPECT_EQ(outcome(withGuards("{}")), "guarded");
  EXPECT_EQ(outcome(withGuards(R"({"globalChange": true, "noise": false, "night": true,
      "sensitivity": 0, "minRegionArea": 100, "masks": []})")),
            "guarded");
  EXPECT_EQ(outcome(withGuards(R"({"sensitivity": 100, "minRegionArea": 0.001,
      "masks": [[[0, 0], [1, 0], [1, 1]], [[0.5, 0.5], [0.6, 0.5], [0.6, 0.6], [0.5, 0.6]]]})")),
            "guarded");
}

TEST(GuardConfigurationTest, ErrorsNameTheFileTheKeyAndWhatIsWrong) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"nosie": true})",
       "P: guards.nosie is not a guard: the keys are globalChange, noise, night, sensitivity, "
       "minRegionArea and masks"},
      {R"({"noise": "yes"})", "P: guards.noise must be true or false, got \"yes\""},
      {R"({"night": 1})", "P: guards.night must be true or false, got \"1\""},
      {R"({"sensitivity": 100.5})",
       "P: guards.sensitivity is out of range: give a number from 0 to 100, got 100.5"},
      {R"({"sensitivity": -0.1})", "P: guards.sensitivity is out of range"},
      {R"({"sensitivity": "high"})", "P: guards.sensitivity must be a number, got \"high\""},
      {R"({"minRegionArea": 0})", "P: guards.minRegionArea is out of range"},
      {R"({"minRegionArea": 100.01})", "P: guards.minRegionArea is out of range"},
      {R"({"masks": [[[0, 0], [1, 1]]]})",
       "P: guards.masks[0] has 2 points: a polygon needs at least 3"},
      {R"({"masks": [[[0, 0], [1, 0], [1, 1]], [[0, 0], [1.2, 0], [1, 1]]]})",
       "P: guards.masks[1][1] is outside the frame: coordinates go from 0 to 1, got 1.2, 0"},
      {R"({"masks": [[[0, 0], [1, 0], [0, -0.01]]]})",
       "P: guards.masks[0][2] is outside the frame"},
      {R"({"masks": [[[0, 0, 0], [1, 0], [1, 1]]]})",
       "P: guards.masks[0][0] must be a point [x, y] of two numbers"},
      {R"({"masks": {"a": 1}})", "P: guards.masks must be a list of polygons"},
      {R"([1, 2])", "P: guards must be an object, got a list"},
      {R"(true)", "P: guards must be an object, got \"true\""}};
  for (const auto& [guards, expected] : rows)
    EXPECT_EQ(outcome(withGuards(guards)).substr(0, expected.size()), expected) << guards;
}

}  // namespace
