// WAV files through libsndfile: looped sources for tap streams and
// recorders for injected audio. Samples travel as 32-bit integers scaled to
// full range (libsndfile's int interface), interleaved by frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

typedef struct sf_private_tag SNDFILE;

namespace lumx::dspsim {

class WavSource {
 public:
  ~WavSource();
  WavSource(const WavSource&) = delete;
  WavSource& operator=(const WavSource&) = delete;

  // nullptr with a message in `error` when the file cannot be used.
  static std::unique_ptr<WavSource> Open(const std::string& path, std::string* error);

  int channels() const { return channels_; }
  int sampleRate() const { return sampleRate_; }
  // Fills `frames` interleaved frames, starting over at the end of the file.
  // Read errors yield silence for the rest of the call; returns false then.
  bool Read(int32_t* dst, size_t frames);

 private:
  WavSource() = default;
  SNDFILE* file_ = nullptr;
  int channels_ = 0;
  int sampleRate_ = 0;
  int64_t frames_ = 0;
};

class WavRecorder {
 public:
  ~WavRecorder();
  WavRecorder(const WavRecorder&) = delete;
  WavRecorder& operator=(const WavRecorder&) = delete;

  // `bytesPerSample` 2, 3 or 4 selects 16-, 24- or 32-bit PCM.
  static std::unique_ptr<WavRecorder> Create(const std::string& path, int sampleRate, int channels,
                                             int bytesPerSample, std::string* error);
  bool Write(const int32_t* interleaved, size_t frames);
  int channels() const { return channels_; }
  int sampleRate() const { return sampleRate_; }
  int bytesPerSample() const { return bytesPerSample_; }

 private:
  WavRecorder() = default;
  SNDFILE* file_ = nullptr;
  int channels_ = 0;
  int sampleRate_ = 0;
  int bytesPerSample_ = 0;
};

}  // namespace lumx::dspsim
