#include "board/SoundGridAccessible.h"

#include "board/SoundGrid.h"

#include <string>

namespace quillon::board {
namespace {

HRESULT Text(const std::wstring& text, BSTR* out) {
  if (out == nullptr) return E_POINTER;
  *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return *out != nullptr ? S_OK : E_OUTOFMEMORY;
}

VARIANT Long(long value) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_I4;
  v.lVal = value;
  return v;
}

}  // namespace

ComPtr<SoundGridAccessible> SoundGridAccessible::Make(SoundGrid& grid, HWND window) {
  return ComPtr<SoundGridAccessible>::Adopt(new SoundGridAccessible(grid, window));
}

SoundGridAccessible::SoundGridAccessible(SoundGrid& grid, HWND window) : grid_(&grid), window_(window) {
  CreateStdAccessibleObject(window, OBJID_CLIENT, IID_IAccessible, standard_.PutVoid());
}

HRESULT SoundGridAccessible::QueryInterface(REFIID iid, void** out) {
  if (out == nullptr) return E_POINTER;
  if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IAccessible) {
    *out = static_cast<IAccessible*>(this);
    AddRef();
    return S_OK;
  }
  *out = nullptr;
  return E_NOINTERFACE;
}

ULONG SoundGridAccessible::AddRef() { return ++references_; }

ULONG SoundGridAccessible::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT SoundGridAccessible::GetTypeInfoCount(UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = 0;
  return S_OK;
}
HRESULT SoundGridAccessible::GetTypeInfo(UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }
HRESULT SoundGridAccessible::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) { return E_NOTIMPL; }
HRESULT SoundGridAccessible::Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) {
  return E_NOTIMPL;
}

HRESULT SoundGridAccessible::IndexOf(const VARIANT& child, long& index) const {
  if (grid_ == nullptr) return RPC_E_DISCONNECTED;
  if (child.vt != VT_I4) return E_INVALIDARG;
  if (child.lVal == CHILDID_SELF) {
    index = -1;
    return S_OK;
  }
  if (child.lVal < 1 || static_cast<size_t>(child.lVal) > grid_->Count()) return E_INVALIDARG;
  index = child.lVal - 1;
  return S_OK;
}

HRESULT SoundGridAccessible::get_accParent(IDispatch** parent) {
  if (grid_ == nullptr || !standard_) return RPC_E_DISCONNECTED;
  return standard_->get_accParent(parent);
}

HRESULT SoundGridAccessible::get_accChildCount(long* count) {
  if (count == nullptr) return E_POINTER;
  if (grid_ == nullptr) return RPC_E_DISCONNECTED;
  *count = static_cast<long>(grid_->Count());
  return S_OK;
}

HRESULT SoundGridAccessible::get_accChild(VARIANT child, IDispatch** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  return S_FALSE;  // the buttons are simple elements of the grid, not objects of their own
}

HRESULT SoundGridAccessible::get_accName(VARIANT child, BSTR* name) {
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0) return Text(L"Sounds", name);
  return Text(grid_->NameOf(static_cast<size_t>(index)), name);
}

HRESULT SoundGridAccessible::get_accValue(VARIANT, BSTR* value) {
  if (value != nullptr) *value = nullptr;
  return DISP_E_MEMBERNOTFOUND;
}

HRESULT SoundGridAccessible::get_accDescription(VARIANT child, BSTR* description) {
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0 || grid_->At(static_cast<size_t>(index)).detail.empty()) {
    if (description != nullptr) *description = nullptr;
    return S_FALSE;
  }
  return Text(grid_->At(static_cast<size_t>(index)).detail, description);
}

HRESULT SoundGridAccessible::get_accRole(VARIANT child, VARIANT* role) {
  if (role == nullptr) return E_POINTER;
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  *role = Long(index < 0 ? ROLE_SYSTEM_PANE : ROLE_SYSTEM_PUSHBUTTON);
  return S_OK;
}

HRESULT SoundGridAccessible::get_accState(VARIANT child, VARIANT* state) {
  if (state == nullptr) return E_POINTER;
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0) return standard_ ? standard_->get_accState(child, state) : RPC_E_DISCONNECTED;
  long flags = STATE_SYSTEM_FOCUSABLE;
  const size_t i = static_cast<size_t>(index);
  if (i == grid_->FocusIndex() && grid_->HasKeyboardFocus()) flags |= STATE_SYSTEM_FOCUSED;
  RECT cell = grid_->CellRect(i), client{}, seen{};
  GetClientRect(window_, &client);
  if (!IntersectRect(&seen, &cell, &client)) flags |= STATE_SYSTEM_OFFSCREEN;
  *state = Long(flags);
  return S_OK;
}

HRESULT SoundGridAccessible::get_accHelp(VARIANT, BSTR* help) {
  if (help != nullptr) *help = nullptr;
  return S_FALSE;
}

HRESULT SoundGridAccessible::get_accHelpTopic(BSTR* file, VARIANT, long* topic) {
  if (file != nullptr) *file = nullptr;
  if (topic != nullptr) *topic = 0;
  return S_FALSE;
}

HRESULT SoundGridAccessible::get_accKeyboardShortcut(VARIANT, BSTR* shortcut) {
  if (shortcut != nullptr) *shortcut = nullptr;
  return S_FALSE;
}

HRESULT SoundGridAccessible::get_accFocus(VARIANT* focus) {
  if (focus == nullptr) return E_POINTER;
  if (grid_ == nullptr) return RPC_E_DISCONNECTED;
  VariantInit(focus);
  if (!grid_->HasKeyboardFocus()) return S_FALSE;
  *focus = Long(grid_->Count() == 0 ? CHILDID_SELF : static_cast<long>(grid_->FocusIndex()) + 1);
  return S_OK;
}

HRESULT SoundGridAccessible::get_accSelection(VARIANT* selection) {
  if (selection == nullptr) return E_POINTER;
  VariantInit(selection);
  return S_FALSE;
}

HRESULT SoundGridAccessible::get_accDefaultAction(VARIANT child, BSTR* action) {
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0) {
    if (action != nullptr) *action = nullptr;
    return S_FALSE;
  }
  return Text(L"Press", action);
}

HRESULT SoundGridAccessible::accSelect(long flags, VARIANT child) {
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0 || (flags & ~SELFLAG_TAKEFOCUS) != 0) return E_INVALIDARG;
  grid_->FocusIndexFromOutside(static_cast<size_t>(index));
  return S_OK;
}

HRESULT SoundGridAccessible::accLocation(long* left, long* top, long* width, long* height, VARIANT child) {
  if (left == nullptr || top == nullptr || width == nullptr || height == nullptr) return E_POINTER;
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0) return standard_ ? standard_->accLocation(left, top, width, height, child) : RPC_E_DISCONNECTED;
  RECT r = grid_->CellRect(static_cast<size_t>(index));
  MapWindowPoints(window_, nullptr, reinterpret_cast<POINT*>(&r), 2);
  *left = r.left;
  *top = r.top;
  *width = r.right - r.left;
  *height = r.bottom - r.top;
  return S_OK;
}

HRESULT SoundGridAccessible::accNavigate(long direction, VARIANT start, VARIANT* end) {
  if (end == nullptr) return E_POINTER;
  VariantInit(end);
  long index = 0;
  const HRESULT hr = IndexOf(start, index);
  if (FAILED(hr)) return hr;
  const long count = static_cast<long>(grid_->Count()), columns = grid_->Columns();
  long to = -1;
  switch (direction) {
    case NAVDIR_FIRSTCHILD: to = index < 0 && count > 0 ? 0 : -1; break;
    case NAVDIR_LASTCHILD: to = index < 0 && count > 0 ? count - 1 : -1; break;
    case NAVDIR_NEXT: to = index >= 0 && index + 1 < count ? index + 1 : -1; break;
    case NAVDIR_PREVIOUS: to = index > 0 ? index - 1 : -1; break;
    case NAVDIR_RIGHT: to = index >= 0 && index + 1 < count && (index + 1) % columns != 0 ? index + 1 : -1; break;
    case NAVDIR_LEFT: to = index > 0 && index % columns != 0 ? index - 1 : -1; break;
    case NAVDIR_DOWN: to = index >= 0 && index + columns < count ? index + columns : -1; break;
    case NAVDIR_UP: to = index >= columns ? index - columns : -1; break;
    default: return E_INVALIDARG;
  }
  if (index < 0 && direction != NAVDIR_FIRSTCHILD && direction != NAVDIR_LASTCHILD) {
    return standard_ ? standard_->accNavigate(direction, start, end) : RPC_E_DISCONNECTED;
  }
  if (to < 0) return S_FALSE;
  *end = Long(to + 1);
  return S_OK;
}

HRESULT SoundGridAccessible::accHitTest(long left, long top, VARIANT* child) {
  if (child == nullptr) return E_POINTER;
  if (grid_ == nullptr) return RPC_E_DISCONNECTED;
  VariantInit(child);
  POINT at{left, top};
  ScreenToClient(window_, &at);
  RECT client{};
  GetClientRect(window_, &client);
  if (!PtInRect(&client, at)) return S_FALSE;
  const int index = grid_->HitTest(at);
  *child = Long(index < 0 ? CHILDID_SELF : index + 1);
  return S_OK;
}

HRESULT SoundGridAccessible::accDoDefaultAction(VARIANT child) {
  long index = 0;
  const HRESULT hr = IndexOf(child, index);
  if (FAILED(hr)) return hr;
  if (index < 0) return DISP_E_MEMBERNOTFOUND;
  grid_->Press(static_cast<size_t>(index));
  return S_OK;
}

HRESULT SoundGridAccessible::put_accName(VARIANT, BSTR) { return E_NOTIMPL; }
HRESULT SoundGridAccessible::put_accValue(VARIANT, BSTR) { return E_NOTIMPL; }

}  // namespace quillon::board
