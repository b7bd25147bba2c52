// LumxService: buffer discovery, the buffer listings, StartIo/StopIo, and the
// Debug commands with capture and dump.
//
// The registries are guarded by mutex_. The listings, the Debug commands and
// capture take it only around their map accesses, so a device deletion on the
// event thread cannot destroy a buffer under them; handleEnableBuffers pins
// the buffers it found and enables them without mutex_, because an enable
// may retry the open for about four seconds and a disable joins I/O threads.
#include <glob.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/dev_root.h"
#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"

namespace {

constexpr const char* kTapOutPrefix = "/zch-lumx_tapout";
constexpr const char* kInjectPrefix = "/zch-lumx_inject";
constexpr int kScanAttempts = 5;
constexpr unsigned kScanDelayUs = 500000;
constexpr const char* kDefaultCapturePrefix = "/tmp/lumx_capture";

// The buffer id of a device suffix, or -1 when the device is to be skipped:
// atoi's reading, negative values refused, 0 only for the suffix "0".
int SuffixToId(const std::string& suffix) {
  const int id = atoi(suffix.c_str());
  if (id < 0) return -1;
  if (id == 0 && suffix != "0") return -1;
  return id;
}

struct FoundDevice {
  std::string suffix;
  std::string path;
};

// Expands LumxDevRoot() + prefix + "*" (sorted by name) into `found`, each
// path with the text that follows the prefix. Returns glob's code.
int ScanDevices(const char* prefix, std::vector<FoundDevice>& found) {
  const std::string base = LumxDevRoot() + prefix;
  const std::string pattern = base + "*";
  glob_t matches = {};
  const int rc = glob(pattern.c_str(), 0, nullptr, &matches);
  if (rc == 0) {
    for (size_t i = 0; i < matches.gl_pathc; ++i) {
      const std::string path = matches.gl_pathv[i];
      found.push_back({path.substr(base.size()), path});
    }
  }
  globfree(&matches);
  return rc;
}

}  // namespace

// ---- Discovery ----

int LumxService::initLumBuffers() {
  dropBuffersLocked();

  std::vector<FoundDevice> tapOuts;
  if (ScanDevices(kTapOutPrefix, tapOuts) != 0) {
    LUMX_LOGE("Error scanning for lumx devices %s", (LumxDevRoot() + kTapOutPrefix + "*").c_str());
    LUMX_LOGE("Error initializing lumx buffers");
    dropBuffersLocked();
    return -1;
  }
  // No inject device is not an error: the map simply stays empty.
  std::vector<FoundDevice> injects;
  ScanDevices(kInjectPrefix, injects);

  lumx::MutexLock registryLock(&registryMutex_);
  for (const FoundDevice& device : tapOuts) {
    const int id = SuffixToId(device.suffix);
    if (id < 0) continue;
    // try_emplace builds no buffer for an id already taken: the first path in
    // name order keeps it.
    tapOutBuffers_.try_emplace(id, "tapout" + device.suffix, device.path, static_cast<unsigned>(id), this, true);
  }
  for (const FoundDevice& device : injects) {
    const int id = SuffixToId(device.suffix);
    if (id < 0) continue;
    injectBuffers_.try_emplace(id, "inject" + device.suffix, device.path, static_cast<unsigned>(id), this, false);
  }
  return 0;
}

void LumxService::initLumBuffersWithRetry() {
  size_t tapOuts = 0;
  size_t injects = 0;
  for (int attempt = 0; attempt < kScanAttempts; ++attempt) {
    usleep(kScanDelayUs);
    lumx::MutexLock lock(&mutex_);
    const int rc = initLumBuffers();
    tapOuts = tapOutBuffers_.size();
    injects = injectBuffers_.size();
    if (rc == 0 && tapOuts != 0 && injects != 0) break;
  }
  LUMX_LOGI("Found %u tap-out buffer%s, %u inject buffer%s", static_cast<unsigned>(tapOuts),
            tapOuts == 1 ? "" : "s", static_cast<unsigned>(injects), injects == 1 ? "" : "s");
}

// ---- Listings ----

::ndk::ScopedAStatus LumxService::ListTapOutBuffers(CommandResult* result) {
  LUMX_LOGI("%s", "ListTapOutBuffers");
  result->strList.push_back("Tap-out buffers:");
  {
    lumx::MutexLock lock(&mutex_);
    if (tapOutBuffers_.empty()) {
      result->strList.push_back("  none");
    } else {
      char line[256];
      snprintf(line, sizeof line, "  %-9s %-9s %-9s %-9s %s", "Id", "Name", "InProc", "OutProc", "Enabled");
      result->strList.push_back(line);
      for (const auto& [id, buffer] : tapOutBuffers_) {
        snprintf(line, sizeof line, "  %-9d %-9s %-9s %-9s %-9u", id, buffer.name().c_str(),
                 buffer.GetInputAsString().c_str(), buffer.GetOutputsAsString().c_str(),
                 buffer.isEnabled() ? 1u : 0u);
        result->strList.push_back(line);
      }
    }
  }
  print_aidl_return("ListTapOutBuffers", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ListInjectBuffers(CommandResult* result) {
  LUMX_LOGI("%s", "ListInjectBuffers");
  result->strList.push_back("Inject buffers:");
  {
    lumx::MutexLock lock(&mutex_);
    if (injectBuffers_.empty()) {
      result->strList.push_back("  none");
    } else {
      char line[256];
      snprintf(line, sizeof line, "  %-9s %-9s %-9s %-9s %-9s", "Id", "Name", "InProc", "OutProc", "Enabled");
      result->strList.push_back(line);
      for (const auto& [id, buffer] : injectBuffers_) {
        snprintf(line, sizeof line, "  %-9u %-9s %-9s %-9s %-9u", static_cast<unsigned>(id),
                 buffer.name().c_str(), buffer.GetInputAsString().c_str(),
                 buffer.GetOutputsAsString().c_str(), buffer.isEnabled() ? 1u : 0u);
        result->strList.push_back(line);
      }
    }
  }
  print_aidl_return("ListInjectBuffers", result);
  return ::ndk::ScopedAStatus::ok();
}

// ---- I/O control ----

void LumxService::handleEnableBuffers(bool enable, int id, CommandResult* result) {
  const char* verb = enable ? "Enable" : "Disable";
  char line[96];
  if (id != -1) {
    snprintf(line, sizeof line, "%s tap-out buffer %d", verb, id);
  } else {
    snprintf(line, sizeof line, "%s all buffers", verb);
  }
  result->strList.push_back(line);

  // Collect and pin under mutex_; enable without it.
  std::vector<LumxBuffer*> buffers;
  {
    lumx::MutexLock lock(&mutex_);
    if (id == -1) {
      for (auto& entry : tapOutBuffers_) buffers.push_back(&entry.second);
      for (auto& entry : injectBuffers_) buffers.push_back(&entry.second);
    } else {
      auto it = tapOutBuffers_.find(id);
      if (it != tapOutBuffers_.end()) {
        buffers.push_back(&it->second);
        std::vector<LumxProcessor*> outputs;
        it->second.GetOutputs(outputs);
        for (LumxProcessor* p : outputs) {
          LumxBuffer* out = p->output();
          if (out != nullptr) buffers.push_back(out);
        }
      }
    }
    for (LumxBuffer* b : buffers) b->AcquireUse();
    if (buffers.empty()) {
      updateWakeLock(result);
    }
  }
  if (buffers.empty()) {
    print_aidl_return("handleEnableBuffers", result);
    return;
  }

  int failures = 0;
  for (LumxBuffer* b : buffers) {
    const int status = b->Enable(enable);
    if (status != 0) {
      snprintf(line, sizeof line, "%s failed to %s, status %d", b->name().c_str(), enable ? "enable" : "disable",
               status);
      result->strList.push_back(line);
      ++failures;
    }
    b->ReleaseUse();
  }

  {
    lumx::MutexLock lock(&mutex_);
    updateWakeLock(result);
  }
  if (failures != 0) result->status = CommandResult::Status::ERROR;
  print_aidl_return("handleEnableBuffers", result);
}

::ndk::ScopedAStatus LumxService::StartIo(int32_t id, CommandResult* result) {
  handleEnableBuffers(true, id, result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::StopIo(int32_t id, CommandResult* result) {
  handleEnableBuffers(false, id, result);
  return ::ndk::ScopedAStatus::ok();
}

// ---- Capture ----

void LumxService::captureStart(const std::string& prefix, CommandResult* result) {
  const std::string base = prefix.empty() ? std::string(kDefaultCapturePrefix) : prefix;
  lumx::MutexLock lock(&mutex_);
  for (auto* map : {&tapOutBuffers_, &injectBuffers_}) {
    for (auto& entry : *map) {
      std::string line;
      entry.second.CaptureStart(base + "_" + entry.second.name() + ".wav", line);
      result->strList.push_back(line);
    }
  }
}

void LumxService::captureStop(CommandResult* result) {
  lumx::MutexLock lock(&mutex_);
  for (auto* map : {&tapOutBuffers_, &injectBuffers_}) {
    for (auto& entry : *map) {
      std::string line;
      entry.second.CaptureStop(line);
      result->strList.push_back(line);
    }
  }
}

// ---- Debug ----

::ndk::ScopedAStatus LumxService::Debug(const std::vector<std::string>& args, CommandResult* result) {
  std::string echo = "Debug";
  for (const std::string& word : args) echo += " " + word;
  LUMX_LOGI("%s", echo.c_str());
  result->strList.push_back(echo);

  const std::string command = args.empty() ? std::string("help") : args[0];
  if (command == "help") {
    result->strList.push_back("debug commands:");
    result->strList.push_back("  buffer_init");
    result->strList.push_back("  buffer_deinit");
    result->strList.push_back("  buffer_dump <tapout|inject> <n>");
    result->strList.push_back("  log_start <file prfx>");
    result->strList.push_back("  log_stop <file prfx>");
  } else if (command == "buffer_init") {
    lumx::MutexLock lock(&mutex_);
    // A failed scan leaves both maps empty; the command still succeeds.
    initLumBuffers();
  } else if (command == "buffer_deinit") {
    lumx::MutexLock lock(&mutex_);
    dropBuffersLocked();
  } else if (command == "buffer_dump") {
    const auto invalid = CommandResult::Status::INVALID_PARAMETER;
    if (args.size() != 3) {
      result->status = invalid;
    } else {
      const int id = atoi(args[2].c_str());
      if (id == 0 && args[2] != "0") {
        result->status = invalid;
      } else if (args[1] != "tapout" && args[1] != "inject") {
        result->status = invalid;
      } else {
        lumx::MutexLock lock(&mutex_);
        auto& map = args[1] == "tapout" ? tapOutBuffers_ : injectBuffers_;
        auto it = map.find(id);
        if (it == map.end()) {
          result->status = invalid;
        } else {
          it->second.DumpBuffer();
        }
      }
    }
  } else if (command == "log_start") {
    captureStart(args.size() > 1 ? args[1] : std::string(), result);
  } else if (command == "log_stop") {
    captureStop(result);
  } else {
    result->status = CommandResult::Status::INVALID_PARAMETER;
  }
  print_aidl_return("Debug", result);
  return ::ndk::ScopedAStatus::ok();
}
