// Starting helper programs of the test suite as separate processes.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

namespace quillon::test {

// Folder of the running test executable, with a trailing backslash.
inline std::wstring ExecutableFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

class ChildProcess {
 public:
  // Starts `program` with `arguments`; a program given without a folder is the
  // one beside the test executable.
  // With `outputFile`, the program's standard output and error go to that file.
  ChildProcess(const std::wstring& program, const std::wstring& arguments, const std::wstring& outputFile = L"") {
    const bool hasFolder = program.find_first_of(L"\\/") != std::wstring::npos;
    std::wstring command = L"\"" + (hasFolder ? L"" : ExecutableFolder()) + program + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    HANDLE output = INVALID_HANDLE_VALUE;
    if (!outputFile.empty()) {
      SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
      output = CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
      startup.dwFlags = STARTF_USESTDHANDLES;
      startup.hStdOutput = output;
      startup.hStdError = output;
      startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    }
    // A failed start is tried twice more, then reported with its error: one
    // clean-clone run saw a helper program not come up at all, once.
    DWORD error = 0;
    for (int attempt = 0; attempt < 3 && !started_; ++attempt) {
      if (attempt > 0) Sleep(200);
      started_ = CreateProcessW(nullptr, command.data(), nullptr, nullptr, output != INVALID_HANDLE_VALUE, 0,
                                nullptr, nullptr, &startup, &info_) != FALSE;
      if (!started_) error = GetLastError();
    }
    if (output != INVALID_HANDLE_VALUE) CloseHandle(output);
    if (started_) {
      CloseHandle(info_.hThread);
    } else {
      std::string text = "cannot start ";
      for (wchar_t c : command) text += c < 128 ? static_cast<char>(c) : '?';
      std::fputs((text + ": error " + std::to_string(error) + "\n").c_str(), stderr);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    if (started_) {
      if (WaitForSingleObject(info_.hProcess, 0) == WAIT_TIMEOUT) TerminateProcess(info_.hProcess, 99);
      CloseHandle(info_.hProcess);
    }
  }

  bool Started() const { return started_; }
  HANDLE Handle() const { return info_.hProcess; }
  // Waits at most `timeoutMs`; returns the exit code, or -1 when it did not end in time.
  long Wait(DWORD timeoutMs = 30000) {
    if (!started_ || WaitForSingleObject(info_.hProcess, timeoutMs) != WAIT_OBJECT_0) return -1;
    DWORD code = 0;
    GetExitCodeProcess(info_.hProcess, &code);
    return static_cast<long>(code);
  }
  void Kill() {
    if (started_) TerminateProcess(info_.hProcess, 99);
  }

 private:
  PROCESS_INFORMATION info_{};
  bool started_ = false;
};

}  // namespace quillon::test
