// Adding folders of sounds, on a thread of its own: first it lists the files
// under the folders (each folder's files in name order, then its folders),
// then it opens each one that has a sound's ending as sound, to keep only
// those the player can read. It stops after listing when more than
// `askAbove` files were found, until Go() (or Cancel()); Cancel() ends it
// at the next file. `news` is called on the scan's thread after each stage
// and every 100 ms while it reads; the window reads Progress() then.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quillon::board {

struct ScanResult {
  std::vector<std::wstring> sounds;  // the files to add, in order
  size_t notSound = 0;               // files whose ending is no sound's
  size_t unreadable = 0;             // files with a sound's ending that did not open as sound
  std::wstring firstUnreadable;      // the first of them, and why
  std::string firstReason;
  bool cancelled = false;
};

class FolderScan {
 public:
  enum class Stage { Listing, Found, Reading, Done };
  struct Progress {
    Stage stage = Stage::Listing;
    size_t found = 0;  // files found so far
    size_t read = 0;   // of them looked at
  };

  FolderScan(std::vector<std::wstring> paths, size_t askAbove, std::function<void()> news);
  // Cancels and joins.
  ~FolderScan();
  FolderScan(const FolderScan&) = delete;
  FolderScan& operator=(const FolderScan&) = delete;

  Progress Now() const;
  void Go();
  void Cancel();
  // Once the stage is Done.
  ScanResult TakeResult();

 private:
  void Run(std::vector<std::wstring> paths, size_t askAbove);
  void List(const std::wstring& folder, std::vector<std::wstring>& files, int depth);

  std::function<void()> news_;
  mutable std::mutex lock_;
  std::condition_variable decided_;
  Progress progress_;
  bool go_ = false;
  std::atomic<bool> cancel_{false};
  ScanResult result_;
  std::thread thread_;
};

}  // namespace quillon::board
