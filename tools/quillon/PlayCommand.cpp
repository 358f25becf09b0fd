// quillon play: checks every file, finds the microphone, then streams each
// file converted to the stream's format, block by block, to the effect.
#include "audio/SoundSource.h"
#include "common/ConsoleInterrupt.h"
#include "common/ToolSupport.h"
#include "player/PlayerClient.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "quillon/Microphones.h"
#include "quillon/Progress.h"
#include "transfer/WinUtils.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace quillon::cli {
namespace {

using player::PlayerClient;
using player::PlayerStatus;

struct PlayOptions {
  std::vector<std::wstring> files;
  std::wstring mic;
  float gain = 1.0f;
  long long loops = 1;  // 0: until stopped
  double blockMs = 100;
  DWORD waitMs = 0;
  bool verbose = false;
};

// Usage problems, or "" when the options are good.
std::string ReadOptions(const Arguments& args, PlayOptions& o) {
  o.files = args.positional;
  if (o.files.empty()) return "play needs at least one file";
  o.mic = args.Value("--mic");
  o.verbose = args.Has("--verbose");
  double volume = 0, wait = 0;
  if (args.Has("--volume") && !ParseDecimal(args.Value("--volume"), -100, 20, volume)) {
    return "--volume " + Utf8(args.Value("--volume")) + ": give decibels from -100 to 20";
  }
  o.gain = static_cast<float>(std::pow(10.0, volume / 20.0));
  if (args.Has("--loop") && !ParseWhole(args.Value("--loop"), 0, 1000000, o.loops)) {
    return "--loop " + Utf8(args.Value("--loop")) + ": give a whole number of times, 0 to repeat until stopped";
  }
  if (args.Has("--block-ms") && !ParseDecimal(args.Value("--block-ms"), 5, 1000, o.blockMs)) {
    return "--block-ms " + Utf8(args.Value("--block-ms")) + ": give milliseconds from 5 to 1000";
  }
  if (args.Has("--wait") && !ParseDecimal(args.Value("--wait"), 0, 3600, wait)) {
    return "--wait " + Utf8(args.Value("--wait")) + ": give seconds from 0 to 3600";
  }
  o.waitMs = static_cast<DWORD>(wait * 1000);
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

class Session {
 public:
  Session(const PlayOptions& options, tools::ConsoleInterrupt& interrupt)
      : o_(options), interrupt_(interrupt), player_(interrupt.Event()) {}

  int Run() {
    Microphone mic;
    std::string error;
    bool interrupted = false;
    if (!FindMicrophone(o_, interrupt_.Event(), mic, error, interrupted)) {
      if (interrupted) return kExitInterrupted;
      Fail("%s", error.c_str());
      return kExitFailed;
    }
    const DWORD waitLeft = std::max<DWORD>(o_.waitMs, 1000);
    const PlayerStatus connected = player_.Connect(mic.endpointId, waitLeft, [&](int32_t slot) {
      if (o_.verbose) Print("slot %d: waiting for the effect to publish its stream format\n", slot);
    });
    if (connected == PlayerStatus::Interrupted) return kExitInterrupted;
    if (connected != PlayerStatus::Ok) {
      Fail("%s: %s", Describe(mic).c_str(), player_.Explain(connected).c_str());
      return kExitFailed;
    }
    playing_.Reset(CreateEventExW(WinUtils::GetNullDaclSecurityAttributes(), PlayingEventName(player_.Slot()).c_str(),
                                  CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
    rate_ = static_cast<uint32_t>(std::lround(player_.Format().fFramesPerSecond));
    channels_ = player_.Channels();
    const size_t blockFrames = std::max<size_t>(1, static_cast<size_t>(rate_ * o_.blockMs / 1000.0));
    block_.resize(std::min(player_.MaxBlockSamples(), blockFrames * channels_));
    if (o_.verbose) Print("slot %d: %s, %s\n", player_.Slot(), Describe(mic).c_str(), DescribeFormat(player_.Format()).c_str());

    for (long long round = 0; o_.loops == 0 || round < o_.loops; ++round) {
      for (const std::wstring& file : o_.files) {
        if (const int code = PlayFile(file); code != kExitDone) return code;
      }
    }
    return kExitDone;
  }

 private:
  int PlayFile(const std::wstring& path) {
    audio::SoundSource source;
    std::string error;
    if (!source.Open(path, error) || !source.Convert(rate_, channels_, o_.gain, error)) {
      Fail("%s: %s", Utf8(path).c_str(), error.c_str());
      return kExitFailed;
    }
    const audio::SoundFile& file = source.File();
    const std::string description = file.FormatName() + ", " + std::to_string(file.Rate()) + " Hz, " +
                                    std::to_string(file.Channels()) + (file.Channels() == 1 ? " channel" : " channels");
    progress_.Start(FileName(path), description, source.Seconds());
    size_t sentFrames = 0;
    auto elapsed = [&] { return static_cast<double>(sentFrames) / rate_; };
    while (const size_t frames = source.Read(block_.data(), block_.size() / channels_)) {
      const PlayerStatus s = interrupt_.Raised()
                                 ? PlayerStatus::Interrupted
                                 : player_.Send(block_.data(), frames * channels_, std::max<DWORD>(o_.waitMs, 10000));
      if (s == PlayerStatus::Interrupted) {
        player_.Abandon();
        progress_.Finish("interrupted: the rest was dropped;", elapsed());
        return kExitInterrupted;
      }
      if (s != PlayerStatus::Ok) {
        progress_.Break();
        Fail("%s", player_.Explain(s).c_str());
        return kExitFailed;
      }
      if (blocksSent_++ == 0 && o_.verbose) {
        progress_.Break();
        Print("first block taken at qpc_us=%lld\n", static_cast<long long>(tools::MonotonicMicroseconds()));
      }
      sentFrames += frames;
      progress_.Update(elapsed());
    }
    if (source.Failed()) {
      progress_.Break();
      Fail("%s: decoding stopped at %s: %s", Utf8(path).c_str(), Clock(elapsed()).c_str(), source.Error().c_str());
      return kExitFailed;
    }
    progress_.Finish("played", elapsed());
    return kExitDone;
  }

  const PlayOptions& o_;
  tools::ConsoleInterrupt& interrupt_;
  PlayerClient player_;
  UniqueHandle playing_;
  Progress progress_;
  uint32_t rate_ = 0, channels_ = 0;
  std::vector<float> block_;
  size_t blocksSent_ = 0;
};

}  // namespace

int RunPlay(const Arguments& args) {
  PlayOptions options;
  if (const std::string problem = ReadOptions(args, options); !problem.empty()) return UsageError(problem, "play");
  // Every file is checked before anything is sent.
  for (const std::wstring& file : options.files) {
    audio::SoundFile sound;
    std::string error;
    if (!sound.OpenRead(file, error)) {
      Fail("%s: %s", Utf8(file).c_str(), error.c_str());
      return kExitFailed;
    }
  }
  tools::ConsoleInterrupt interrupt;
  return Session(options, interrupt).Run();
}

}  // namespace quillon::cli
