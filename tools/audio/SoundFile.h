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
  // Opens `path` for reading (any length of path; other programs may read,
  // rename and delete the file meanwhile) and checks it: a container that
  // declares more sound than it holds (WAV, AIFF, FLAC) counts as truncated;
  // one that declares no length (MP3 without a length tag, Ogg) is taken as
  // it comes, without reading it through. On failure returns false with the
  // reason.
  bool OpenRead(const std::wstring& path, std::string& error);
  // Creates (or replaces) a 32-bit float WAV.
  bool OpenWrite(const std::wstring& path, uint32_t rate, uint32_t channels, std::string& error);

  uint32_t Rate() const { return static_cast<uint32_t>(info_.samplerate); }
  uint32_t Channels() const { return static_cast<uint32_t>(info_.channels); }
  // Frames the header announces (an estimate for an MP3 without a length tag).
  int64_t Frames() const { return info_.frames; }
  // Whether Frames() is the file's own word on its length rather than a guess.
  bool LengthDeclared() const { return declared_; }
  // "MP3", "WAV 24-bit", "FLAC 16-bit", "Ogg Opus"...
  std::string FormatName() const;

  // Reads up to `frames` frames; fewer only at the end or on a decoding error
  // (then Failed() is true and Error() says why). A file whose container
  // declares its length and that ends before it fails too.
  size_t Read(float* samples, size_t frames);
  bool Failed() const { return failed_; }
  std::string Error() const;
  // Moves to `frame` from the start, where the format can seek; false (and
  // nothing moved) where it cannot.
  bool Seek(int64_t frame);

  bool Write(const float* samples, size_t frames);

 private:
  struct Closer {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  struct Stream;  // the file's handle, read by libsndfile through callbacks
  struct StreamCloser {
    void operator()(Stream* stream) const;
  };
  bool CheckWhole(std::string& error);
  // WAV, AIFF, FLAC and the like: a length in the header that the sound must fill.
  bool HeaderBindsLength() const;

  std::unique_ptr<Stream, StreamCloser> stream_;  // outlives file_, which reads through it
  std::unique_ptr<SNDFILE, Closer> file_;
  SF_INFO info_{};
  bool failed_ = false, declared_ = false;
  int64_t read_ = 0;   // frames read so far
  std::string error_;  // ours, when libsndfile saw nothing wrong
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
