// Starting helper programs of the test suite as separate processes.
#pragma once

#include "platform/UniqueResource.h"

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
    UniqueHandle output;
    if (!outputFile.empty()) {
      SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
      output.Reset(CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
      startup.dwFlags = STARTF_USESTDHANDLES;
      startup.hStdOutput = startup.hStdError = output.Get();
      startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    }
    const BOOL inherits = static_cast<bool>(output);
    PROCESS_INFORMATION info{};
    const BOOL started = token != nullptr ? CreateProcessAsUserW(token, nullptr, command.data(), nullptr, nullptr,
                                                                 inherits, 0, nullptr, nullptr, &startup, &info)
                                          : CreateProcessW(nullptr, command.data(), nullptr, nullptr, inherits, 0,
                                                           nullptr, nullptr, &startup, &info);
    if (started) {
      CloseHandle(info.hThread);
      process_.Reset(info.hProcess);
    } else {
      const DWORD error = GetLastError();
      // Wine answers ERROR_INTERNAL_ERROR when the new process ended before it
      // had finished starting, without an exit status of its own.
      std::fprintf(stderr, "cannot start %ls: error %lu%s\n", command.c_str(), error,
                   error == ERROR_INTERNAL_ERROR ? " (the new process ended while it was starting)" : "");
    }
  }
  // A program still running is ended.
  ~ChildProcess() {
    if (process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) TerminateProcess(process_.Get(), 99);
  }

  HANDLE Handle() const { return process_.Get(); }
  // Waits at most `timeoutMs`; returns the exit code, or -1 when it did not end in time.
  long Wait(DWORD timeoutMs = 30000) {
    if (!process_ || WaitForSingleObject(process_.Get(), timeoutMs) != WAIT_OBJECT_0) return -1;
    DWORD code = 0;
    GetExitCodeProcess(process_.Get(), &code);
    return static_cast<long>(code);
  }
  // Delivers a console control event (CTRL_C_EVENT, CTRL_CLOSE_EVENT...) the
  // way the console host does: a thread of the program's own at CtrlRoutine,
  // which runs its handlers. (kernelbase sits at the same address in every process.)
  bool Interrupt(DWORD ctrlEvent = CTRL_C_EVENT) {
    auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine"));
    if (!process_ || routine == nullptr) return false;
    void* const event = reinterpret_cast<void*>(static_cast<ULONG_PTR>(ctrlEvent));
    return static_cast<bool>(UniqueHandle(CreateRemoteThread(process_.Get(), nullptr, 0, routine, event, 0, nullptr)));
  }
  void Kill() { if (process_) TerminateProcess(process_.Get(), 99); }

 private:
  UniqueHandle process_;
};

}  // namespace quillon::test
