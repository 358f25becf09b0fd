// What the quillon command prints: UTF-8 text, written to a console as wide
// characters (so that any microphone name shows as it is) and to a file or
// pipe as UTF-8 bytes.
#pragma once

namespace quillon::cli {

// printf-style; the format and the text are UTF-8.
void Print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// One line on the error output, after "quillon: ".
void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// True when standard output is a console (then progress is drawn in place).
bool OutputIsConsole();

}  // namespace quillon::cli
