// WAV files of a lumx-dspsim built without libsndfile (the Soong host build:
// AOSP has no libsndfile). A --wav source or --record file is refused at
// start-up with a message that says why; generated tones and every other
// option work as usual.
#include "tools/lumx-dspsim/wav_io.h"

#include <cstring>

namespace lumx::dspsim {

namespace {
constexpr char kNoWav[] = ": this lumx-dspsim is built without WAV support (no libsndfile)";
}  // namespace

WavSource::~WavSource() = default;

std::unique_ptr<WavSource> WavSource::Open(const std::string& path, std::string* error) {
  *error = path + kNoWav;
  return nullptr;
}

// Nothing is ever open here: silence, and false as for a read error.
bool WavSource::Read(int32_t* dst, size_t frames) {
  if (file_ == nullptr || frames_ <= 0) {
    std::memset(dst, 0, frames * static_cast<size_t>(channels_) * sizeof(int32_t));
  }
  return false;
}

WavRecorder::~WavRecorder() = default;

std::unique_ptr<WavRecorder> WavRecorder::Create(const std::string& path, int, int, int,
                                                 std::string* error) {
  *error = path + kNoWav;
  return nullptr;
}

bool WavRecorder::Write(const int32_t*, size_t) { return file_ != nullptr; }

}  // namespace lumx::dspsim
