// quillon play: checks every file (and the monitor's device and the
// push-to-talk key), finds the microphone, then plays the files through the
// player engine, one after another or together.
#include "audio/Loudness.h"
#include "audio/SoundSource.h"
#include "common/ConsoleInterrupt.h"
#include "common/ToolSupport.h"
#include "player/MonitorOutput.h"
#include "player/PlaybackDevices.h"
#include "player/PlayerEngine.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "quillon/Progress.h"
#include "system/Microphones.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace quillon::cli {

using system::Choose;
using system::Describe;
using system::DescribeFormat;
using system::Microphone;
using system::RunningMicrophones;
using tools::Utf8;

namespace {

using player::PlayerClient;
using player::PlayerStatus;

struct PlayOptions {
  std::vector<std::wstring> files;
  std::wstring mic;
  float gain = 1.0f;
  long long loops = 1;  // 0: until stopped
  long long startMs = 0, endMs = 0;  // the part of each file played (0: its end)
  std::optional<double> normalizeLufs;  // each file brought to this loudness
  std::vector<float> fileGains;         // what that takes, per file (set once they are measured)
  DWORD waitMs = 0;
  bool verbose = false;
  bool together = false;
  bool monitor = false;
  std::wstring monitorDevice;  // empty: the default device
  float monitorGain = 1.0f;
  player::EngineOptions engine;
};

float Decibels(double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); }

// Usage problems, or "" when the options are good.
std::string ReadOptions(const Arguments& args, PlayOptions& o) {
  o.files = args.positional;
  if (o.files.empty()) return "play needs at least one file";
  o.mic = args.Value("--mic");
  o.verbose = args.Has("--verbose");
  o.together = args.Has("--together");
  o.monitor = args.Has("--monitor") || args.Has("--monitor-volume");
  o.monitorDevice = args.Value("--monitor");
  double volume = 0, wait = 0, monitorVolume = 0;
  long long tail = 300;
  if (args.Has("--volume") && !ParseDecimal(args.Value("--volume"), -100, 20, volume)) {
    return "--volume " + Utf8(args.Value("--volume")) + ": give decibels from -100 to 20";
  }
  o.gain = Decibels(volume);
  if (args.Has("--monitor-volume") && !ParseDecimal(args.Value("--monitor-volume"), -100, 20, monitorVolume)) {
    return "--monitor-volume " + Utf8(args.Value("--monitor-volume")) + ": give decibels from -100 to 20";
  }
  o.monitorGain = Decibels(monitorVolume);
  if (args.Has("--loop") && !ParseWhole(args.Value("--loop"), 0, 1000000, o.loops)) {
    return "--loop " + Utf8(args.Value("--loop")) + ": give a whole number of times, 0 to repeat until stopped";
  }
  if (args.Has("--start") && !ParseWhole(args.Value("--start"), 0, 86400000, o.startMs)) {
    return "--start " + Utf8(args.Value("--start")) + ": give milliseconds from the file's start";
  }
  if (args.Has("--end") && !ParseWhole(args.Value("--end"), 1, 86400000, o.endMs)) {
    return "--end " + Utf8(args.Value("--end")) + ": give milliseconds from the file's start, above 0";
  }
  if (o.endMs != 0 && o.endMs <= o.startMs) {
    return "--end " + std::to_string(o.endMs) + " is not after --start " + std::to_string(o.startMs);
  }
  if (args.Has("--normalize")) {
    double lufs = -16;
    if (!args.Value("--normalize").empty() && !ParseDecimal(args.Value("--normalize"), -70, 0, lufs)) {
      return "--normalize=" + Utf8(args.Value("--normalize")) + ": give LUFS from -70 to 0";
    }
    o.normalizeLufs = lufs;
  }
  if (args.Has("--block-ms") && !ParseDecimal(args.Value("--block-ms"), 5, 1000, o.engine.blockMs)) {
    return "--block-ms " + Utf8(args.Value("--block-ms")) + ": give milliseconds from 5 to 1000";
  }
  if (args.Has("--wait") && !ParseDecimal(args.Value("--wait"), 0, 3600, wait)) {
    return "--wait " + Utf8(args.Value("--wait")) + ": give seconds from 0 to 3600";
  }
  o.waitMs = static_cast<DWORD>(wait * 1000);
  if (args.Has("--ptt")) {
    std::string error;
    if (!tools::ParseKeyChord(Utf8(args.Value("--ptt")), o.engine.pttKey, error)) return "--ptt: " + error;
    o.engine.pushToTalk = true;
  }
  if (args.Has("--ptt-tail") && !ParseWhole(args.Value("--ptt-tail"), 0, 60000, tail)) {
    return "--ptt-tail " + Utf8(args.Value("--ptt-tail")) + ": give milliseconds from 0 to 60000";
  }
  o.engine.pttTailMs = static_cast<DWORD>(tail);
  return "";
}

std::string FileName(const std::wstring& path) {
  const size_t slash = path.find_last_of(L"\\/");
  return Utf8(slash == std::wstring::npos ? path : path.substr(slash + 1));
}

// The microphone the options name among the running ones, waiting for it up
// to `waitMs`. An ambiguous name fails at once; a missing one is waited for.
bool FindMicrophone(const PlayOptions& o, HANDLE interrupt, Microphone& mic, std::string& error, bool& interrupted) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(o.waitMs);
  while (true) {
    const std::vector<Microphone> running = RunningMicrophones();
    if (Choose(running, o.mic, mic, error)) return true;
    const bool ambiguous = error.rfind("several", 0) == 0;
    if (ambiguous || std::chrono::steady_clock::now() >= deadline) return false;
    if (WaitForSingleObject(interrupt, 20) == WAIT_OBJECT_0) {
      interrupted = true;
      return false;
    }
  }
}

// What the engine reports, printed on the main thread: a progress bar (or
// plain lines) per file when the files play one after another, plain lines
// when they play together. A console that holds its output (a selection in
// it) then holds up this thread only, never the sound.
class Report {
 public:
  Report(bool together, bool verbose) : together_(together), verbose_(verbose) {}

  void Print(const player::EngineEvent& e) {
    if (e.event == player::VoiceEvent::FirstBlockTaken) {
      if (!verbose_) return;
      Break();
      cli::Print("first block taken at qpc_us=%lld\n", static_cast<long long>(e.takenUs));
      return;
    }
    if (e.event == player::VoiceEvent::OutputFailed) return;  // said by WaitIdle's result
    Progress& progress = progress_[e.voice];
    switch (e.event) {
      case player::VoiceEvent::FileStarted: {
        const std::string description = e.format + ", " + std::to_string(e.fileRate) + " Hz, " +
                                        std::to_string(e.fileChannels) + (e.fileChannels == 1 ? " channel" : " channels");
        progress.Start(FileName(e.file), description, e.totalSeconds, !together_);
        break;
      }
      case player::VoiceEvent::Progress: progress.Update(e.seconds, e.totalSeconds); break;
      case player::VoiceEvent::FileEnded: progress.Finish("played", e.seconds); break;
      case player::VoiceEvent::Failed:
        progress.Break();
        failure_ = e.midFile ? Utf8(e.file) + ": decoding stopped at " + Clock(e.seconds) + ": " + e.error
                             : Utf8(e.file) + ": " + e.error;
        break;
      default: break;
    }
  }

  // The whole play was interrupted: each file still playing says so.
  void Interrupted() {
    for (auto& [voice, progress] : progress_) progress.FinishIfPlaying("interrupted: the rest was dropped;");
  }
  void Break() {
    for (auto& [voice, progress] : progress_) progress.Break();
  }
  const std::string& Failure() const { return failure_; }

 private:
  bool together_, verbose_;
  std::map<int, Progress> progress_;
  std::string failure_;
};

// What the engine's reporter and the monitor's thread hand to the main
// thread: an event, or a line to print.
class Inbox {
 public:
  struct Item {
    player::EngineEvent event;
    std::string line;  // when not empty, printed instead
  };
  void Push(Item item) {
    {
      std::lock_guard<std::mutex> lock(lock_);
      items_.push_back(std::move(item));
    }
    SetEvent(ready_.Get());
  }
  std::deque<Item> Take() {
    std::lock_guard<std::mutex> lock(lock_);
    return std::exchange(items_, {});
  }
  HANDLE Ready() const { return ready_.Get(); }

 private:
  std::mutex lock_;
  std::deque<Item> items_;
  UniqueHandle ready_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
};

int Play(const PlayOptions& o, const player::PlaybackDevice* monitorDevice) {
  tools::ConsoleInterrupt interrupt;
  Microphone mic;
  std::string error;
  bool interrupted = false;
  if (!FindMicrophone(o, interrupt.Event(), mic, error, interrupted)) {
    if (interrupted) return kExitInterrupted;
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  auto client = std::make_unique<PlayerClient>(interrupt.Event());
  const PlayerStatus connected = client->Connect(mic.endpointId, std::max<DWORD>(o.waitMs, 1000), [&](int32_t slot) {
    if (o.verbose) Print("slot %d: waiting for the effect to publish its stream format\n", slot);
  });
  if (connected == PlayerStatus::Interrupted) return kExitInterrupted;
  if (connected != PlayerStatus::Ok) {
    Fail("%s: %s", Describe(mic).c_str(), client->Explain(connected).c_str());
    return kExitFailed;
  }
  const UniqueHandle playing = system::HoldPlayingEvent(client->Slot());
  if (o.verbose) {
    Print("slot %d: %s, %s\n", client->Slot(), Describe(mic).c_str(), DescribeFormat(client->Format()).c_str());
  }
  Report report(o.together, o.verbose);
  Inbox inbox;
  const auto show = [&] {
    for (Inbox::Item& item : inbox.Take()) {
      if (item.line.empty()) {
        report.Print(item.event);
      } else {
        report.Break();
        Print("%s\n", item.line.c_str());
      }
    }
  };
  player::PlayerEngine engine(std::move(client), o.engine, [&](const player::EngineEvent& e) { inbox.Push({e, ""}); });
  if (monitorDevice != nullptr) {
    player::MonitorOutput::Options options;
    options.gain = o.monitorGain;
    options.followDefault = o.monitorDevice.empty();
    auto monitor = player::MonitorOutput::Open(*monitorDevice, options, [&](const std::string& line) {
      inbox.Push({{}, line});
    }, error);
    if (!monitor) {
      Fail("%s", error.c_str());
      return kExitFailed;
    }
    engine.AddMonitor(std::move(monitor));
  }
  if (o.together) {
    std::vector<player::VoiceRequest> voices;
    for (const std::wstring& file : o.files) {
      const size_t i = voices.size();
      voices.push_back({{file}, o.loops, o.gain, static_cast<uint64_t>(o.startMs), static_cast<uint64_t>(o.endMs),
                        o.fileGains.empty() ? std::vector<float>{} : std::vector<float>{o.fileGains[i]}});
    }
    engine.StartTogether(voices);
  } else {
    engine.Start({o.files, o.loops, o.gain, static_cast<uint64_t>(o.startMs), static_cast<uint64_t>(o.endMs),
                  o.fileGains});
  }
  std::optional<PlayerStatus> end;
  while (!(end = engine.WaitIdle(interrupt.Event(), inbox.Ready()))) show();
  show();
  if (end == PlayerStatus::Interrupted) {
    engine.Abort();
    report.Interrupted();
    return kExitInterrupted;
  }
  if (end != PlayerStatus::Ok) {
    report.Break();
    Fail("%s", engine.Microphone().Explain(*end).c_str());
    return kExitFailed;
  }
  if (!report.Failure().empty()) {
    Fail("%s", report.Failure().c_str());
    return kExitFailed;
  }
  return kExitDone;
}

}  // namespace

int RunPlay(const Arguments& args) {
  PlayOptions options;
  if (const std::string problem = ReadOptions(args, options); !problem.empty()) return UsageError(problem, "play");
  // Every file is checked before anything is sent.
  // (A trimmed part is checked too: a start past a file's end plays nothing of it.)
  for (const std::wstring& file : options.files) {
    audio::SoundSource sound;
    std::string error;
    const bool trimmed = options.startMs != 0 || options.endMs != 0;
    if (!sound.Open(file, error) || (trimmed && (!sound.Convert(sound.File().Rate(), sound.File().Channels(), 1.0f, error) ||
                                                 !sound.Trim(static_cast<uint64_t>(options.startMs),
                                                             static_cast<uint64_t>(options.endMs), error)))) {
      Fail("%s: %s", Utf8(file).c_str(), error.c_str());
      return kExitFailed;
    }
  }
  // Evened out: each file (its part played) measured first, and its gain said.
  if (options.normalizeLufs) {
    for (const std::wstring& file : options.files) {
      audio::Loudness loudness;
      std::string error;
      if (!audio::MeasureLoudness(file, static_cast<uint64_t>(options.startMs), static_cast<uint64_t>(options.endMs),
                                  loudness, error)) {
        Fail("%s: its loudness cannot be measured: %s", Utf8(file).c_str(), error.c_str());
        return kExitFailed;
      }
      const audio::LoudnessGain gain = audio::GainFor(loudness, *options.normalizeLufs);
      options.fileGains.push_back(Decibels(gain.db));
      const char* why = gain.from == audio::LoudnessGain::From::Loudness      ? ""
                        : gain.from == audio::LoudnessGain::From::PeakCeiling ? " (less: its true peak stays at -1 dBTP)"
                        : gain.from == audio::LoudnessGain::From::Peak        ? " (too short to measure: its true peak to -1 dBTP)"
                                                                              : " (silent: left as it is)";
      if (loudness.lufs) {
        Print("normalize: %s is %.1f LUFS; %+.1f dB to %.1f LUFS%s\n", FileName(file).c_str(), *loudness.lufs, gain.db,
              *options.normalizeLufs, why);
      } else {
        Print("normalize: %s: %+.1f dB%s\n", FileName(file).c_str(), gain.db, why);
      }
    }
  }
  player::PlaybackDevice monitor;
  bool monitorOn = options.monitor;
  if (options.monitor) {
    std::string error;
    if (player::ListPlaybackDevices(error).empty()) {
      // Nothing to hear it on: the microphone still gets the sound.
      Print("monitor: off: %s; the microphone plays on\n", error.empty() ? "there is no playback device" : error.c_str());
      monitorOn = false;
    } else if (!player::ChoosePlaybackDevice(options.monitorDevice, monitor, error)) {
      Fail("--monitor: %s", error.c_str());
      return kExitUsage;
    }
  }
  return Play(options, monitorOn ? &monitor : nullptr);
}

}  // namespace quillon::cli
