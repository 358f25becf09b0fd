#include "quillon/Progress.h"

#include "quillon/CommandLine.h"
#include "quillon/Console.h"

#include <algorithm>
#include <cmath>

namespace quillon::cli {

void Progress::Start(const std::string& name, const std::string& description, double totalSeconds, bool bar) {
  console_ = bar && OutputIsConsole();
  playing_ = true;
  name_ = name;
  total_ = totalSeconds;
  lastShown_ = -1;
  if (!console_) {
    Print("playing %s (%s, %s)\n", name.c_str(), description.c_str(),
          totalSeconds > 0 ? Clock(totalSeconds).c_str() : "length unknown");
  }
  Update(0, totalSeconds);
}

void Progress::Update(double elapsed, double total) {
  elapsed_ = elapsed;
  if (total > 0) total_ = total;
  if (!console_) return;
  // Redrawn at most ten times a second.
  const int tenths = static_cast<int>(elapsed * 10);
  if (tenths == lastShown_) return;
  lastShown_ = tenths;
  if (total_ <= 0) {
    Print("\r%s %s ", Clock(elapsed).c_str(), name_.c_str());
    drawn_ = true;
    return;
  }
  constexpr int kWidth = 30;
  const double part = std::clamp(elapsed / total_, 0.0, 1.0);
  const int done = static_cast<int>(std::lround(part * kWidth));
  Print("\r%s / %s [%s%s] %s ", Clock(elapsed).c_str(), Clock(total_).c_str(), std::string(done, '#').c_str(),
        std::string(kWidth - done, '-').c_str(), name_.c_str());
  drawn_ = true;
}

void Progress::Finish(const std::string& outcome, double elapsed) {
  Break();
  playing_ = false;
  Print("%s %s (%s)\n", outcome.c_str(), name_.c_str(), Clock(elapsed).c_str());
}

void Progress::FinishIfPlaying(const std::string& outcome) {
  if (playing_) Finish(outcome, elapsed_);
}

void Progress::Break() {
  if (console_ && drawn_) Print("\n");
  drawn_ = false;
}

}  // namespace quillon::cli
