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

// UTF-16 to UTF-8 and back, every character kept.
std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& utf8);

// `path` made full (relative to the current folder, "." and ".." taken out),
// whatever its length; `path` itself when Windows cannot.
std::wstring FullPath(const std::wstring& path);

// The full path of `name` in the folder of this program's own file: the
// files of a Quillon installation sit side by side.
std::wstring PathBesideThisProgram(const wchar_t* name);

// The system's text for a Win32 error code or an HRESULT, in UTF-8, without
// the final period.
std::string SystemText(unsigned long code);

}  // namespace quillon::tools
