// The outline of a sound file for drawing: the lowest and the highest sample
// (of all channels) in each of a number of equal stretches of it, read on a
// thread of its own. What is read so far can be taken at any time, so a view
// draws a long file as it comes; `news` is called on the thread every 100 ms
// while it reads, and once at its end.
//
// A long file whose format can seek gets a first look before it is read
// through: a short piece at the start of each stretch, which shows its shape
// within a fraction of a second. The reading through then fills each
// stretch in (the lowest and highest of a stretch only grow as more of it
// is read).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quillon::board {

class WaveformPeaks {
 public:
  struct Outline {
    std::vector<float> low, high;  // per stretch; 0 and 0 where nothing was read yet
    double seconds = 0;            // the sound's length (as its header says, until it is read through)
    double fraction = 0;           // how much of it is read
    bool firstLook = false;        // every stretch holds a piece of the sound (the first look, or all of it)
    bool done = false;
    std::string error;             // why it could not be read (then done)
  };

  WaveformPeaks(std::wstring path, size_t stretches, std::function<void()> news);
  // Stops reading and joins the thread.
  ~WaveformPeaks();
  WaveformPeaks(const WaveformPeaks&) = delete;
  WaveformPeaks& operator=(const WaveformPeaks&) = delete;

  Outline Take() const;

 private:
  void Run(const std::wstring& path, size_t stretches);
  // A piece at the start of each stretch, through a file of its own; false
  // when the format cannot seek (then nothing is shown until read through).
  bool FirstLook(const std::wstring& path, size_t stretches, uint64_t expected, uint32_t channels);

  std::function<void()> news_;
  mutable std::mutex lock_;
  Outline outline_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace quillon::board
