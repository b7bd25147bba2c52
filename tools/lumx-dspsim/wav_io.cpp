#include "tools/lumx-dspsim/wav_io.h"

#include <sndfile.h>

#include <cstring>

namespace lumx::dspsim {

WavSource::~WavSource() {
  if (file_ != nullptr) sf_close(file_);
}

std::unique_ptr<WavSource> WavSource::Open(const std::string& path, std::string* error) {
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (f == nullptr) {
    *error = path + ": " + sf_strerror(nullptr);
    return nullptr;
  }
  if (info.channels < 1 || info.samplerate < 1) {
    sf_close(f);
    *error = path + ": no audio channels";
    return nullptr;
  }
  std::unique_ptr<WavSource> src(new WavSource());
  src->file_ = f;
  src->channels_ = info.channels;
  src->sampleRate_ = info.samplerate;
  src->frames_ = info.frames;
  return src;
}

bool WavSource::Read(int32_t* dst, size_t frames) {
  size_t done = 0;
  bool ok = true;
  int restarts = 0;
  while (done < frames) {
    sf_count_t n = 0;
    if (frames_ > 0) {
      n = sf_readf_int(file_, dst + done * static_cast<size_t>(channels_),
                       static_cast<sf_count_t>(frames - done));
    }
    if (n > 0) {
      done += static_cast<size_t>(n);
      restarts = 0;
      continue;
    }
    // End of file (or an empty file): loop, but give up if even a fresh
    // start yields nothing.
    if (frames_ <= 0 || restarts > 0 || sf_seek(file_, 0, SEEK_SET) < 0) {
      ok = frames_ <= 0;
      std::memset(dst + done * static_cast<size_t>(channels_), 0,
                  (frames - done) * static_cast<size_t>(channels_) * sizeof(int32_t));
      break;
    }
    ++restarts;
  }
  return ok;
}

WavRecorder::~WavRecorder() {
  if (file_ != nullptr) sf_close(file_);
}

std::unique_ptr<WavRecorder> WavRecorder::Create(const std::string& path, int sampleRate,
                                                 int channels, int bytesPerSample,
                                                 std::string* error) {
  int sub;
  switch (bytesPerSample) {
    case 2:
      sub = SF_FORMAT_PCM_16;
      break;
    case 3:
      sub = SF_FORMAT_PCM_24;
      break;
    case 4:
      sub = SF_FORMAT_PCM_32;
      break;
    default:
      *error = path + ": cannot record " + std::to_string(bytesPerSample) + "-byte samples";
      return nullptr;
  }
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  info.samplerate = sampleRate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | sub;
  if (channels < 1 || sampleRate < 1 || !sf_format_check(&info)) {
    *error = path + ": unsupported format (" + std::to_string(sampleRate) + " Hz, " +
             std::to_string(channels) + " ch)";
    return nullptr;
  }
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  if (f == nullptr) {
    *error = path + ": " + sf_strerror(nullptr);
    return nullptr;
  }
  std::unique_ptr<WavRecorder> rec(new WavRecorder());
  rec->file_ = f;
  rec->channels_ = channels;
  rec->sampleRate_ = sampleRate;
  rec->bytesPerSample_ = bytesPerSample;
  return rec;
}

bool WavRecorder::Write(const int32_t* interleaved, size_t frames) {
  sf_count_t n = sf_writef_int(file_, interleaved, static_cast<sf_count_t>(frames));
  return n == static_cast<sf_count_t>(frames);
}

}  // namespace lumx::dspsim
