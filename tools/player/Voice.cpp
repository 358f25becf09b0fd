#include "player/Voice.h"

#include <utility>

namespace quillon::player {

VoiceStream::VoiceStream(int id, VoiceRequest request, uint32_t rate, uint32_t channels)
    : id_(id), request_(std::move(request)), rate_(rate), channels_(channels) {}

bool VoiceStream::Next(std::string& error) {
  if (started_ && ++index_ == request_.files.size()) {
    index_ = 0;
    ++round_;
  }
  started_ = true;
  if (request_.files.empty() || (request_.loops != 0 && round_ >= request_.loops)) {
    index_ = 0;
    return false;
  }
  auto source = std::make_unique<audio::SoundSource>();
  if (!source->Open(request_.files[index_], error) || !source->Convert(rate_, channels_, request_.gain, error)) return false;
  source_ = std::move(source);
  framesRead_ = 0;
  return true;
}

}  // namespace quillon::player
