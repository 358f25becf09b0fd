#include "player/PreviewPlayer.h"

namespace quillon::player {

std::unique_ptr<PreviewPlayer> PreviewPlayer::Start(const PlaybackDevice& device, bool followDefault, float deviceGain,
                                                    const VoiceRequest& request, std::string& error) {
  std::unique_ptr<PreviewPlayer> preview(new PreviewPlayer());
  MonitorOutput::Options options;
  options.gain = deviceGain;
  options.followDefault = followDefault;
  // A device that fails while it plays just ends the preview.
  preview->output_ = MonitorOutput::Open(device, options, [](const std::string&) {}, error);
  if (!preview->output_) return nullptr;
  OutputFormat format;
  uint64_t stream = 0;
  if (!preview->output_->Current(format, stream)) {
    error = "the playback device stopped";
    return nullptr;
  }
  // Two seconds decoded ahead, a twentieth before it is heard.
  format.aheadFrames = format.rate * 2;
  format.primeFrames = format.rate / 20;
  preview->voice_ = std::make_unique<Voice>(1, request, std::vector<OutputFormat>{format});
  PreviewPlayer* self = preview.get();
  preview->voice_->Start([self, stream] {
    const std::lock_guard<std::mutex> hold(self->lock_);
    if (self->ending_ || !self->output_->Add({&self->voice_->Feed(0)}, stream)) self->voice_->Feed(0).Release(true);
  });
  return preview;
}

PreviewPlayer::~PreviewPlayer() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    ending_ = true;
  }
  if (voice_) voice_->Stop();
  output_.reset();  // its thread no longer reads the voice
  voice_.reset();   // whose decoder is joined
}

bool PreviewPlayer::Done() const { return !voice_ || voice_->Feed(0).Released(); }

std::string PreviewPlayer::Error() const {
  if (!voice_) return "";
  for (const Voice::Mark& mark : voice_->MarksFrom(0)) {
    if (mark.kind == Voice::Mark::Kind::Failed) return mark.error;
  }
  return "";
}

}  // namespace quillon::player
