#include "board/BoardPlayer.h"

#include "common/ComApartment.h"
#include "common/ToolSupport.h"
#include "player/MonitorOutput.h"
#include "player/PlaybackDevices.h"
#include "system/Microphones.h"

#include <cmath>

namespace quillon::board {
namespace {

// How long a press waits for an effect that is in use but has not published
// its format yet.
constexpr DWORD kConnectTimeoutMs = 1000;

float Gain(double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); }

}  // namespace

BoardPlayer::BoardPlayer(std::function<void()> notify) : notify_(std::move(notify)), thread_([this] { Run(); }) {}

BoardPlayer::~BoardPlayer() {
  {
    std::lock_guard<std::mutex> lock(lock_);
    quit_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void BoardPlayer::Ask(Request request) {
  std::lock_guard<std::mutex> lock(lock_);
  requests_.push_back(std::move(request));
  wake_.notify_one();
}

void BoardPlayer::Configure(const Settings& settings) { Ask({Request::Kind::Configure, settings, {}}); }
void BoardPlayer::Press(const Sound& sound) { Ask({Request::Kind::Press, {}, sound}); }
void BoardPlayer::StopAll() { Ask({Request::Kind::StopAll, {}, {}}); }
void BoardPlayer::Preview(const Sound& sound) { Ask({Request::Kind::Preview, {}, sound}); }
void BoardPlayer::StopPreview() { Ask({Request::Kind::StopPreview, {}, {}}); }

std::deque<PlayerNews> BoardPlayer::TakeNews() {
  std::lock_guard<std::mutex> lock(lock_);
  return std::exchange(news_, {});
}

void BoardPlayer::Tell(PlayerNews news) {
  {
    std::lock_guard<std::mutex> lock(lock_);
    news_.push_back(std::move(news));
  }
  notify_();
}

void BoardPlayer::Run() {
  tools::ComApartment com;  // the monitor's device is a COM object
  while (true) {
    Request request;
    {
      std::unique_lock<std::mutex> lock(lock_);
      wake_.wait(lock, [this] { return quit_ || !requests_.empty(); });
      if (requests_.empty()) break;  // quit, with nothing left to do
      request = std::move(requests_.front());
      requests_.pop_front();
    }
    Handle(request);
  }
  preview_.reset();
  Disconnect();
}

void BoardPlayer::Disconnect() {
  engine_.reset();
  playingEvent_.Reset();
}

void BoardPlayer::Handle(const Request& request) {
  switch (request.kind) {
    case Request::Kind::Configure: {
      const Settings& s = request.settings;
      const bool reconnect = s.microphone != settings_.microphone || s.monitor != settings_.monitor ||
                             s.monitorDevice != settings_.monitorDevice ||
                             s.monitorVolumeDb != settings_.monitorVolumeDb || s.pushToTalkKey != settings_.pushToTalkKey ||
                             s.pushToTalkTailMs != settings_.pushToTalkTailMs;
      settings_ = s;
      // The engine takes these when it starts: what plays stops, and the next
      // press connects anew.
      if (reconnect) {
        StopVoices();
        Disconnect();
      }
      break;
    }
    case Request::Kind::Press: DoPress(request.sound); break;
    case Request::Kind::StopAll: StopVoices(); break;
    case Request::Kind::Preview: DoPreview(request.sound); break;
    case Request::Kind::StopPreview:
      preview_.reset();
      if (engine_) {
        std::lock_guard<std::mutex> lock(lock_);
        if (const auto playing = voiceOfSound_.find(kPreviewSound); playing != voiceOfSound_.end()) {
          engine_->Stop(playing->second);
        }
      }
      break;
  }
}

bool BoardPlayer::Connect(std::string& why) {
  if (engine_ && engine_->Failure() == player::PlayerStatus::Ok) return true;
  Disconnect();
  {
    std::lock_guard<std::mutex> lock(lock_);
    soundOfVoice_.clear();
    voiceOfSound_.clear();
  }
  system::Microphone mic;
  std::string error;
  if (!system::Choose(system::RunningMicrophones(), tools::Wide(settings_.microphone), mic, error)) {
    why = error;
    Tell({PlayerNews::Kind::Status, 0, 0, 0, error});
    return false;
  }
  auto client = std::make_unique<player::PlayerClient>();
  const player::PlayerStatus connected = client->Connect(mic.endpointId, kConnectTimeoutMs);
  if (connected != player::PlayerStatus::Ok) {
    why = system::Describe(mic) + ": " + client->Explain(connected);
    Tell({PlayerNews::Kind::Status, 0, 0, 0, why});
    return false;
  }
  player::EngineOptions options;
  if (settings_.pushToTalkKey) {
    options.pushToTalk = true;
    options.pttKey = *settings_.pushToTalkKey;
    options.pttTailMs = settings_.pushToTalkTailMs;
  }
  const std::string format = system::DescribeFormat(client->Format());
  playingEvent_ = system::HoldPlayingEvent(client->Slot());
  engine_ = std::make_unique<player::PlayerEngine>(std::move(client), options,
                                                   [this](const player::EngineEvent& e) { OnEngineEvent(e); });
  std::string status = "playing into " + tools::Utf8(mic.name.empty() ? mic.endpointId : mic.name) + " (" + format + ")";
  if (settings_.monitor) {
    player::PlaybackDevice device;
    std::unique_ptr<player::MonitorOutput> monitor;
    if (player::ListPlaybackDevices(error).empty()) {
      if (error.empty()) error = "there is no playback device";
    } else if (player::ChoosePlaybackDevice(tools::Wide(settings_.monitorDevice), device, error)) {
      player::MonitorOutput::Options options;
      options.gain = Gain(settings_.monitorVolumeDb);
      options.followDefault = settings_.monitorDevice.empty();
      monitor = player::MonitorOutput::Open(device, options, [this](const std::string& line) {
        Tell({PlayerNews::Kind::Status, 0, 0, 0, line});
      }, error);
    }
    if (monitor) {
      engine_->AddMonitor(std::move(monitor));
    } else {
      status += "; hear what you play: " + error;
    }
  }
  Tell({PlayerNews::Kind::Status, 0, 0, 0, status});
  return true;
}

void BoardPlayer::DoPress(const Sound& sound) {
  if (std::string why; !Connect(why)) {
    Tell({PlayerNews::Kind::Failed, sound.id, 0, 0, why});
    return;
  }
  std::unique_lock<std::mutex> lock(lock_);  // the engine's reporter looks the voices up
  const auto playing = voiceOfSound_.find(sound.id);
  if (playing != voiceOfSound_.end() && engine_->Playing(playing->second)) {
    // The sound is told stopped now, in the same hold of the lock that makes
    // the engine's later word on that voice go unsaid.
    engine_->Stop(playing->second);
    voiceOfSound_.erase(playing);
    news_.push_back({PlayerNews::Kind::Ended, sound.id, 0, 0, ""});
    lock.unlock();
    notify_();
    if (settings_.pressAgain == PressAgain::Stop) return;
    lock.lock();
  } else if (!settings_.overlap) {
    lock.unlock();
    StopVoices();
    lock.lock();
  }
  const int voice = engine_->Start({{tools::Wide(sound.file)}, 1, Gain(PlayGainDb(sound, settings_)), sound.startMs, sound.endMs});
  voiceOfSound_[sound.id] = voice;
  soundOfVoice_[voice] = sound.id;
}

void BoardPlayer::DoPreview(const Sound& sound) {
  Sound preview = sound;
  preview.id = kPreviewSound;
  preview_.reset();
  if (!settings_.monitor) {
    // Heard where it goes: into the microphone, restarted by a second preview.
    const PressAgain pressAgain = std::exchange(settings_.pressAgain, PressAgain::Restart);
    const bool overlap = std::exchange(settings_.overlap, true);
    DoPress(preview);
    settings_.pressAgain = pressAgain;
    settings_.overlap = overlap;
    return;
  }
  player::PlaybackDevice device;
  std::string error;
  if (player::ListPlaybackDevices(error).empty()) {
    if (error.empty()) error = "there is no playback device";
  } else if (player::ChoosePlaybackDevice(tools::Wide(settings_.monitorDevice), device, error)) {
    preview_ = player::PreviewPlayer::Start(device, settings_.monitorDevice.empty(), Gain(settings_.monitorVolumeDb),
                                            {{tools::Wide(sound.file)}, 1, Gain(PlayGainDb(sound, settings_)),
                                             sound.startMs, sound.endMs},
                                            error);
  }
  if (!preview_) Tell({PlayerNews::Kind::Failed, kPreviewSound, 0, 0, error});
}

void BoardPlayer::StopVoices() {
  if (!engine_) return;
  // Every sound is told stopped now; the engine's later word on those voices is not passed on.
  {
    std::lock_guard<std::mutex> lock(lock_);
    for (const auto& [sound, voice] : voiceOfSound_) {
      if (engine_->Playing(voice)) news_.push_back({PlayerNews::Kind::Ended, sound, 0, 0, ""});
    }
    voiceOfSound_.clear();
    engine_->StopAll();
  }
  notify_();
}

void BoardPlayer::OnEngineEvent(const player::EngineEvent& e) {
  if (e.event == player::VoiceEvent::OutputFailed) {
    // Every sound ends; the next press connects anew.
    std::vector<uint32_t> sounds;
    {
      std::lock_guard<std::mutex> lock(lock_);
      for (const auto& [sound, voice] : voiceOfSound_) sounds.push_back(sound);
      voiceOfSound_.clear();
      soundOfVoice_.clear();
    }
    for (uint32_t sound : sounds) Tell({PlayerNews::Kind::Ended, sound, 0, 0, ""});
    Tell({PlayerNews::Kind::Status, 0, 0, 0, "the microphone stopped taking sound: " + e.error});
    return;
  }
  const bool last = e.event == player::VoiceEvent::Ended || e.event == player::VoiceEvent::Stopped ||
                    e.event == player::VoiceEvent::Failed;
  {
    // Looked up and told in one hold of the lock: a sound stopped meanwhile
    // was told so first, and hears nothing more of this voice.
    std::lock_guard<std::mutex> lock(lock_);
    const auto found = soundOfVoice_.find(e.voice);
    if (found == soundOfVoice_.end()) return;
    const uint32_t sound = found->second;
    const auto current = voiceOfSound_.find(sound);
    const bool currentVoice = current != voiceOfSound_.end() && current->second == e.voice;
    if (last) {
      soundOfVoice_.erase(found);
      if (currentVoice) voiceOfSound_.erase(current);
    }
    if (!currentVoice) return;
    switch (e.event) {
      case player::VoiceEvent::FileStarted: news_.push_back({PlayerNews::Kind::Started, sound, 0, e.totalSeconds, ""}); break;
      case player::VoiceEvent::Progress:
        news_.push_back({PlayerNews::Kind::Progress, sound, e.seconds, e.totalSeconds, ""});
        break;
      case player::VoiceEvent::Ended:
      case player::VoiceEvent::Stopped:
        news_.push_back({PlayerNews::Kind::Ended, sound, e.seconds, e.totalSeconds, ""});
        break;
      case player::VoiceEvent::Failed: news_.push_back({PlayerNews::Kind::Failed, sound, e.seconds, 0, e.error}); break;
      default: return;
    }
  }
  notify_();
}

}  // namespace quillon::board
