#include "player/Voice.h"

#include <utility>

namespace quillon::player {

VoiceStream::VoiceStream(int id, VoiceSpec spec, uint32_t rate, uint32_t channels)
    : id_(id), spec_(std::move(spec)), rate_(rate), channels_(channels) {}

bool VoiceStream::Next(std::string& error) {
  if (started_ && ++index_ == spec_.files.size()) {
    index_ = 0;
    ++round_;
  }
  started_ = true;
  if (spec_.files.empty() || (spec_.loops != 0 && round_ >= spec_.loops)) {
    index_ = 0;
    return false;
  }
  auto source = std::make_unique<audio::SoundSource>();
  if (!source->Open(spec_.files[index_], error) || !source->Convert(rate_, channels_, spec_.gain, error)) return false;
  source_ = std::move(source);
  framesRead_ = 0;
  return true;
}

}  // namespace quillon::player
