#include "host/EffectHost.h"

#include "effect/RegistrationProperties.h"
#include "host/EndpointProperties.h"

#include "platform/ApoInterfaces.h"
#include "platform/AudioMediaType.h"
#include "platform/ComPtr.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

namespace quillon::tools {
namespace {

// COM for the calling thread, for as long as the effect is used.
struct ComApartment {
  const bool entered = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  ~ComApartment() {
    if (entered) CoUninitialize();
  }
};


std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08lx", static_cast<unsigned long>(hr));
  return text;
}

void WaitUntil(int64_t deadlineUs) {
  for (int64_t now; (now = MonotonicMicroseconds()) < deadlineUs;) {
    if (deadlineUs - now > 2000) {
      Sleep(static_cast<DWORD>((deadlineUs - now) / 1000 - 1));
    } else {
      std::this_thread::yield();
    }
  }
}

}  // namespace

uint32_t FramesPerPeriod(uint32_t rate, double periodMs) {
  return static_cast<uint32_t>(std::lround(rate * periodMs / 1000.0));
}

bool RunEffect(const HostOptions& options, const audio::Sound& input, std::vector<float>& output, HostReport& report,
               std::string& error) {
  ComApartment apartment;
  UniqueModule library;
  ComPtr<IAudioProcessingObject> apo;
  if (options.useCom) {
    HRESULT hr = CoCreateInstance(CLSID_Quillon, nullptr, CLSCTX_INPROC_SERVER, IID_IAudioProcessingObject,
                                  apo.PutVoid());
    if (FAILED(hr)) {
      error = "CoCreateInstance of the effect failed (" + Hex(hr) + "): is the COM class registered?";
      return false;
    }
  } else {
    const std::wstring path = options.dllPath.empty() ? tools::PathBesideThisProgram(L"Quillon.dll") : options.dllPath;
    library.Reset(LoadLibraryW(path.c_str()));
    if (!library) {
      error = "cannot load the effect library (error " + std::to_string(GetLastError()) + ")";
      return false;
    }
    auto getClassObject = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>(
        GetProcAddress(library.Get(), "DllGetClassObject"));
    ComPtr<IClassFactory> factory;
    HRESULT hr = getClassObject == nullptr ? E_NOINTERFACE
                                           : getClassObject(CLSID_Quillon, IID_IClassFactory,
                                                            factory.PutVoid());
    if (SUCCEEDED(hr)) hr = factory->CreateInstance(nullptr, IID_IAudioProcessingObject, apo.PutVoid());
    if (FAILED(hr)) {
      error = "the library does not create the effect (" + Hex(hr) + ")";
      return false;
    }
  }
  ComPtr<IAudioProcessingObjectRT> rt;
  ComPtr<IAudioProcessingObjectConfiguration> config;
  apo->QueryInterface(IID_IAudioProcessingObjectRT, rt.PutVoid());
  apo->QueryInterface(IID_IAudioProcessingObjectConfiguration, config.PutVoid());

  EndpointProperties store(options.endpoint);
  APOInitSystemEffects2 init{};
  init.APOInit.cbSize = sizeof(init);
  init.APOInit.clsid = CLSID_Quillon;
  init.pAPOEndpointProperties = &store;
  HRESULT hr = apo->Initialize(sizeof(init), reinterpret_cast<BYTE*>(&init));
  if (FAILED(hr)) {
    error = "Initialize failed (" + Hex(hr) + ")";
    return false;
  }

  const uint32_t channels = input.channels;
  const uint32_t frames = FramesPerPeriod(input.rate, options.periodMs);
  if (frames == 0) {
    error = "a period of " + std::to_string(options.periodMs) + " ms is shorter than one frame";
    return false;
  }
  ComPtr<IAudioMediaType> format, accepted;
  CreateAudioMediaType(MakeFloatFormat(channels, static_cast<float>(input.rate)), format.Put());
  hr = apo->IsInputFormatSupported(format.Get(), format.Get(), accepted.Put());
  if (hr != S_OK) {
    error = "the effect does not accept float32 at " + std::to_string(input.rate) + " Hz with " +
            std::to_string(channels) + " channels (" + Hex(hr) + ")";
    return false;
  }

  std::vector<float> in(static_cast<size_t>(frames) * channels), out(in.size()), mic(in.size());
  APO_CONNECTION_DESCRIPTOR inDesc{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(in.data()), frames,
                                   format.Get(), APO_CONNECTION_DESCRIPTOR_SIGNATURE};
  APO_CONNECTION_DESCRIPTOR outDesc{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, reinterpret_cast<UINT_PTR>(out.data()),
                                    frames, format.Get(), APO_CONNECTION_DESCRIPTOR_SIGNATURE};
  APO_CONNECTION_DESCRIPTOR* inDescs[] = {&inDesc};
  APO_CONNECTION_DESCRIPTOR* outDescs[] = {&outDesc};
  hr = config->LockForProcess(1, inDescs, 1, outDescs);
  if (FAILED(hr)) {
    error = "LockForProcess failed (" + Hex(hr) + ")";
    return false;
  }

  const size_t period = in.size();
  const size_t inputPeriods = (input.samples.size() + period - 1) / period;
  const size_t periods = inputPeriods + static_cast<size_t>(std::ceil(options.tailMs / options.periodMs));
  output.assign(periods * period, 0.0f);
  std::vector<double> costs;
  costs.reserve(periods);

  // The engine's real-time thread.
  std::thread engine([&] {
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    APO_CONNECTION_PROPERTY inProp{reinterpret_cast<UINT_PTR>(in.data()), frames, BUFFER_VALID,
                                   APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY outProp{reinterpret_cast<UINT_PTR>(out.data()), 0, BUFFER_INVALID,
                                    APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&inProp};
    APO_CONNECTION_PROPERTY* outs[] = {&outProp};
    const int64_t start = MonotonicMicroseconds();
    const double periodUs = options.periodMs * 1000.0 / (options.speed > 0 ? options.speed : 1.0);
    for (size_t p = 0; p < periods; ++p) {
      if (options.interrupt != nullptr && WaitForSingleObject(options.interrupt, 0) == WAIT_OBJECT_0) {
        report.interrupted = true;
        break;
      }
      if (options.speed > 0) WaitUntil(start + static_cast<int64_t>(p * periodUs));
      const size_t offset = p * period;
      const size_t available = offset < input.samples.size() ? std::min(period, input.samples.size() - offset) : 0;
      std::fill(in.begin(), in.end(), 0.0f);
      std::copy_n(input.samples.begin() + static_cast<ptrdiff_t>(offset), available, in.begin());
      inProp.u32BufferFlags = available > 0 ? BUFFER_VALID : BUFFER_SILENT;
      std::copy(in.begin(), in.end(), mic.begin());
      LARGE_INTEGER before, after, frequency;
      QueryPerformanceCounter(&before);
      rt->APOProcess(1, ins, 1, outs);
      QueryPerformanceCounter(&after);
      QueryPerformanceFrequency(&frequency);
      costs.push_back((after.QuadPart - before.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart));
      std::copy(out.begin(), out.end(), output.begin() + static_cast<ptrdiff_t>(offset));
      if (out != mic) {
        ++report.periodsWithSound;
        if (report.firstSoundPeriod < 0) {
          report.firstSoundPeriod = static_cast<int>(p);
          report.firstSoundQpcUs = MonotonicMicroseconds();
        }
      }
      ++report.periods;
    }
  });
  engine.join();
  config->UnlockForProcess();
  if (input.samples.size() < output.size() && options.tailMs <= 0) output.resize(input.samples.size());

  std::sort(costs.begin(), costs.end());
  if (!costs.empty()) {
    report.medianUs = costs[costs.size() / 2];
    report.p99Us = costs[std::min(costs.size() - 1, costs.size() * 99 / 100)];
    report.maxUs = costs.back();
  }
  return true;
}

}  // namespace quillon::tools
