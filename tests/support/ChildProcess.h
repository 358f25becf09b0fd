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
  // With `token`, it runs as that user.
  ChildProcess(const std::wstring& program, const std::wstring& arguments, const std::wstring& outputFile = L"",
               HANDLE token = nullptr) {
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
    started_ = (token != nullptr ? CreateProcessAsUserW(token, nullptr, command.data(), nullptr, nullptr,
                                                         output != INVALID_HANDLE_VALUE, 0, nullptr, nullptr,
                                                         &startup, &info_)
                                 : CreateProcessW(nullptr, command.data(), nullptr, nullptr,
                                                  output != INVALID_HANDLE_VALUE, 0, nullptr, nullptr, &startup,
                                                  &info_)) != FALSE;
    const DWORD error = started_ ? 0 : GetLastError();
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

  HANDLE Handle() const { return info_.hProcess; }
  // Waits at most `timeoutMs`; returns the exit code, or -1 when it did not end in time.
  long Wait(DWORD timeoutMs = 30000) {
    if (!started_ || WaitForSingleObject(info_.hProcess, timeoutMs) != WAIT_OBJECT_0) return -1;
    DWORD code = 0;
    GetExitCodeProcess(info_.hProcess, &code);
    return static_cast<long>(code);
  }
  // Delivers a console control event (CTRL_C_EVENT, CTRL_CLOSE_EVENT...) the
  // way the console host does: a thread of the program's own at CtrlRoutine,
  // which runs its handlers. (kernelbase sits at the same address in every process.)
  bool Interrupt(DWORD ctrlEvent = CTRL_C_EVENT) {
    auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine"));
    if (!started_ || routine == nullptr) return false;
    HANDLE thread = CreateRemoteThread(info_.hProcess, nullptr, 0, routine,
                                       reinterpret_cast<void*>(static_cast<ULONG_PTR>(ctrlEvent)), 0, nullptr);
    if (thread == nullptr) return false;
    CloseHandle(thread);
    return true;
  }
  void Kill() {
    if (started_) TerminateProcess(info_.hProcess, 99);
  }

 private:
  PROCESS_INFORMATION info_{};
  bool started_ = false;
};

}  // namespace quillon::test
