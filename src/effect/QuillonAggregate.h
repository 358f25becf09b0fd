// The reference-counted outer object that owns a Quillon and answers
// QueryInterface for it.
#pragma once

#include "effect/Quillon.h"

#include <atomic>

namespace quillon {

class QuillonAggregate final : public IUnknown {
 public:
  // Creates an aggregate and its effect and returns the interface `riid` of the
  // aggregate in `ppv`. `outer`, when given, becomes the effect's controlling
  // unknown (aggregation); then only IUnknown may be asked for.
  static HRESULT Create(IUnknown* outer, REFIID riid, void** ppv);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

 private:
  QuillonAggregate() = default;
  ~QuillonAggregate() = default;

  Quillon* inner = nullptr;
  std::atomic<ULONG> refCount{0};
};

}  // namespace quillon
