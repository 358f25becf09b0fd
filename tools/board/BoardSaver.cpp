#include "board/BoardSaver.h"

#include "board/BoardFile.h"

namespace quillon::board {

BoardSaver::BoardSaver(std::function<void()> done) : done_(std::move(done)), thread_([this] { Run(); }) {}

BoardSaver::~BoardSaver() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    quit_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void BoardSaver::Save(std::wstring path, std::string text) {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    pending_ = Pending{std::move(path), std::move(text)};
  }
  wake_.notify_all();
}

BoardSaver::Result BoardSaver::Last() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return last_;
}

BoardSaver::Result BoardSaver::Flush() {
  std::unique_lock<std::mutex> hold(lock_);
  written_.wait(hold, [&] { return !pending_ && !writing_; });
  return last_;
}

void BoardSaver::Run() {
  std::unique_lock<std::mutex> hold(lock_);
  while (true) {
    wake_.wait(hold, [&] { return quit_ || pending_; });
    if (!pending_) return;  // quit, with nothing left to write
    const Pending write = std::move(*pending_);
    pending_.reset();
    writing_ = true;
    hold.unlock();
    Result result;
    result.saved = SaveBoardText(write.text, write.path, result.error);
    hold.lock();
    last_ = result;
    writing_ = false;
    written_.notify_all();
    hold.unlock();
    done_();
    hold.lock();
  }
}

}  // namespace quillon::board
