// COM for the calling thread, for as long as the object lives.
#pragma once

#include <objbase.h>

namespace quillon::tools {

class ComApartment {
 public:
  // A window's thread asks for COINIT_APARTMENTTHREADED (the shell's dialogs
  // and drag and drop need it); worker threads for the multithreaded one.
  explicit ComApartment(DWORD model = COINIT_MULTITHREADED) : result_(CoInitializeEx(nullptr, model)) {}
  ~ComApartment() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  HRESULT result_;
};

}  // namespace quillon::tools
