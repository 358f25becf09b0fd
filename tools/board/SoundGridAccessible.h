// The sound grid as screen readers and other accessibility clients see it
// (MSAA's IAccessible, which UI Automation also reads): the grid is the
// object, each sound's button a simple child element (child id = index + 1)
// with its name, the role of a push button, its state (focused, pressed while
// it plays, off screen), its place, and "Press" as its default action. What
// the grid itself is (its parent, its window's place) comes from the
// system's standard object for the window.
//
// A client may hold the object after the grid is gone: Disconnect() makes
// every call fail from then on.
#pragma once

#include "platform/ComPtr.h"

#include <oleacc.h>

#include <atomic>

namespace quillon::board {

class SoundGrid;

class SoundGridAccessible final : public IAccessible {
 public:
  // Made with one reference, for the grid.
  static ComPtr<SoundGridAccessible> Make(SoundGrid& grid, HWND window);
  void Disconnect() { grid_ = nullptr; standard_.Reset(); }

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  // IDispatch: not offered (clients use the IAccessible methods).
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override;
  // IAccessible
  HRESULT STDMETHODCALLTYPE get_accParent(IDispatch** parent) override;
  HRESULT STDMETHODCALLTYPE get_accChildCount(long* count) override;
  HRESULT STDMETHODCALLTYPE get_accChild(VARIANT child, IDispatch** out) override;
  HRESULT STDMETHODCALLTYPE get_accName(VARIANT child, BSTR* name) override;
  HRESULT STDMETHODCALLTYPE get_accValue(VARIANT child, BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_accDescription(VARIANT child, BSTR* description) override;
  HRESULT STDMETHODCALLTYPE get_accRole(VARIANT child, VARIANT* role) override;
  HRESULT STDMETHODCALLTYPE get_accState(VARIANT child, VARIANT* state) override;
  HRESULT STDMETHODCALLTYPE get_accHelp(VARIANT child, BSTR* help) override;
  HRESULT STDMETHODCALLTYPE get_accHelpTopic(BSTR* file, VARIANT child, long* topic) override;
  HRESULT STDMETHODCALLTYPE get_accKeyboardShortcut(VARIANT child, BSTR* shortcut) override;
  HRESULT STDMETHODCALLTYPE get_accFocus(VARIANT* focus) override;
  HRESULT STDMETHODCALLTYPE get_accSelection(VARIANT* selection) override;
  HRESULT STDMETHODCALLTYPE get_accDefaultAction(VARIANT child, BSTR* action) override;
  HRESULT STDMETHODCALLTYPE accSelect(long flags, VARIANT child) override;
  HRESULT STDMETHODCALLTYPE accLocation(long* left, long* top, long* width, long* height, VARIANT child) override;
  HRESULT STDMETHODCALLTYPE accNavigate(long direction, VARIANT start, VARIANT* end) override;
  HRESULT STDMETHODCALLTYPE accHitTest(long left, long top, VARIANT* child) override;
  HRESULT STDMETHODCALLTYPE accDoDefaultAction(VARIANT child) override;
  HRESULT STDMETHODCALLTYPE put_accName(VARIANT child, BSTR name) override;
  HRESULT STDMETHODCALLTYPE put_accValue(VARIANT child, BSTR value) override;

 private:
  SoundGridAccessible(SoundGrid& grid, HWND window);
  ~SoundGridAccessible() = default;
  // The child's index, or -1 for the grid itself; E_INVALIDARG for an id that names nothing.
  HRESULT IndexOf(const VARIANT& child, long& index) const;

  std::atomic<ULONG> references_{1};
  SoundGrid* grid_;
  HWND window_;
  ComPtr<IAccessible> standard_;
};

}  // namespace quillon::board
