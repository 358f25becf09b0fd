#include "player/Voice.h"

#include <algorithm>
#include <utility>

namespace quillon::player {
namespace {

// Frames decoded at a time: small enough that every output's feed and a stop
// are looked at often, large enough to decode efficiently.
constexpr size_t kFillFrames = 2048;
// How long the decoder sleeps when every feed is full.
constexpr DWORD kIdleMs = 10;

}  // namespace

Voice::Voice(int id, VoiceRequest request, const std::vector<OutputFormat>& outputs)
    : id_(id), request_(std::move(request)), outputs_(outputs), wake_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
  for (const OutputFormat& output : outputs_) {
    auto lane = std::make_unique<Lane>();
    lane->feed = std::make_unique<VoiceFeed>(id, output.channels, std::max(output.aheadFrames, kFillFrames));
    lane->scratch.resize(kFillFrames * output.channels);
    lanes_.push_back(std::move(lane));
  }
}

Voice::~Voice() {
  Stop();
  if (thread_.joinable()) thread_.join();
}

void Voice::Start(std::function<void()> ready) {
  thread_ = std::thread([this, ready = std::move(ready)] { Run(ready); });
}

void Voice::Stop() {
  stop_ = true;
  SetEvent(wake_.Get());
}

std::vector<Voice::Mark> Voice::MarksFrom(size_t from) const {
  std::lock_guard<std::mutex> lock(marksLock_);
  return from < marks_.size() ? std::vector<Mark>(marks_.begin() + static_cast<ptrdiff_t>(from), marks_.end())
                              : std::vector<Mark>{};
}

void Voice::Note(size_t output, Mark mark) {
  if (output != 0) return;  // what the first output plays is what is reported
  std::lock_guard<std::mutex> lock(marksLock_);
  marks_.push_back(std::move(mark));
}

bool Voice::OpenNext(size_t output) {
  Lane& lane = *lanes_[output];
  if (lane.started && ++lane.index == request_.files.size()) {
    lane.index = 0;
    ++lane.round;
    // A round that yielded no sound would yield none again: the voice ends.
    if (lane.roundFrames == 0) return false;
    lane.roundFrames = 0;
  }
  lane.started = true;
  if (request_.files.empty() || (request_.loops != 0 && lane.round >= request_.loops)) return false;
  auto source = std::make_unique<audio::SoundSource>();
  std::string error;
  const OutputFormat& format = outputs_[output];
  const bool trimmed = request_.startMs != 0 || request_.endMs != 0;
  if (!source->Open(request_.files[lane.index], error) ||
      !source->Convert(format.rate, format.channels,
                       request_.gain * (lane.index < request_.fileGains.size() ? request_.fileGains[lane.index] : 1.0f),
                       error) ||
      (trimmed && !source->Trim(request_.startMs, request_.endMs, error))) {
    Note(output, {Mark::Kind::Failed, lane.written, lane.index, "", 0, 0, 0, error});
    return false;
  }
  const audio::SoundFile& file = source->File();
  Note(output, {Mark::Kind::Started, lane.written, lane.index, file.FormatName(), file.Rate(), file.Channels(),
                file.LengthDeclared() ? source->Seconds() : 0.0, ""});
  lane.fileFrom = lane.written;
  lane.source = std::move(source);
  return true;
}

void Voice::Finish(Lane& lane) {
  lane.done = true;
  lane.source.reset();  // the file is closed as soon as nothing more is read of it
  lane.feed->Decoded();
}

bool Voice::Fill(size_t output) {
  Lane& lane = *lanes_[output];
  if (lane.done) return false;
  const uint32_t channels = outputs_[output].channels;
  const size_t room = lane.feed->Ring().Room() / channels;
  if (room < std::min<size_t>(kFillFrames, lane.feed->Ring().Capacity() / channels)) return false;
  if (!lane.source && !OpenNext(output)) {
    Finish(lane);
    return false;
  }
  const size_t want = std::min(room, kFillFrames);
  const size_t got = lane.source->Read(lane.scratch.data(), want);
  lane.feed->Ring().Write(lane.scratch.data(), got * channels);
  lane.written += got;
  lane.roundFrames += got;
  if (got < want) {  // the file ended, or could not be read further
    if (lane.source->Failed()) {
      Note(output, {Mark::Kind::Failed, lane.written, lane.index, "", 0, 0, 0, lane.source->Error()});
      Finish(lane);
    } else {
      Note(output, {Mark::Kind::Ended, lane.written, lane.index, "", 0, 0,
                    static_cast<double>(lane.written - lane.fileFrom) / outputs_[output].rate, ""});
      lane.source.reset();
    }
  }
  return true;
}

void Voice::Run(const std::function<void()>& ready) {
  // First each feed gets its start, so that the voice joins with sound ahead of it.
  for (size_t output = 0; output < lanes_.size(); ++output) {
    while (!stop_ && lanes_[output]->written < outputs_[output].primeFrames && Fill(output)) {
    }
  }
  ready();
  while (!stop_) {
    bool filled = false, open = false;
    for (size_t output = 0; output < lanes_.size(); ++output) {
      Lane& lane = *lanes_[output];
      if (!lane.done && lane.feed->Released()) Finish(lane);
      if (lane.done) continue;
      open = true;
      filled |= Fill(output);
    }
    if (!open) break;
    if (!filled) WaitForSingleObject(wake_.Get(), kIdleMs);
  }
  for (auto& lane : lanes_) Finish(*lane);
}

}  // namespace quillon::player
