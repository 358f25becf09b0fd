// One sound the engine plays: its files (one after another, a number of
// times) at its volume, read in the format of one output. Each output reads
// its own copy, so that no output ever waits for another.
#pragma once

#include "audio/SoundSource.h"

#include <memory>
#include <string>
#include <vector>

namespace quillon::player {

// What a voice plays; the same for every output.
struct VoiceRequest {
  std::vector<std::wstring> files;
  long long loops = 1;  // 0: until stopped
  float gain = 1.0f;
};

// Where a voice stands, as an output saw it.
enum class VoiceEvent {
  FileStarted,
  Progress,  // more of the file was mixed
  FileEnded,
  Failed,
  Ended,     // the last file ended
  FirstBlockTaken,  // (of the engine) the effect took the first block
  OutputFailed,     // (of the engine) the microphone's thread ended: error says why; no voice plays on
};

class VoiceStream {
 public:
  VoiceStream(int id, VoiceRequest request, uint32_t rate, uint32_t channels);

  int Id() const { return id_; }
  // Adds up to `frames` frames of the voice to `mix`; fewer once it ended.
  // `report` is told of each file started and ended, and of a failure.
  template <typename Report>
  size_t AddTo(float* mix, size_t frames, Report&& report);
  bool Ended() const { return ended_; }

  // The file playing now, its index in the request, and its frames read so far.
  const std::wstring& File() const { return request_.files[index_]; }
  size_t FileIndex() const { return index_; }
  size_t FramesRead() const { return framesRead_; }
  const audio::SoundSource* Source() const { return source_.get(); }
  std::string Error() const { return error_; }

 private:
  // Opens the next file; false at the end or on a failure.
  bool Next(std::string& error);

  int id_;
  VoiceRequest request_;
  uint32_t rate_, channels_;
  std::unique_ptr<audio::SoundSource> source_;
  size_t index_ = 0;
  long long round_ = 0;
  bool started_ = false, ended_ = false;
  size_t framesRead_ = 0;
  std::string error_;
  std::vector<float> scratch_;
};

template <typename Report>
size_t VoiceStream::AddTo(float* mix, size_t frames, Report&& report) {
  size_t done = 0;
  while (done < frames && !ended_) {
    if (!source_) {
      if (!Next(error_)) {
        ended_ = true;
        if (!error_.empty()) report(*this, VoiceEvent::Failed);
        break;
      }
      report(*this, VoiceEvent::FileStarted);
    }
    const size_t want = frames - done;
    scratch_.resize(want * channels_);
    const size_t got = source_->Read(scratch_.data(), want);
    float* to = mix + done * channels_;
    for (size_t i = 0; i < got * channels_; ++i) to[i] += scratch_[i];
    done += got;
    framesRead_ += got;
    if (got < want) {  // the file ended (or failed) within this call
      if (source_->Failed()) {
        error_ = source_->Error();
        ended_ = true;
        report(*this, VoiceEvent::Failed);
        break;
      }
      report(*this, VoiceEvent::FileEnded);
      source_.reset();
    }
  }
  return done;
}

}  // namespace quillon::player
