// WAV file access of a lumx built without libsndfile (the Android build:
// AOSP has no libsndfile). Everything that names a WAV file (SendAudio's
// file, relay --play and --record) fails before the daemon is called, with a
// message that says why, and the exit code of an unreadable or uncreatable
// file; every other operation works as usual.
#include "wav_io.h"

#include "lumx_cli.h"

namespace lumx::cli {

namespace {
constexpr char kNoWav[] = "this lumx is built without WAV support (no libsndfile)";
}  // namespace

void SndFileCloser::operator()(SNDFILE*) const {}

int LoadSamples(const std::string& path, size_t, std::vector<int16_t>*, int*, std::string* error) {
  *error = "cannot read '" + path + "': " + kNoWav;
  return kExitNoInput;
}

int WavSource::Open(const std::string& path, std::string* error) {
  *error = "cannot read '" + path + "': " + kNoWav;
  return kExitNoInput;
}

// Nothing is ever open here.
size_t WavSource::Read(size_t, int16_t*) {
  if (!file_ || channels_ <= 0) return 0;
  return 0;
}

int WavSink::Create(const std::string& path, std::string* error) {
  *error = "cannot create '" + path + "': " + kNoWav;
  return kExitCantCreate;
}

bool WavSink::Write(const int16_t*, size_t) { return false; }

bool WavSink::Close() { return !failed_; }

}  // namespace lumx::cli
