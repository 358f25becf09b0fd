// quillon loudness: each file's integrated loudness, loudness range and true
// peak (EBU R128), and the gain that brings it to the target loudness with
// its true peak at or under -1 dBTP. The files are measured at once, on as
// many threads as the machine has cores; a long file shows its progress on a
// console.
#include "audio/Loudness.h"
#include "common/ToolSupport.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>
#include <vector>

namespace quillon::cli {
namespace {

using tools::Utf8;

struct Measured {
  audio::Loudness loudness;
  std::string error;  // why it could not be measured
};

const char* FromText(audio::LoudnessGain::From from) {
  switch (from) {
    case audio::LoudnessGain::From::Loudness: return "loudness";
    case audio::LoudnessGain::From::PeakCeiling: return "true peak";
    case audio::LoudnessGain::From::Peak: return "true peak only";
    case audio::LoudnessGain::From::None: return "none";
  }
  return "none";
}

std::string Number(const std::optional<double>& value, const char* unit) {
  if (!value) return "-";
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f %s", *value, unit);
  return text;
}

}  // namespace

int RunLoudness(const Arguments& args) {
  if (args.positional.empty()) return UsageError("loudness needs at least one file", "loudness");
  double target = -16;
  if (args.Has("--target") && !ParseDecimal(args.Value("--target"), -70, 0, target)) {
    return UsageError("--target " + Utf8(args.Value("--target")) + ": give LUFS from -70 to 0", "loudness");
  }
  const bool json = args.Has("--json"), console = !json && OutputIsConsole();
  const std::vector<std::wstring>& files = args.positional;
  std::vector<Measured> measured(files.size());
  // Each thread takes the next file; the console hears of long ones.
  std::atomic<size_t> next{0};
  std::mutex printing;
  const auto work = [&] {
    for (size_t i; (i = next++) < files.size();) {
      int told = 0;
      const auto progress = [&](double fraction) {
        const int tenth = static_cast<int>(fraction * 10);
        if (!console || tenth <= told || tenth >= 10) return;
        told = tenth;
        const std::lock_guard<std::mutex> hold(printing);
        Print("measuring %s: %d%%\n", Utf8(files[i]).c_str(), tenth * 10);
      };
      if (!audio::MeasureLoudness(files[i], 0, 0, measured[i].loudness, measured[i].error, progress) &&
          measured[i].error.empty()) {
        measured[i].error = "cannot be measured";
      }
    }
  };
  const size_t threads = std::min<size_t>(files.size(), std::max(1u, std::thread::hardware_concurrency()));
  std::vector<std::thread> pool;
  for (size_t t = 1; t < threads; ++t) pool.emplace_back(work);
  work();
  for (std::thread& thread : pool) thread.join();

  bool failed = false;
  nlohmann::json list = nlohmann::json::array();
  for (size_t i = 0; i < files.size(); ++i) {
    const Measured& m = measured[i];
    if (!m.error.empty()) {
      Fail("%s: %s", Utf8(files[i]).c_str(), m.error.c_str());
      failed = true;
      continue;
    }
    const audio::LoudnessGain gain = audio::GainFor(m.loudness, target);
    if (json) {
      const auto orNull = [](const std::optional<double>& v) { return v ? nlohmann::json(std::round(*v * 100) / 100) : nlohmann::json(nullptr); };
      list.push_back({{"file", Utf8(files[i])},
                      {"lufs", orNull(m.loudness.lufs)},
                      {"lra", std::round(m.loudness.lra * 100) / 100},
                      {"truePeak", orNull(m.loudness.truePeakDb)},
                      {"seconds", std::round(m.loudness.seconds * 1000) / 1000},
                      {"gain", std::round(gain.db * 100) / 100},
                      {"gainFrom", FromText(gain.from)}});
    } else {
      Print("%s\n  integrated %s, range %.1f LU, true peak %s; gain to %.1f LUFS: %+.1f dB (%s)\n",
            Utf8(files[i]).c_str(), Number(m.loudness.lufs, "LUFS").c_str(), m.loudness.lra,
            Number(m.loudness.truePeakDb, "dBTP").c_str(), target, gain.db, FromText(gain.from));
    }
  }
  if (json) Print("%s\n", nlohmann::json({{"target", target}, {"files", list}}).dump(2).c_str());
  return failed ? kExitFailed : 0;
}

}  // namespace quillon::cli
