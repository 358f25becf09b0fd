// A sound file turned into a stream's format as it is read: decoded, mapped
// to the stream's channels, resampled to its rate and scaled by a volume, a
// block at a time, so that memory stays the same however long the file is.
#pragma once

#include "audio/ChannelMap.h"
#include "audio/Resampler.h"
#include "audio/SoundFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quillon::audio {

class SoundSource {
 public:
  // Opens and checks the file (see SoundFile::OpenRead).
  bool Open(const std::wstring& path, std::string& error);
  // Sets the stream's format; call once after Open, before Read.
  bool Convert(uint32_t rate, uint32_t channels, float gain, std::string& error);
  // Plays only the file's part from `startMs` to `endMs` (0: to its end):
  // it seeks to the start where the format can (else decodes and drops up
  // to it), and fades 5 ms in at a cut start and 5 ms out at a cut end, so
  // that a cut in the middle of a wave does not click. Call after Convert,
  // before Read. A start at or past the end is refused with the reason.
  bool Trim(uint64_t startMs, uint64_t endMs, std::string& error);

  // Up to `frames` frames in the stream's format; 0 at the end of the sound.
  // After a decoding error it ends early and Failed() is true.
  size_t Read(float* out, size_t frames);
  bool Failed() const { return file_.Failed(); }
  std::string Error() const { return file_.Error(); }

  const SoundFile& File() const { return file_; }
  // Length in seconds, as the header announces it.
  double Seconds() const { return static_cast<double>(file_.Frames()) / file_.Rate(); }

 private:
  static constexpr size_t kBlockFrames = 4096;
  bool Refill();

  SoundFile file_;
  std::unique_ptr<ChannelMap> map_;
  Resampler resampler_;
  uint32_t channels_ = 0;
  float gain_ = 1.0f;
  bool ended_ = false;
  // The part played, in the file's frames from the trimmed start.
  uint64_t partFrames_ = UINT64_MAX, partRead_ = 0;
  uint64_t fadeInFrames_ = 0, fadeOutFrames_ = 0;
  size_t pending_ = 0;  // frames at the front of decoded_ read ahead by Trim's check
  std::vector<float> decoded_, mapped_, ready_;
  size_t readyFrom_ = 0;  // samples of ready_ already handed out
};

}  // namespace quillon::audio
