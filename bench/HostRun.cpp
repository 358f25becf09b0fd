#include "bench/HostRun.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

namespace quillon::bench {

std::wstring Folder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

std::wstring Level(const std::wstring& name, float level, double seconds) {
  const std::wstring path = Folder() + L"bench-" + name + L".wav";
  audio::Sound sound{kRate, 2, std::vector<float>(static_cast<size_t>(seconds * kRate) * 2, level)};
  std::string error;
  if (!audio::WriteSound(path, sound, error)) std::fprintf(stderr, "bench: %s\n", error.c_str());
  return path;
}

void SleepMs(double ms) { std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(ms)); }

Figures Summarise(std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  return {ms[ms.size() / 2], ms.back(), ms[std::min(ms.size() - 1, ms.size() * 99 / 100)]};
}

Host::Host(const wchar_t* endpoint, int seconds, const std::wstring& out, const std::wstring& report) {
  std::wstring command = L"\"" + Folder() + L"quillon-host.exe\" --endpoint " + std::wstring(endpoint) +
                         L" --seconds " + std::to_wstring(seconds) + L" --period-ms 10 --out \"" + out + L"\"";
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  UniqueHandle output(CreateFileW(report.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = output.Get();
  PROCESS_INFORMATION info{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info)) {
    std::fprintf(stderr, "bench: cannot start quillon-host (error %lu)\n", GetLastError());
    return;
  }
  CloseHandle(info.hThread);
  process_.Reset(info.hProcess);
}

double HostOutput::FrameUs(size_t frame) const {
  const double framesPerPeriod = kRate * kPeriodMs / 1000;
  return firstUs + (static_cast<double>(frame) / framesPerPeriod - static_cast<double>(firstPeriod)) * kPeriodMs * 1000;
}

bool ReadHostOutput(const std::wstring& out, const std::wstring& report, HostOutput& output, std::string& error) {
  std::ifstream in(report);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t period = text.find("first period with received sound: "), qpc = text.find("qpc_us=");
  if (period == std::string::npos || qpc == std::string::npos) {
    error = "the host's report has no first period with sound:\n" + text;
    return false;
  }
  output.firstPeriod = std::stoll(text.substr(period + 34));
  output.firstUs = static_cast<double>(std::stoll(text.substr(qpc + 7)));
  return audio::ReadSound(out, output.sound, error);
}

std::vector<double> RisingEdges(const HostOutput& output, float step) {
  std::vector<double> edges;
  float before = 0;
  const auto& samples = output.sound.samples;
  for (size_t f = 0; f < samples.size() / 2; ++f) {
    if (samples[2 * f] - before > step) edges.push_back(output.FrameUs(f));
    before = samples[2 * f];
  }
  return edges;
}

std::vector<double> Latencies(const std::vector<int64_t>& startsUs, const std::vector<double>& edgesUs) {
  std::vector<double> ms;
  for (int64_t start : startsUs) {
    const auto edge = std::lower_bound(edgesUs.begin(), edgesUs.end(), static_cast<double>(start));
    if (edge != edgesUs.end()) ms.push_back((*edge - static_cast<double>(start)) / 1000);
  }
  return ms;
}

}  // namespace quillon::bench
