#include "wav_io.h"

#include <sndfile.h>

#include "lumx_cli.h"
#include "relay_stats.h"

namespace lumx::cli {

void SndFileCloser::operator()(SNDFILE* f) const {
  if (f) sf_close(f);
}

int LoadSamples(const std::string& path, size_t maxBytes,
                std::vector<int16_t>* samples, int* channels,
                std::string* error) {
  SF_INFO info{};
  SndFilePtr file(sf_open(path.c_str(), SFM_READ, &info));
  if (!file) {
    *error = "cannot read '" + path + "': " + sf_strerror(nullptr);
    return kExitNoInput;
  }
  if (info.channels <= 0 || info.frames < 0 ||
      static_cast<uint64_t>(info.frames) * static_cast<uint64_t>(info.channels) *
              2 >
          maxBytes) {
    *error = "'" + path + "' holds more than " + std::to_string(maxBytes) +
             " bytes of 16-bit audio";
    return kExitDataErr;
  }
  samples->assign(static_cast<size_t>(info.frames) * info.channels, 0);
  sf_count_t got = sf_readf_short(file.get(), samples->data(), info.frames);
  if (got < 0) got = 0;
  samples->resize(static_cast<size_t>(got) * info.channels);
  *channels = info.channels;
  return 0;
}

int WavSource::Open(const std::string& path, std::string* error) {
  SF_INFO info{};
  file_.reset(sf_open(path.c_str(), SFM_READ, &info));
  if (!file_) {
    *error = "cannot read '" + path + "': " + sf_strerror(nullptr);
    return kExitNoInput;
  }
  if (info.samplerate != static_cast<int>(kRelaySampleRate) ||
      info.channels <= 0) {
    *error = "'" + path + "' is " + std::to_string(info.samplerate) +
             " Hz; the relay plays 48000 Hz audio";
    file_.reset();
    return kExitDataErr;
  }
  channels_ = info.channels;
  return 0;
}

size_t WavSource::Read(size_t frames, int16_t* out) {
  if (!file_ || frames == 0) return 0;
  if (channels_ == 1) {
    sf_count_t got = sf_readf_short(file_.get(), out, static_cast<sf_count_t>(frames));
    return got > 0 ? static_cast<size_t>(got) : 0;
  }
  frameBuffer_.resize(frames * static_cast<size_t>(channels_));
  sf_count_t got = sf_readf_short(file_.get(), frameBuffer_.data(),
                                  static_cast<sf_count_t>(frames));
  if (got <= 0) return 0;
  for (sf_count_t k = 0; k < got; ++k) {
    out[k] = frameBuffer_[static_cast<size_t>(k) * channels_];
  }
  return static_cast<size_t>(got);
}

int WavSink::Create(const std::string& path, std::string* error) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(kRelaySampleRate);
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  file_.reset(sf_open(path.c_str(), SFM_WRITE, &info));
  if (!file_) {
    *error = "cannot create '" + path + "': " + sf_strerror(nullptr);
    return kExitCantCreate;
  }
  return 0;
}

bool WavSink::Write(const int16_t* samples, size_t count) {
  if (!file_ || failed_) return false;
  sf_count_t put =
      sf_write_short(file_.get(), samples, static_cast<sf_count_t>(count));
  if (put != static_cast<sf_count_t>(count)) failed_ = true;
  return !failed_;
}

bool WavSink::Close() {
  if (file_) {
    SNDFILE* f = file_.release();
    if (sf_close(f) != 0) failed_ = true;
  }
  return !failed_;
}

}  // namespace lumx::cli
