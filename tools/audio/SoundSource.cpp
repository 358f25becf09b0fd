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

// Decodes one block into ready_, or drains the resampler at the end.
bool SoundSource::Refill() {
  if (ended_) return false;
  ready_.erase(ready_.begin(), ready_.begin() + static_cast<ptrdiff_t>(readyFrom_));
  readyFrom_ = 0;
  const size_t frames = file_.Read(decoded_.data(), kBlockFrames);
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
