#include "board/FilePresence.h"

#include <windows.h>

#include <chrono>

namespace quillon::board {
namespace {

FileState LookAt(const std::wstring& file) {
  if (GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES) return FileState::There;
  switch (GetLastError()) {
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_NETNAME_DELETED:
    case ERROR_NETWORK_UNREACHABLE:
    case ERROR_HOST_UNREACHABLE:
    case ERROR_UNEXP_NET_ERR:
    case ERROR_SEM_TIMEOUT:
    case ERROR_OPERATION_ABORTED: return FileState::Unreachable;
    default: return FileState::Missing;
  }
}

}  // namespace

FilePresence::FilePresence(std::function<void()> changed) : changed_(std::move(changed)), thread_([this] { Run(); }) {}

FilePresence::~FilePresence() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    quit_ = true;
    asked_.clear();
    pending_.clear();
  }
  wake_.notify_all();
  // A look at an unreachable share can wait for half a minute: it is cancelled.
  CancelSynchronousIo(static_cast<HANDLE>(thread_.native_handle()));
  thread_.join();
}

void FilePresence::Check(const std::vector<std::wstring>& files) {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    for (const std::wstring& file : files) {
      if (pending_.insert(file).second) asked_.push_back(file);
    }
  }
  wake_.notify_all();
}

FileState FilePresence::StateOf(const std::wstring& file) const {
  const std::lock_guard<std::mutex> hold(lock_);
  const auto at = known_.find(file);
  return at == known_.end() ? FileState::Unknown : at->second;
}

void FilePresence::Run() {
  using Clock = std::chrono::steady_clock;
  std::unique_lock<std::mutex> hold(lock_);
  bool unsaid = false;  // an answer changed since `changed` was last called
  Clock::time_point said{};
  while (true) {
    wake_.wait(hold, [&] { return quit_ || !asked_.empty(); });
    if (quit_) return;
    std::vector<std::wstring> files;
    files.swap(asked_);
    for (const std::wstring& file : files) {
      hold.unlock();
      const FileState state = LookAt(file);
      hold.lock();
      if (quit_) return;
      pending_.erase(file);
      const auto [at, added] = known_.try_emplace(file, state);
      if (added || at->second != state) {
        at->second = state;
        unsaid = true;
      }
      if (unsaid && Clock::now() - said >= std::chrono::milliseconds(200)) {
        unsaid = false;
        said = Clock::now();
        hold.unlock();
        changed_();
        hold.lock();
      }
    }
    if (unsaid && asked_.empty()) {
      unsaid = false;
      said = Clock::now();
      hold.unlock();
      changed_();
      hold.lock();
    }
  }
}

}  // namespace quillon::board
