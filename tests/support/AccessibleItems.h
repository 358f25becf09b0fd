// A window's items as an accessibility client (a screen reader) reads them,
// across processes: the window's client object through WM_GETOBJECT, and each
// of its child elements' name, state and place on the screen.
#pragma once

#include "platform/ComPtr.h"

#include <windows.h>
#include <oleacc.h>

#include <optional>
#include <string>
#include <vector>

namespace quillon::test {

struct AccessibleItem {
  std::wstring name;
  long state = 0;   // STATE_SYSTEM_...
  RECT place{};     // on the screen
};

// COM for the calling thread, for as long as the object lives.
class AccessibleClient {
 public:
  AccessibleClient() : joined_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ~AccessibleClient() {
    if (joined_) CoUninitialize();
  }
  AccessibleClient(const AccessibleClient&) = delete;
  AccessibleClient& operator=(const AccessibleClient&) = delete;

  // The window's client object, or null.
  static ComPtr<IAccessible> Of(HWND window) {
    ComPtr<IAccessible> object;
    if (FAILED(AccessibleObjectFromWindow(window, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                          object.PutVoid()))) {
      return {};
    }
    return object;
  }
  static long Count(IAccessible& object) {
    long count = 0;
    return SUCCEEDED(object.get_accChildCount(&count)) ? count : -1;
  }
  // The child element `index` (from 0), or nothing.
  static std::optional<AccessibleItem> Item(IAccessible& object, long index) {
    VARIANT child;
    VariantInit(&child);
    child.vt = VT_I4;
    child.lVal = index + 1;
    AccessibleItem item;
    BSTR name = nullptr;
    if (object.get_accName(child, &name) != S_OK) return std::nullopt;
    item.name.assign(name, SysStringLen(name));
    SysFreeString(name);
    VARIANT state;
    VariantInit(&state);
    if (object.get_accState(child, &state) == S_OK && state.vt == VT_I4) item.state = state.lVal;
    long left = 0, top = 0, width = 0, height = 0;
    if (object.accLocation(&left, &top, &width, &height, child) == S_OK) item.place = {left, top, left + width, top + height};
    return item;
  }
  // Every child element, in order.
  static std::vector<AccessibleItem> Items(HWND window) {
    std::vector<AccessibleItem> items;
    const ComPtr<IAccessible> object = Of(window);
    if (!object) return items;
    const long count = Count(*object.Get());
    for (long i = 0; i < count; ++i) {
      if (auto item = Item(*object.Get(), i)) items.push_back(std::move(*item));
    }
    return items;
  }
  // The index of the child element with the focus, or -1.
  static long Focused(IAccessible& object) {
    VARIANT focus;
    VariantInit(&focus);
    if (object.get_accFocus(&focus) != S_OK || focus.vt != VT_I4 || focus.lVal == CHILDID_SELF) return -1;
    return focus.lVal - 1;
  }
  static bool DoDefaultAction(IAccessible& object, long index) {
    VARIANT child;
    VariantInit(&child);
    child.vt = VT_I4;
    child.lVal = index + 1;
    return object.accDoDefaultAction(child) == S_OK;
  }

 private:
  bool joined_;
};

}  // namespace quillon::test
