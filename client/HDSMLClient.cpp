// Client lifecycle: configuration, the parts the client owns, the motion
// thread's start and the ordered teardown.
#include "client/HDSMLClient.h"

#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "client/ClientConfiguration.h"
#include "client/ClientExtensions.h"
#include "client/FusedIntake.h"
#include "client/IntakeSelfCheck.h"
#include "conditioning/Filter.h"
#include "conditioning/LightEstimator.h"
#include "diagnostics/Log.h"
#include "frames/Buffer.h"
#include "frames/MemoryPool.h"
#include "motion/motionDetector.h"

#ifdef __ANDROID__
#include <sys/system_properties.h>
#endif

namespace {

constexpr const char* kAbsenceProperty = "persist.hds.cv.absence";
constexpr int kPropertyValueMax = 100;

// Reads a system property into `value` (zero-filled, kPropertyValueMax bytes).
// Android has real system properties; elsewhere "a.b.c" is the environment
// variable "A_B_C", so the same configuration works on a workstation.
void readSystemProperty(const char* name, char* value) {
#ifdef __ANDROID__
  __system_property_get(name, value);
#else
  std::string variable(name);
  for (char& c : variable) c = c == '.' ? '_' : static_cast<char>(std::toupper(c));
  if (const char* env = std::getenv(variable.c_str()))
    std::strncpy(value, env, kPropertyValueMax - 1);
#endif
}

}  // namespace

// Programs built against the header place clients in storage of their own:
// the size is part of the binary interface. Extension state lives in
// ClientExtensions instead.
#if defined(__x86_64__)
static_assert(sizeof(HDSMLClient) == 704, "HDSMLClient's layout is part of the binary interface");
#endif

MotionStatus::MotionStatus(const MotionStatus& other)
    : motionDetected(other.motionDetected),
      filterScore(other.filterScore),
      frameTimestamp(other.frameTimestamp),
      wallClockSeconds(other.wallClockSeconds) {}

MotionStatus& MotionStatus::operator=(const MotionStatus& other) {
  motionDetected = other.motionDetected;
  filterScore = other.filterScore;
  frameTimestamp = other.frameTimestamp;
  wallClockSeconds = other.wallClockSeconds;
  return *this;
}

int64_t getPropValForAbsence() {
  char value[kPropertyValueMax] = {};
  readSystemProperty(kAbsenceProperty, value);
  if (value[0] == '\0') return -1;
  // Digits are deliberately not validated: a stray character yields a wrong
  // number rather than an error. A value that does not fit in 64 bits (twenty
  // digits, or long garbage) is refused like an unset one.
  int64_t result = 0;
  for (const char* c = value; *c != '\0'; ++c) {
    if (__builtin_mul_overflow(result, 10, &result) ||
        __builtin_add_overflow(result, *c - 48, &result)) {
      hdsml::logPrintf("Ignoring %s \"%s\": out of range\n", kAbsenceProperty, value);
      return -1;
    }
  }
  return result;
}

HDSMLClient* HDSMLClient::initialize(const char* configPath, bool debug, const char* logPath) {
  FILE* file = configPath ? std::fopen(configPath, "r") : nullptr;
  if (file == nullptr) {
    hdsml::logPrintf("Unable to load config file: %s\n", configPath ? configPath : "(null)");
    return nullptr;
  }
  // The file was opened only to see that it exists; close it even when the
  // constructor throws on a bad configuration.
  std::unique_ptr<FILE, int (*)(FILE*)> closer(file, std::fclose);
  // A directory opens like a file but holds no configuration.
  struct stat info;
  if (fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode)) {
    hdsml::logPrintf("Unable to load config file: %s\n", configPath);
    return nullptr;
  }
  hdsml::logPrintf("[HDSMLClient] Loaded Config file: %s\n", configPath);
  return new HDSMLClient(configPath, debug, logPath);
}

void HDSMLClient::destroy(HDSMLClient* client) { delete client; }

// A function-try-block: if construction fails after the extensions were
// attached, they go with the half-built client (the handler rethrows).
HDSMLClient::HDSMLClient(const char* configPath, bool debug, const char* /*logPath*/) try
    : debugEnabled(debug) {
  hdsml::logPrintf("[HDSMLClient] Reading config %s\n", configPath);
  const ClientConfiguration config = readClientConfiguration(configPath);
  motionResW = config.motionResW;
  motionResH = config.motionResH;
  normalLight = 1;

  const int64_t property = getPropValForAbsence();
  if (property != -1) absenceThreshold = property;
  hdsml::logPrintf("Threshold for absence detection is %lld\n",
                   static_cast<long long>(absenceThreshold));
  hdsml::logPuts("[HDSMLClient] Read config");

  initializeAllignedImageBuffers();
  ClientExtensions& extensions = hdsml::attachExtensions(this);
  extensions.fusedIntake = std::make_unique<FusedIntake>();
  extensions.intakePath = chooseIntakePath(defaultKernelPath());
  framePool = std::make_unique<MemoryPool>(2, motionResW, motionResH);
  frameQueue = std::make_unique<Buffer>();

  detector = std::make_unique<motionDetector>();
  detector->setAlgoType("FrameDiff", motionResW, motionResH);
  detector->profiling = debugEnabled;
  hdsml::logPuts("[HDSMLClient] Initialized motion detector");

  // The estimator announces its window length itself.
  lightEstimator = std::make_unique<LightEstimator>(30, 14.99f, 13.4f);
  motionStatus = std::make_unique<MotionStatus>();
  motionFilter = std::make_unique<Filter>(12);
  hdsml::logPuts("Filter length for motion detector is 12");

  // Detached: teardown waits for motionThreadDone instead of joining, so the
  // client can be destroyed from any thread, including one the host reuses.
  motionThread = std::thread(&HDSMLClient::lookForMotion, this);
  motionThread.detach();
} catch (...) {
  hdsml::detachExtensions(this);
}

HDSMLClient::~HDSMLClient() {
  stopRequested = true;
  frameQueue->stopWait();
  {
    // Taking stateMutex orders the stop flag against the motion thread's
    // predicate check, so the notification cannot fall between its test and
    // its wait.
    std::lock_guard<std::mutex> lock(stateMutex);
  }
  wakeCv.notify_one();
  {
    std::unique_lock<std::mutex> lock(threadExitMutex);
    threadExitCv.wait(lock, [this] { return motionThreadDone; });
  }

  frameQueue.reset();
  framePool.reset();
  detector.reset();
  motionFilter.reset();
  lightEstimator.reset();
  motionStatus.reset();
  hdsml::detachExtensions(this);
  // The image header only refers to the packed buffer; release it last.
  yuvImage.release();
  delete[] yuvBuffer;
  yuvBuffer = nullptr;
}

void HDSMLClient::initializeAllignedImageBuffers() {
  try {
    const int bytes = static_cast<int>(motionResH * motionResW * 1.5);
    yuvBuffer = new (std::nothrow) unsigned char[bytes];
    if (yuvBuffer == nullptr)
      throw std::runtime_error("Could not allocate memory for QVGA YUV image");
    yuvImage = cv::Mat(static_cast<int>(motionResH * 1.5), motionResW, CV_8UC1, yuvBuffer);
  } catch (const std::exception& e) {
    hdsml::logPrintf("Exception: %s\n", e.what());
  }
}

void HDSMLClient::setIntakeKernelPath(KernelPath path) {
  if (ClientExtensions* extensions = hdsml::findExtensions(this)) extensions->intakePath = path;
}

KernelPath HDSMLClient::intakeKernelPath() const {
  const ClientExtensions* extensions = hdsml::findExtensions(this);
  return extensions != nullptr ? extensions->intakePath : KernelPath::kPlain;
}

void HDSMLClient::log(std::string /*label*/, cv::Mat& /*image*/, bool /*flag*/) {}
