// One sound the engine plays: its files (one after another, a number of
// times) at its volume. A thread of the voice's own opens and decodes them
// ahead, in the format of each output, into one feed per output; the outputs'
// mixing threads only take samples from their feeds. A feed that runs dry
// leaves that voice silent for the moment, never the others.
#pragma once

#include "audio/SoundSource.h"
#include "platform/UniqueResource.h"
#include "player/SampleRing.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quillon::player {

// What a voice plays; the same for every output.
struct VoiceRequest {
  std::vector<std::wstring> files;
  long long loops = 1;  // 0: until stopped
  float gain = 1.0f;
  // The part of each file played, in ms: from `startMs` to `endMs` (0: its end).
  uint64_t startMs = 0, endMs = 0;
  // Each file's own gain on top of `gain` (its loudness evened out); none: 1 for all.
  std::vector<float> fileGains;
};

// What happened to a voice, as the microphone played it. Every voice ends
// with exactly one of Ended, Stopped and Failed.
enum class VoiceEvent {
  FileStarted,
  Progress,  // more of the file was played
  FileEnded,
  Failed,    // a file could not be opened or read to its end: error says why
  Ended,     // the last file ended
  Stopped,   // stopped before its end
  FirstBlockTaken,  // (of the engine) the effect took the first block
  OutputFailed,     // (of the engine) the microphone's thread ended: error says why; no voice plays on
};

// The format one output mixes in.
struct OutputFormat {
  uint32_t rate = 0, channels = 0;
  size_t aheadFrames = 0;  // how much of the voice is decoded ahead for it
  size_t primeFrames = 0;  // how much is decoded before the voice joins the mix
};

// One voice as one output's mix reads it: the samples its decoder wrote
// ahead, and how far the mix has read them.
class VoiceFeed {
 public:
  VoiceFeed(int id, uint32_t channels, size_t frames) : id_(id), channels_(channels), ring_(frames * channels) {}
  VoiceFeed(const VoiceFeed&) = delete;
  VoiceFeed& operator=(const VoiceFeed&) = delete;

  int Id() const { return id_; }

  // The mixing thread's side. Adds up to `frames` frames to `mix`; fewer when
  // the decoder is behind or the sound ends within them.
  size_t AddTo(float* mix, size_t frames) {
    const size_t got = ring_.AddTo(mix, frames * channels_) / channels_;
    read_.store(read_.load(std::memory_order_relaxed) + got, std::memory_order_release);
    return got;
  }
  // Whether all of the sound was read (the decoder wrote its last).
  bool Finished() const { return decoded_.load(std::memory_order_acquire) && ring_.Available() == 0; }
  // The mix lets go of the feed, at its end or stopped; it is never read again.
  void Release(bool stopped) {
    stopped_.store(stopped, std::memory_order_relaxed);
    released_.store(true, std::memory_order_release);
  }

  // The decoder's side.
  SampleRing& Ring() { return ring_; }
  void Decoded() { decoded_.store(true, std::memory_order_release); }

  // Anyone's.
  uint64_t FramesRead() const { return read_.load(std::memory_order_acquire); }
  bool Released() const { return released_.load(std::memory_order_acquire); }
  bool WasStopped() const { return stopped_.load(std::memory_order_relaxed); }

 private:
  int id_;
  uint32_t channels_;
  SampleRing ring_;
  std::atomic<uint64_t> read_{0};
  std::atomic<bool> decoded_{false}, released_{false}, stopped_{false};
};

class Voice {
 public:
  // Where a file began or ended in the first output's feed, in its frames.
  struct Mark {
    enum class Kind { Started, Ended, Failed } kind;
    uint64_t at = 0;
    size_t file = 0;         // index in the request
    std::string format;      // Started: "MP3", "WAV 16-bit"...
    uint32_t rate = 0, channels = 0;  // Started: the file's own
    double seconds = 0;      // Started: the length it declares, 0 if none; Ended: its real length
    std::string error;       // Failed
  };

  Voice(int id, VoiceRequest request, const std::vector<OutputFormat>& outputs);
  // Stops the decoder and waits for it.
  ~Voice();
  Voice(const Voice&) = delete;
  Voice& operator=(const Voice&) = delete;

  int Id() const { return id_; }
  const VoiceRequest& Request() const { return request_; }
  size_t Outputs() const { return lanes_.size(); }
  VoiceFeed& Feed(size_t output) { return *lanes_[output]->feed; }
  uint32_t Rate(size_t output) const { return outputs_[output].rate; }

  // Starts the decoder: it opens the first file and fills every feed, then
  // calls `ready` on its own thread, then keeps the feeds filled.
  void Start(std::function<void()> ready);
  // From any thread: the decoder ends soon.
  void Stop();
  bool StopRequested() const { return stop_.load(); }

  // The marks from index `from` on.
  std::vector<Mark> MarksFrom(size_t from) const;

 private:
  struct Lane {
    std::unique_ptr<VoiceFeed> feed;
    std::unique_ptr<audio::SoundSource> source;
    size_t index = 0;           // the file playing, in the request
    long long round = 0;
    bool started = false, done = false;
    uint64_t written = 0;       // frames into the feed
    uint64_t fileFrom = 0;      // where the file playing began
    uint64_t roundFrames = 0;   // frames of the round so far
    std::vector<float> scratch;
  };
  void Run(const std::function<void()>& ready);
  // Decodes one block into the lane's feed when it has room; false when it had none or is done.
  bool Fill(size_t output);
  // Opens the lane's next file; false at the end of the request or on a failure.
  bool OpenNext(size_t output);
  void Note(size_t output, Mark mark);
  // The lane gets nothing more: its file is closed and its feed told.
  static void Finish(Lane& lane);

  int id_;
  VoiceRequest request_;
  std::vector<OutputFormat> outputs_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  std::atomic<bool> stop_{false};
  UniqueHandle wake_;
  mutable std::mutex marksLock_;  // between the decoder and the engine's reporter; never the mix
  std::vector<Mark> marks_;
  std::thread thread_;
};

}  // namespace quillon::player
