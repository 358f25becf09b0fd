#include "board/LoudnessMeter.h"

#include "audio/Loudness.h"

#include <windows.h>

namespace quillon::board {
namespace {

// The file's size and last-write time, or false when it cannot be looked at.
bool StampOf(const std::wstring& path, uint64_t& size, int64_t& modified) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return false;
  size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  modified = static_cast<int64_t>((static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) |
                                  data.ftLastWriteTime.dwLowDateTime);
  return true;
}

}  // namespace

LoudnessMeter::LoudnessMeter(std::function<void()> news, unsigned threads) : news_(std::move(news)) {
  for (unsigned i = 0; i < std::max(1u, threads); ++i) threads_.emplace_back([this] { Run(); });
}

LoudnessMeter::~LoudnessMeter() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    quit_ = true;
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void LoudnessMeter::Measure(const std::vector<Ask>& asks) {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    if (!progress_.busy) progress_ = Progress{};
    for (const Ask& ask : asks) {
      Key key{ask.path, ask.startMs, ask.endMs};
      auto [at, added] = pending_.try_emplace(key);
      if (added) order_.push_back(std::move(key));
      at->second.push_back(ask);
    }
    progress_.busy = !order_.empty() || working_ > 0;
  }
  wake_.notify_all();
}

std::vector<Board::Measured> LoudnessMeter::Take() {
  const std::lock_guard<std::mutex> hold(lock_);
  return std::exchange(results_, {});
}

LoudnessMeter::Progress LoudnessMeter::Now() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return progress_;
}

void LoudnessMeter::Run() {
  // Below everything the user does: the mix, the window and the decoders come first.
  SetThreadPriority(GetCurrentThread(), THREAD_MODE_BACKGROUND_BEGIN);
  std::unique_lock<std::mutex> hold(lock_);
  while (true) {
    wake_.wait(hold, [&] { return quit_ || !order_.empty(); });
    if (quit_) return;
    const Key key = std::move(order_.front());
    order_.pop_front();
    const std::vector<Ask> asks = std::move(pending_[key]);
    pending_.erase(key);
    ++working_;
    hold.unlock();
    Work(key, asks);
    hold.lock();
    --working_;
    if (quit_) return;
    const bool idle = order_.empty() && working_ == 0;
    if (idle) progress_.busy = false;
    Tell(hold, idle);
  }
}

void LoudnessMeter::Work(const Key& key, const std::vector<Ask>& asks) {
  const auto& [path, startMs, endMs] = key;
  uint64_t size = 0;
  int64_t modified = 0;
  if (!StampOf(path, size, modified)) return;  // gone, or out of reach: asked again when the window comes back
  std::optional<SoundLoudness> loudness;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    const auto cached = known_.find(key);
    const bool fresh = cached != known_.end() && cached->second.size == size && cached->second.modified == modified;
    if (fresh && !cached->second.loudness) return;  // it could not be measured, and has not changed since
    if (fresh) {
      loudness = cached->second.loudness;
    } else {
      // What the board holds of this file, if it is still true.
      for (const Ask& ask : asks) {
        if (ask.known && ask.known->size == size && ask.known->modified == modified) loudness = ask.known;
      }
      if (loudness) known_[key] = {size, modified, loudness};
    }
    if (!loudness) ++progress_.total;
  }
  if (!loudness) {
    audio::Loudness measured;
    std::string error;
    const bool ok = audio::MeasureLoudness(path, startMs, endMs, measured, error, {}, &quit_);
    if (quit_) return;
    // A file written while it was measured is measured again when next asked.
    uint64_t sizeAfter = 0;
    int64_t modifiedAfter = 0;
    const bool same = StampOf(path, sizeAfter, modifiedAfter) && sizeAfter == size && modifiedAfter == modified;
    const std::lock_guard<std::mutex> hold(lock_);
    ++progress_.measured;
    if (!same) return;
    if (ok) loudness = SoundLoudness{measured.lufs, measured.truePeakDb, size, modified};
    known_[key] = {size, modified, loudness};
    if (!ok) return;
  }
  const std::lock_guard<std::mutex> hold(lock_);
  for (const Ask& ask : asks) {
    if (ask.known != loudness) results_.push_back({ask.sound, startMs, endMs, *loudness});
  }
}

void LoudnessMeter::Tell(std::unique_lock<std::mutex>& hold, bool force) {
  const auto now = std::chrono::steady_clock::now();
  if (!force && now - told_ < std::chrono::milliseconds(200)) return;
  if (!force && results_.empty()) return;
  told_ = now;
  hold.unlock();
  news_();
  hold.lock();
}

}  // namespace quillon::board
