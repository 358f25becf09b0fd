// Small helpers shared by the command-line tools.
#pragma once

#include <cstdint>
#include <string>

namespace quillon::tools {

// Monotonic microseconds from the performance counter, comparable between the
// processes of one machine.
int64_t MonotonicMicroseconds();

// A wide text for the console: ASCII kept, anything else shown as '?'.
std::string Narrow(const std::wstring& text);

}  // namespace quillon::tools
