// How far a file has played: on a console a bar redrawn in place with the
// elapsed and total time; otherwise a plain line when a file starts and ends.
#pragma once

#include <string>

namespace quillon::cli {

class Progress {
 public:
  Progress() = default;
  // `bar`: a bar on a console; plain lines otherwise, or when several files
  // play at once. `totalSeconds` is 0 for a file that declares no length: the
  // elapsed time is shown alone until its length is known.
  void Start(const std::string& name, const std::string& description, double totalSeconds, bool bar = true);
  void Update(double elapsedSeconds, double totalSeconds);
  // Ends the file's line: "played", "stopped" and the like.
  void Finish(const std::string& outcome, double elapsedSeconds);
  // The same at the last time shown, when a file plays.
  void FinishIfPlaying(const std::string& outcome);
  // Clears the bar's line before another message is printed.
  void Break();

 private:
  bool console_ = false;
  bool drawn_ = false;
  bool playing_ = false;
  double elapsed_ = 0;
  std::string name_;
  double total_ = 0;
  int lastShown_ = -1;
};

}  // namespace quillon::cli
