// quillon-host: runs Quillon the way the Windows audio engine does, for one
// capture endpoint, on a sound file instead of a microphone (any format
// libsndfile reads, at its own rate and channel count), writing a float WAV.
//
//   quillon-host --out <output.wav> [--in <mic.wav>] [--dll <Quillon.dll> | --com]
//                [--endpoint <text>] [--period-ms <n>] [--speed <x>]
//                [--seconds <n>] [--rate <hz>] [--channels <n>] [--tail-ms <n>]
//                [--name <friendly name>]
//
// It loads the effect, gives Initialize an endpoint record whose property
// store answers the endpoint's GUID, negotiates float32 at the input's rate
// and channel count, locks, and calls APOProcess period by period on a thread
// of its own at real-time pace (or `--speed` times it; 0 = as fast as possible).
// Without --in it processes silence for --seconds. --name gives the endpoint a
// friendly name where Windows keeps them, for as long as the host runs.
#include "common/ConsoleInterrupt.h"
#include "audio/SoundFile.h"
#include "host/EffectHost.h"
#include "host/EndpointName.h"

#include <windows.h>
#include <shellapi.h>

#include <cstdio>
#include <cwchar>
#include <memory>
#include <string>
#include <utility>

using namespace quillon::tools;
namespace audio = quillon::audio;

namespace {

int Usage(const char* problem) {
  std::fprintf(stderr, "quillon-host: %s\n", problem);
  std::fprintf(stderr,
               "usage: quillon-host --out <output.wav> [--in <mic.wav>] [--dll <Quillon.dll> | --com]\n"
               "                    [--endpoint <text>] [--period-ms <n>] [--speed <x>] [--seconds <n>]\n"
               "                    [--rate <hz>] [--channels <n>] [--tail-ms <n>] [--name <friendly name>]\n");
  return 2;
}

}  // namespace

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  HostOptions options;
  std::wstring inPath, outPath, name;
  double seconds = 10.0;
  uint32_t rate = 48000, channels = 2;
  for (int i = 1; i < argc; ++i) {
    const std::wstring arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == L"--com") {
      options.useCom = true;
    } else if (!hasValue) {
      return Usage(("missing value or unknown option " + Narrow(arg)).c_str());
    } else if (arg == L"--in") {
      inPath = argv[++i];
    } else if (arg == L"--out") {
      outPath = argv[++i];
    } else if (arg == L"--dll") {
      options.dllPath = argv[++i];
    } else if (arg == L"--endpoint") {
      options.endpoint = argv[++i];
    } else if (arg == L"--period-ms") {
      options.periodMs = wcstod(argv[++i], nullptr);
    } else if (arg == L"--speed") {
      options.speed = wcstod(argv[++i], nullptr);
    } else if (arg == L"--seconds") {
      seconds = wcstod(argv[++i], nullptr);
    } else if (arg == L"--rate") {
      rate = wcstoul(argv[++i], nullptr, 10);
    } else if (arg == L"--channels") {
      channels = wcstoul(argv[++i], nullptr, 10);
    } else if (arg == L"--name") {
      name = argv[++i];
    } else if (arg == L"--tail-ms") {
      options.tailMs = wcstod(argv[++i], nullptr);
    } else {
      return Usage(("unknown option " + Narrow(arg)).c_str());
    }
  }
  if (outPath.empty()) return Usage("--out is required");
  // Written so that a value that is not a number (NaN) is refused too.
  if (!(options.speed >= 0) || !(seconds >= 0) || !(options.tailMs >= 0)) {
    return Usage("--speed, --seconds and --tail-ms must not be negative");
  }
  if (!(options.periodMs > 0) || !(options.periodMs <= 1000)) {
    return Usage("--period-ms must be above 0 and at most 1000");
  }

  audio::Sound input;
  if (!inPath.empty()) {
    std::string error;
    if (!audio::ReadSound(inPath, input, error)) {
      std::fprintf(stderr, "quillon-host: cannot read %s: %s\n", Narrow(inPath).c_str(), error.c_str());
      return 1;
    }
  } else {
    input.rate = rate;
    input.channels = channels;
    input.samples.assign(static_cast<size_t>(seconds * rate) * channels, 0.0f);
  }

  if (FramesPerPeriod(input.rate, options.periodMs) == 0) {
    return Usage(("a period of " + std::to_string(options.periodMs) + " ms is shorter than one frame at " +
                  std::to_string(input.rate) + " Hz")
                     .c_str());
  }

  std::unique_ptr<EndpointName> named;
  if (!name.empty()) {
    named = std::make_unique<EndpointName>(options.endpoint, name);
    std::string error;
    if (!named->Written(error)) {
      std::fprintf(stderr, "quillon-host: %s\n", error.c_str());
      return 1;
    }
  }
  ConsoleInterrupt interrupt;
  options.interrupt = interrupt.Event();
  HostReport report;
  std::vector<float> output;
  std::string error;
  if (!RunEffect(options, input, output, report, error)) {
    std::fprintf(stderr, "quillon-host: %s\n", error.c_str());
    return 1;
  }
  if (report.interrupted) {
    std::printf("interrupted after %d periods; the effect was unlocked and released\n", report.periods);
    return kExitInterrupted;
  }
  std::string writeError;
  if (!audio::WriteSound(outPath, {input.rate, input.channels, std::move(output)}, writeError)) {
    std::fprintf(stderr, "quillon-host: cannot write %s: %s\n", Narrow(outPath).c_str(), writeError.c_str());
    return 1;
  }
  std::printf("periods processed: %d\n", report.periods);
  std::printf("periods with received sound: %d\n", report.periodsWithSound);
  std::printf("first period with received sound: %d (qpc_us=%lld)\n", report.firstSoundPeriod,
              static_cast<long long>(report.firstSoundQpcUs));
  std::printf("APOProcess per period: median %.1f us, p99 %.1f us, max %.1f us\n", report.medianUs, report.p99Us,
              report.maxUs);
  return 0;
}
