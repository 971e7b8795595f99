// What the library answers to input a careless or hostile host hands it: every
// answer is defined, and none is undefined behaviour, a crash or a stale frame.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <boost/property_tree/json_parser.hpp>

#include <climits>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "conditioning/LightEstimator.h"
#include "frames/Buffer.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/TestConfig.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

using hdsml::ScopedEnv;
using hdsml::TestConfig;
using ClientPtr = std::unique_ptr<HDSMLClient, void (*)(HDSMLClient*)>;

class BadInputTest : public ::testing::Test {
 protected:
  HDSMLClient& client() {
    client_.reset(HDSMLClient::initialize(config_.path(), false, ""));
    return *client_;
  }
  int64_t queuedTimestamp() {
    std::lock_guard<std::mutex> lock(client_->frameQueue->mutex);
    return client_->frameQueue->queue.empty() ? -1 : client_->frameQueue->queue.front()->timestamp;
  }

  ScopedEnv noAbsenceProperty_{"PERSIST_HDS_CV_ABSENCE", nullptr};
  TestConfig config_{320, 240};
  ClientPtr client_{nullptr, HDSMLClient::destroy};
};

TEST_F(BadInputTest, AbsencePropertyKeepsItsArithmeticAndRefusesWhatDoesNotFit) {
  // Unset or empty gives -1; every character counts as its code - 48 ("12a" is
  // (1 * 10 + 2) * 10 + 49); what overflows 64 bits gives -1.
  // clang-format off
  const std::pair<const char*, int64_t> kValues[] = {
      {nullptr, -1}, {"", -1}, {"7000", 7000}, {"12a", 169}, {"abc", 5451}, {"-5", -25},
      {" 7000 ", -1530016}, {"5.5", 485}, {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", -1}, {"////////////////////", -1}, {"zzzzzzzzzzzzzzzzzzzz", -1}};
  // clang-format on
  for (const auto& [value, threshold] : kValues) {
    ScopedEnv property("PERSIST_HDS_CV_ABSENCE", value);
    EXPECT_EQ(getPropValForAbsence(), threshold) << (value ? value : "unset");
  }
  // The client takes whatever is not refused, 0 and negative thresholds included.
  const std::pair<const char*, const char*> kClients[] = {
      {"0", "Threshold for absence detection is 0\n"},
      {"-5", "Threshold for absence detection is -25\n"},
      {"99999999999999999999",
       "Ignoring persist.hds.cv.absence \"99999999999999999999\": out of range\n"
       "Threshold for absence detection is 5000\n"}};
  for (const auto& [value, printed] : kClients) {
    ScopedEnv property("PERSIST_HDS_CV_ABSENCE", value);
    testing::internal::CaptureStdout();
    const int64_t threshold = client().absenceThreshold;
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(printed), std::string::npos) << out;
    EXPECT_NE(out.find(" is " + std::to_string(threshold) + "\n"), std::string::npos) << out;
  }
}

TEST_F(BadInputTest, AbsenceTimerComparesExtremeTimestampsExactly) {
  HDSMLClient& c = client();
  c.state = DETECT_ABSENCE;
  const struct {
    int64_t first, second, threshold;
    bool absence;
  } rows[] = {{INT64_MIN, INT64_MAX, 5000, true}, {INT64_MAX, INT64_MIN, 5000, false},
              {INT64_MAX, INT64_MIN, -25, false}, {-10, INT64_MAX, INT64_MAX, true},
              {0, INT64_MAX, INT64_MAX, false},   {0, 5000, 5000, false}};
  HDSMLClient::RegionList regions;
  for (const auto& row : rows) {
    c.absenceThreshold = row.threshold;
    c.lastMotionTimestamp = -1;
    c.output = PresenceOutput();
    c.saveOutput(PRESENCE_NO_MOTION, 0.0f, row.first, regions, nullptr);  // starts the timer
    c.saveOutput(PRESENCE_NO_MOTION, 0.0f, row.second, regions, nullptr);
    EXPECT_EQ(c.output.status == PRESENCE_ABSENCE && c.output.frameTimestamp == row.second,
              row.absence)
        << row.first << " then " << row.second << " against " << row.threshold;
  }
}

// One mapping serves as all three planes; only the sampled bytes are touched,
// so rows of 2^26 samples and more cost no memory. Before the steps were
// 64-bit, such a frame sent the reads before the plane.
TEST_F(BadInputTest, HugeFramesAreSampledExactly) {
  const int outW = 4, outH = 2;
  for (const auto& size : {std::make_pair((1 << 26) + 6, 2), std::make_pair(2, (1 << 26) + 2),
                           std::make_pair(INT_MAX, 1)}) {
    const int w = size.first, h = size.second;
    const size_t bytes = size_t(w) * h;
    auto* plane = static_cast<uint8_t*>(mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(plane, MAP_FAILED);
    // Each sampled byte gets a value of its own (several outputs may share one);
    // any other byte reads 0.
    const int64_t sx = int64_t{w} * 32 / outW, sy = int64_t{h} * 32 / outH;
    std::vector<uint8_t> expected, out(outW * outH * 3 / 2, 0);
    for (int pass = 0; pass < 2; ++pass)
      for (int p = 0; p < 3; ++p)
        for (int r = 0; r < (p == 0 ? outH : outH / 2); ++r)
          for (int c = 0; c < (p == 0 ? outW : outW / 2); ++c) {
            uint8_t& sample = plane[w * ((r * sy) >> 5) + ((c * sx) >> 5)];
            if (pass == 0) sample = static_cast<uint8_t>(1 + r * 7 + c * 3);
            if (pass == 1) expected.push_back(sample);
          }
    destride(plane, plane, plane, h, w, 1, w, 1, w, 1, w, outH, outW, out.data());
    EXPECT_EQ(out, expected) << w << "x" << h;
    munmap(plane, bytes);
  }
}

TEST_F(BadInputTest, FramesTooSmallToShrinkAreDroppedBeforeThePool) {
  HDSMLClient& c = client();  // 320x240: at least 10x8 samples
  std::vector<uint8_t> plane(640 * 480, 7);
  const struct {
    int width, height;
    bool queued;
  } rows[] = {{640, 480, true}, {0, 480, false}, {640, 0, false}, {-640, 480, false},
              {9, 480, false},  {640, 7, false}, {10, 8, true}};
  for (int i = 0; i < 7; ++i) {
    const int64_t before = queuedTimestamp();
    c.cameraFrameData(plane.data(), plane.data(), plane.data(), rows[i].width, rows[i].height, 1,
                      640, 1, 640, 1, 640, 100 + i, nullptr, 0);
    EXPECT_EQ(queuedTimestamp(), rows[i].queued ? 100 + i : before)
        << rows[i].width << "x" << rows[i].height;
  }
}

// Exposures of 0 or below carry no light sample; levels (1e9 / exposure in ns,
// the mean of 30) switch out of low light above 14.99 and back at 13.4.
TEST_F(BadInputTest, UnknownExposuresFeedNoLightSampleAndLevelsSwitchAt14_99And13_4) {
  HDSMLClient& c = client();
  c.stateChange(DETECT_PRESENCE, nullptr, 30);  // intake stops after the light estimate
  camera_metadata metadata;
  const auto feed = [&](int exposure, int frames) {
    metadata.exposureTime = exposure;
    for (int i = 0; i < frames; ++i)
      c.cameraFrameData(nullptr, nullptr, nullptr, 640, 480, 1, 640, 1, 640, 1, 640, i, &metadata,
                        0);
  };
  testing::internal::CaptureStdout();
  feed(-1, 40);
  feed(0, 5);
  feed(INT32_MIN, 5);
  feed(100000000, 300);  // 1/10 s: level 10, low light
  EXPECT_NE(testing::internal::GetCapturedStdout().find(
                "microseconds 0\nCamera exposure time in microseconds -2147483648\n"
                "Camera exposure time in microseconds 100000000\n"),
            std::string::npos);
  const auto& samples = c.lightEstimator->samples;
  EXPECT_EQ(std::vector<float>(samples.begin(), samples.end()), std::vector<float>(30, 10.0f));
  EXPECT_EQ(c.lightEstimator->getLightMode(), 0);
  const std::pair<int, int> kLevels[] = {
      {66889632, 0}, {66533599, 1}, {74349442, 1}, {74906367, 0}};  // 14.95, 15.03, 13.45, 13.35
  for (const auto& [exposure, mode] : kLevels) {
    feed(exposure, 30);
    EXPECT_EQ(c.lightEstimator->getLightMode(), mode) << 1e9 / exposure;
  }
}

std::string errorOf(const char* path) {
  namespace pt = boost::property_tree;
  try {
    ClientPtr built(HDSMLClient::initialize(path, false, ""), HDSMLClient::destroy);
    return built ? "built" : "null";
  } catch (const pt::json_parser_error& e) {
    return std::string("json_parser_error ") + e.what();
  } catch (const pt::ptree_bad_path& e) {
    return std::string("ptree_bad_path ") + e.what();
  } catch (const pt::ptree_bad_data& e) {
    return std::string("ptree_bad_data ") + e.what();
  } catch (const std::invalid_argument& e) {
    return std::string("invalid_argument ") + e.what();
  }
}

TEST_F(BadInputTest, ConfigurationErrorsNameTheFileAndTheKey) {
  const auto width = [](const char* w) {
    return std::string(R"({"vantor": {"motionResH": 240, "motionResW": )") + w + "}}";
  };
  const std::pair<std::string, std::string> rows[] = {
      // P stands for the file's path
      {width("99999999999"),
       "invalid_argument P: vantor.motionResW is out of range: must be an "
       "even number from 2 to 4096, got 99999999999"},
      {width("4098"), "invalid_argument P: vantor.motionResW is out of range"},
      {width("0"), "invalid_argument P: vantor.motionResW is out of range"},
      {width("321"), "invalid_argument P: vantor.motionResW is odd"},
      {width("\"wide\""), "ptree_bad_data P: vantor.motionResW is not an integer: \"wide\""},
      {width("1e3"), "ptree_bad_data P: vantor.motionResW is not an integer: \"1e3\""},
      {R"({"vantor": {"motionResW": 320}})", "ptree_bad_path P: missing key (vantor.motionResH)"},
      {R"({"vantor": )", "json_parser_error P(1): "},
      {std::string(100000, '[') + std::string(100000, ']'),
       "json_parser_error P(1): nested deeper"},
      // The extremes of what is accepted, in both keys.
      {R"({"vantor": {"motionResW": 4096, "motionResH": 2}})", "built"},
      {R"({"vantor": {"motionResW": 2, "motionResH": 4096}})", "built"}};
  for (const auto& row : rows) {
    TestConfig config(row.first);
    std::string expected = row.second;
    if (expected.find('P') != std::string::npos)
      expected.replace(expected.find('P'), 1, config.path());
    EXPECT_EQ(errorOf(config.path()).substr(0, expected.size()), expected);
  }
  EXPECT_EQ(errorOf("/nonexistent/hdsml.json"), "null");
  EXPECT_EQ(errorOf(nullptr), "null");
  const std::string directory = testing::TempDir();
  testing::internal::CaptureStdout();
  EXPECT_EQ(errorOf(directory.c_str()), "null");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Unable to load config file: " + directory + "\n");
  EXPECT_THROW(HDSMLClient(directory.c_str(), false, ""), boost::property_tree::json_parser_error);
}

// Defined, if wasteful: the first facade and client stay alive and working out
// of the host's reach; destroy() ends only the second.
TEST_F(BadInputTest, InitializeTwiceLeavesTheFirstClientRunning) {
  using detector_wrapper::PresenceDetectorWrapper;
  PresenceDetectorWrapper* first = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(PresenceDetectorWrapper::initialize(config_.path(), false), first);
  PresenceDetectorWrapper::destroy();
  HDSMLClient& orphan = *first->client;
  orphan.stateChange(DETECT_MOTION, nullptr, 30);
  std::vector<uint8_t> plane(320 * 240, 9);
  orphan.cameraFrameData(plane.data(), plane.data(), plane.data(), 320, 240, 1, 320, 1, 320, 1, 320,
                         42, nullptr, 0);
  ASSERT_TRUE(hdsml::waitForIdle(orphan));
  EXPECT_EQ(orphan.queryMotionDetector().frameTimestamp, 42);
  delete first;  // what the host can no longer do
}

}  // namespace
