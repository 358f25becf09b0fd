#include "board/FolderScan.h"

#include "audio/SoundFile.h"
#include "board/SoundFolder.h"

#include <windows.h>

#include <algorithm>
#include <chrono>

namespace quillon::board {

FolderScan::FolderScan(std::vector<std::wstring> paths, size_t askAbove, std::function<void()> news)
    : news_(std::move(news)), thread_([this, paths = std::move(paths), askAbove]() mutable { Run(std::move(paths), askAbove); }) {}

FolderScan::~FolderScan() {
  Cancel();
  thread_.join();
}

FolderScan::Progress FolderScan::Now() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return progress_;
}

void FolderScan::Go() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    go_ = true;
  }
  decided_.notify_all();
}

void FolderScan::Cancel() {
  cancel_ = true;
  decided_.notify_all();
}

ScanResult FolderScan::TakeResult() {
  const std::lock_guard<std::mutex> hold(lock_);
  return std::move(result_);
}

void FolderScan::List(const std::wstring& folder, std::vector<std::wstring>& files, int depth) {
  if (depth > 8 || cancel_) return;  // a link back up the tree ends here
  std::vector<std::wstring> here, folders;
  WIN32_FIND_DATAW found;
  HANDLE find = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr,
                                 FIND_FIRST_EX_LARGE_FETCH);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY ? folders : here).push_back(folder + L"\\" + name);
  } while (FindNextFileW(find, &found));
  FindClose(find);
  std::sort(here.begin(), here.end());
  std::sort(folders.begin(), folders.end());
  files.insert(files.end(), here.begin(), here.end());
  {
    const std::lock_guard<std::mutex> hold(lock_);
    progress_.found = files.size();
  }
  for (const std::wstring& sub : folders) List(sub, files, depth + 1);
}

void FolderScan::Run(std::vector<std::wstring> paths, size_t askAbove) {
  using Clock = std::chrono::steady_clock;
  std::vector<std::wstring> files;
  for (const std::wstring& path : paths) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      List(path, files, 0);
    } else {
      files.push_back(path);
    }
  }
  ScanResult result;
  {
    std::unique_lock<std::mutex> hold(lock_);
    progress_.found = files.size();
    if (files.size() > askAbove && !cancel_) {
      progress_.stage = Stage::Found;
      hold.unlock();
      news_();
      hold.lock();
      decided_.wait(hold, [&] { return go_ || cancel_; });
    }
    progress_.stage = Stage::Reading;
  }
  Clock::time_point told = Clock::now();
  for (size_t i = 0; i < files.size() && !cancel_; ++i) {
    const std::wstring& file = files[i];
    if (!LooksLikeSound(file)) {
      ++result.notSound;
    } else {
      audio::SoundFile sound;
      std::string why;
      if (sound.OpenRead(file, why)) {
        result.sounds.push_back(file);
      } else {
        if (result.unreadable++ == 0) {
          result.firstUnreadable = file;
          result.firstReason = why;
        }
      }
    }
    bool tell = false;
    {
      const std::lock_guard<std::mutex> hold(lock_);
      progress_.read = i + 1;
      if (Clock::now() - told >= std::chrono::milliseconds(100)) tell = true;
    }
    if (tell) {
      told = Clock::now();
      news_();
    }
  }
  result.cancelled = cancel_;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    result_ = std::move(result);
    progress_.stage = Stage::Done;
  }
  news_();
}

}  // namespace quillon::board
