// Whether the sounds' files are there, found on a thread of its own: a file on
// a network share that does not answer holds up that thread, never the
// window. What it finds is kept; the window asks for the board's files again
// when it is activated (a file may have come or gone meanwhile) and reads the
// kept answers when it draws. `changed` is called on the thread, at most
// every 200 ms while answers come in, when some answer differs from before.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace quillon::board {

enum class FileState { Unknown, There, Missing, Unreachable };

class FilePresence {
 public:
  explicit FilePresence(std::function<void()> changed);
  // Cancels a look that waits on the network, and joins the thread.
  ~FilePresence();
  FilePresence(const FilePresence&) = delete;
  FilePresence& operator=(const FilePresence&) = delete;

  // Looks at these files (again), after those already asked for.
  void Check(const std::vector<std::wstring>& files);
  // The last answer: there, missing, on a network that does not answer, or not known yet.
  FileState StateOf(const std::wstring& file) const;

 private:
  void Run();

  std::function<void()> changed_;
  mutable std::mutex lock_;
  std::condition_variable wake_;
  std::vector<std::wstring> asked_;
  std::unordered_set<std::wstring> pending_;  // asked and not yet looked at
  std::unordered_map<std::wstring, FileState> known_;
  bool quit_ = false;
  std::thread thread_;
};

}  // namespace quillon::board
