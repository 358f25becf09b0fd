// A sound file read or written through libsndfile: any format it knows
// (WAV in every variant, FLAC, Ogg Vorbis, Opus, MP3 and more), frames of
// interleaved float samples.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quillon::audio {

class SoundFile {
 public:
  // Opens `path` for reading and checks that the whole of it can be read: a
  // header that promises more than the file holds, or an end that cannot be
  // reached, counts as truncated. On failure returns false with the reason.
  bool OpenRead(const std::wstring& path, std::string& error);
  // Creates (or replaces) a 32-bit float WAV.
  bool OpenWrite(const std::wstring& path, uint32_t rate, uint32_t channels, std::string& error);

  uint32_t Rate() const { return static_cast<uint32_t>(info_.samplerate); }
  uint32_t Channels() const { return static_cast<uint32_t>(info_.channels); }
  // Frames the header announces (an estimate for some MP3 files).
  int64_t Frames() const { return info_.frames; }
  // "MP3", "WAV 24-bit", "FLAC 16-bit", "Ogg Opus"...
  std::string FormatName() const;

  // Reads up to `frames` frames; fewer only at the end or on a decoding error
  // (then Failed() is true and Error() says why).
  size_t Read(float* samples, size_t frames);
  bool Failed() const { return failed_; }
  std::string Error() const;

  bool Write(const float* samples, size_t frames);

 private:
  struct Closer {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  bool CheckWhole(std::string& error);

  std::unique_ptr<SNDFILE, Closer> file_;
  SF_INFO info_{};
  bool failed_ = false;
};

// A whole file as float samples, for the host and the tests.
struct Sound {
  uint32_t rate = 0;
  uint32_t channels = 0;
  std::vector<float> samples;  // interleaved
};
bool ReadSound(const std::wstring& path, Sound& sound, std::string& error);
bool WriteSound(const std::wstring& path, const Sound& sound, std::string& error);

}  // namespace quillon::audio
