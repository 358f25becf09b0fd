// How far a file has played: on a console a bar redrawn in place with the
// elapsed and total time; otherwise a plain line when a file starts and ends.
#pragma once

#include <string>

namespace quillon::cli {

class Progress {
 public:
  Progress() = default;
  void Start(const std::string& name, const std::string& description, double totalSeconds);
  void Update(double elapsedSeconds);
  // Ends the file's line: "played", "stopped" and the like.
  void Finish(const std::string& outcome, double elapsedSeconds);
  // Clears the bar's line before another message is printed.
  void Break();

 private:
  bool console_ = false;
  bool drawn_ = false;
  std::string name_;
  double total_ = 0;
  int lastShown_ = -1;
};

}  // namespace quillon::cli
