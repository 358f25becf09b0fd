#include "audio/SoundSource.h"

#include <algorithm>

namespace quillon::audio {

bool SoundSource::Open(const std::wstring& path, std::string& error) { return file_.OpenRead(path, error); }

bool SoundSource::Convert(uint32_t rate, uint32_t channels, float gain, std::string& error) {
  channels_ = channels;
  gain_ = gain;
  map_ = std::make_unique<ChannelMap>(file_.Channels(), channels);
  decoded_.resize(kBlockFrames * file_.Channels());
  mapped_.resize(kBlockFrames * channels);
  return resampler_.Open(file_.Rate(), rate, channels, error);
}

bool SoundSource::Trim(uint64_t startMs, uint64_t endMs, std::string& error) {
  const uint64_t rate = file_.Rate();
  const uint64_t start = startMs * rate / 1000, end = endMs * rate / 1000;
  if (endMs != 0 && end <= start) {
    error = "the end (" + std::to_string(endMs) + " ms) is not after the start (" + std::to_string(startMs) + " ms)";
    return false;
  }
  const uint64_t fade = rate * 5 / 1000;
  if (start > 0) {
    if (!file_.Seek(static_cast<int64_t>(start))) {
      // A stream that cannot seek: decoded up to the start, and dropped.
      for (uint64_t left = start; left > 0;) {
        const size_t got = file_.Read(decoded_.data(), static_cast<size_t>(std::min<uint64_t>(left, kBlockFrames)));
        if (got == 0) break;
        left -= got;
      }
    }
    fadeInFrames_ = fade;
  }
  if (endMs != 0) {
    partFrames_ = end - start;
    fadeOutFrames_ = fade;
  }
  // A start at or past the end of the sound leaves nothing to play.
  const size_t probe = file_.Read(decoded_.data(), 1);
  if (probe == 0) {
    error = file_.Failed() ? file_.Error() : "the start (" + std::to_string(startMs) + " ms) is at or past the sound's end";
    return false;
  }
  pending_ = 1;  // that frame is the first played
  return true;
}

// Decodes one block into ready_, or drains the resampler at the end.
bool SoundSource::Refill() {
  if (ended_) return false;
  ready_.erase(ready_.begin(), ready_.begin() + static_cast<ptrdiff_t>(readyFrom_));
  readyFrom_ = 0;
  // The frame a trim's probe read waits at the front of decoded_.
  const size_t room = static_cast<size_t>(std::min<uint64_t>(kBlockFrames, partFrames_ - partRead_));
  size_t frames = std::min(pending_, room);
  pending_ = 0;
  if (room > frames) frames += file_.Read(decoded_.data() + frames * file_.Channels(), room - frames);
  // Fades where the file was cut: in over the first frames, out over the last.
  if (fadeInFrames_ > 0 || fadeOutFrames_ > 0) {
    const uint32_t fileChannels = file_.Channels();
    for (size_t f = 0; f < frames; ++f) {
      const uint64_t at = partRead_ + f;
      float gain = 1.0f;
      if (at < fadeInFrames_) gain = (static_cast<float>(at) + 0.5f) / static_cast<float>(fadeInFrames_);
      if (partFrames_ != UINT64_MAX && partFrames_ - at <= fadeOutFrames_) {
        gain = std::min(gain, (static_cast<float>(partFrames_ - at) - 0.5f) / static_cast<float>(fadeOutFrames_));
      }
      if (gain < 1.0f) {
        for (uint32_t c = 0; c < fileChannels; ++c) decoded_[f * fileChannels + c] *= gain;
      }
    }
  }
  partRead_ += frames;
  if (frames == 0) {
    ended_ = true;
    resampler_.Finish(ready_);
  } else {
    map_->Apply(decoded_.data(), frames, mapped_.data());
    if (gain_ != 1.0f) {
      for (size_t i = 0; i < frames * channels_; ++i) mapped_[i] *= gain_;
    }
    resampler_.Process(mapped_.data(), frames, ready_);
  }
  return true;
}

size_t SoundSource::Read(float* out, size_t frames) {
  size_t done = 0;
  while (done < frames) {
    const size_t available = (ready_.size() - readyFrom_) / channels_;
    if (available == 0) {
      if (!Refill()) break;
      continue;
    }
    const size_t n = std::min(available, frames - done);
    std::copy_n(ready_.begin() + static_cast<ptrdiff_t>(readyFrom_), n * channels_, out + done * channels_);
    readyFrom_ += n * channels_;
    done += n;
  }
  return done;
}

}  // namespace quillon::audio
