// Bounded polling for what another thread or process does.
#pragma once

#include <windows.h>

namespace quillon::test {

// Polls `done` every 5 ms for at most ten seconds.
template <typename Done>
bool Within(Done done) {
  for (int i = 0; i < 2000; ++i) {
    if (done()) return true;
    Sleep(5);
  }
  return done();
}

}  // namespace quillon::test
