// WAV file access for lumx and the conversion between 16-bit samples and the
// little-endian bytes of an AudioPacket.
//
// WAV files go through libsndfile (wav_io.cpp). A build without it (the
// Android one: AOSP has no libsndfile) links wav_io_none.cpp instead, where
// every file operation fails with a message that says so; the byte
// conversions (sample_bytes.cpp) are the same in both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

typedef struct sf_private_tag SNDFILE;

namespace lumx::cli {

struct SndFileCloser {
  void operator()(SNDFILE* f) const;
};
using SndFilePtr = std::unique_ptr<SNDFILE, SndFileCloser>;

// Little-endian 16-bit samples, as AudioPacket::data carries them.
std::vector<uint8_t> SamplesToBytes(const int16_t* samples, size_t count);
// The reverse; an odd trailing byte is ignored.
std::vector<int16_t> BytesToSamples(const uint8_t* bytes, size_t size);

// Reads a whole audio file as interleaved 16-bit samples. Returns 0, or the
// exit code for the failure (kExitNoInput: cannot open; kExitDataErr: more
// than `maxBytes` of 16-bit sample data) with `error` set.
int LoadSamples(const std::string& path, size_t maxBytes,
                std::vector<int16_t>* samples, int* channels,
                std::string* error);

// Reads the first channel of a 48 kHz file, block by block.
class WavSource {
 public:
  // 0, or kExitNoInput / kExitDataErr with `error` set.
  int Open(const std::string& path, std::string* error);
  // Fills `out` with up to `frames` samples of the first channel; returns
  // how many were read (0 at the end of the file).
  size_t Read(size_t frames, int16_t* out);

 private:
  SndFilePtr file_;
  int channels_ = 1;
  std::vector<int16_t> frameBuffer_;
};

// Writes a 48 kHz, 16-bit, mono WAV file.
class WavSink {
 public:
  // 0, or kExitCantCreate with `error` set.
  int Create(const std::string& path, std::string* error);
  // False once a write has failed (the file is then incomplete).
  bool Write(const int16_t* samples, size_t count);
  // Finishes the header; false if that or any write failed.
  bool Close();
  bool failed() const { return failed_; }

 private:
  SndFilePtr file_;
  bool failed_ = false;
};

}  // namespace lumx::cli
