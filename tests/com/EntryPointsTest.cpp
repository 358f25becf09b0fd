// The library's exports as the COM runtime and the audio engine use them.
#include "support/QuillonDll.h"

namespace quillon::test {
namespace {

class EntryPoints : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dll.Loaded()); }
  QuillonDll dll;
};

TEST_F(EntryPoints, OtherClassesAreNotAvailable) {
  // Class ids one digit away from Quillon's, and an interface id.
  CLSID others[] = {CLSID_Quillon, CLSID_Quillon, IID_IAudioProcessingObject};
  others[0].Data3 ^= 0x2;
  others[1].Data3 ^= 0x1;
  for (const CLSID& clsid : others) {
    void* untouched = reinterpret_cast<void*>(0x1234);
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, dll.GetClassObject(clsid, IID_IClassFactory, &untouched));
    EXPECT_EQ(reinterpret_cast<void*>(0x1234), untouched);
  }
}

TEST_F(EntryPoints, FactoryReferenceCountsAndUnloading) {
  EXPECT_EQ(S_OK, dll.CanUnloadNow());
  IClassFactory* factory = nullptr;
  ASSERT_EQ(S_OK, dll.GetClassObject(CLSID_Quillon, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
  EXPECT_EQ(2u, factory->AddRef());
  EXPECT_EQ(1u, factory->Release()) << "the factory starts with exactly one reference";
  EXPECT_EQ(S_FALSE, dll.CanUnloadNow());

  EXPECT_EQ(S_OK, factory->LockServer(TRUE));
  EXPECT_EQ(0u, factory->Release());
  EXPECT_EQ(S_FALSE, dll.CanUnloadNow()) << "locked";
  IClassFactory* again = nullptr;
  ASSERT_EQ(S_OK, dll.GetClassObject(CLSID_Quillon, IID_IUnknown, reinterpret_cast<void**>(&again)));
  EXPECT_EQ(S_OK, again->LockServer(FALSE));
  again->Release();
  EXPECT_EQ(S_OK, dll.CanUnloadNow());

  void* ppv = reinterpret_cast<void*>(1);
  EXPECT_EQ(E_NOINTERFACE, dll.GetClassObject(CLSID_Quillon, IID_IAudioProcessingObject, &ppv));
  EXPECT_EQ(nullptr, ppv);
  EXPECT_EQ(S_OK, dll.CanUnloadNow()) << "the unwanted factory was freed at once";
}

TEST_F(EntryPoints, LiveEffectsKeepTheLibrary) {
  ComPtr<IAudioProcessingObject> apo = dll.CreateEffect();
  ASSERT_TRUE(apo);
  ComPtr<IUnknown> identity;
  ASSERT_EQ(S_OK, apo->QueryInterface(IID_IUnknown, identity.PutVoid()));
  for (const IID* iid : {&IID_IAudioProcessingObjectRT, &IID_IAudioProcessingObjectConfiguration,
                         &IID_IAudioSystemEffects, &IID_IAudioProcessingObject}) {
    ComPtr<IUnknown> itf, back;
    EXPECT_EQ(S_OK, apo->QueryInterface(*iid, itf.PutVoid()));
    EXPECT_EQ(S_OK, itf->QueryInterface(IID_IUnknown, back.PutVoid()));
    EXPECT_EQ(identity.Get(), back.Get()) << "one identity for every interface";
  }
  void* none = reinterpret_cast<void*>(1);
  EXPECT_EQ(E_NOINTERFACE, apo->QueryInterface(IID_IClassFactory, &none));
  EXPECT_EQ(nullptr, none);
  identity = ComPtr<IUnknown>();
  EXPECT_EQ(S_FALSE, dll.CanUnloadNow());
  apo = ComPtr<IAudioProcessingObject>();
  EXPECT_EQ(S_OK, dll.CanUnloadNow());
}

TEST_F(EntryPoints, AggregationOnlyForIUnknown) {
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(S_OK, dll.GetClassObject(CLSID_Quillon, IID_IClassFactory, factory.PutVoid()));
  struct Outer : IUnknown {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
  } outer;
  void* ppv = nullptr;
  EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(&outer, IID_IAudioProcessingObject, &ppv));
  ASSERT_EQ(S_OK, factory->CreateInstance(&outer, IID_IUnknown, &ppv));
  factory = ComPtr<IClassFactory>();
  EXPECT_EQ(S_FALSE, dll.CanUnloadNow());
  EXPECT_EQ(0u, static_cast<IUnknown*>(ppv)->Release());
  EXPECT_EQ(S_OK, dll.CanUnloadNow());
}

}  // namespace
}  // namespace quillon::test
