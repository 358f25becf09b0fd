#include "common/Wav.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace quillon::tools {
namespace {

constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatFloat = 3;
constexpr uint16_t kFormatExtensible = 0xFFFE;

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

uint32_t U32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24); }
uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

void Put32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Put16(std::vector<uint8_t>& out, uint16_t v) {
  out.push_back(static_cast<uint8_t>(v));
  out.push_back(static_cast<uint8_t>(v >> 8));
}

}  // namespace

std::string DescribeFormat(uint32_t rate, uint32_t channels, bool isFloat, uint32_t bits) {
  return std::to_string(rate) + " Hz, " + std::to_string(channels) + (channels == 1 ? " channel, " : " channels, ") +
         (isFloat ? "float" : "PCM ") + std::to_string(bits) + (isFloat ? "" : "-bit");
}

bool ReadWav(const std::wstring& path, WavData& wav, std::string& error) {
  File file(_wfopen(path.c_str(), L"rb"));
  if (!file) {
    error = "cannot open the file";
    return false;
  }
  std::vector<uint8_t> bytes;
  uint8_t buffer[65536];
  for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0;) bytes.insert(bytes.end(), buffer, buffer + n);
  if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 || std::memcmp(bytes.data() + 8, "WAVE", 4) != 0) {
    error = "not a WAV file (no RIFF/WAVE header)";
    return false;
  }
  uint16_t format = 0;
  const uint8_t* data = nullptr;
  size_t dataBytes = 0;
  for (size_t pos = 12; pos + 8 <= bytes.size();) {
    const uint32_t size = U32(bytes.data() + pos + 4);
    // A chunk may end the file with an empty body: point at it, never index past the end.
    const uint8_t* body = bytes.data() + pos + 8;
    const size_t available = std::min<size_t>(size, bytes.size() - pos - 8);
    if (std::memcmp(bytes.data() + pos, "fmt ", 4) == 0 && available >= 16) {
      format = U16(body);
      wav.channels = U16(body + 2);
      wav.rate = U32(body + 4);
      wav.bitsPerSample = U16(body + 14);
      if (format == kFormatExtensible && available >= 26) format = U16(body + 24);  // first two bytes of the subformat
    } else if (std::memcmp(bytes.data() + pos, "data", 4) == 0) {
      data = body;
      dataBytes = available;
    }
    pos += 8 + size + (size & 1);
  }
  if (format == 0 || data == nullptr || wav.channels == 0) {
    error = "no format or data chunk";
    return false;
  }
  wav.isFloat = format == kFormatFloat;
  const uint32_t width = wav.bitsPerSample / 8;
  if (!((format == kFormatFloat && wav.bitsPerSample == 32) ||
        (format == kFormatPcm && width >= 1 && width <= 4 && wav.bitsPerSample % 8 == 0))) {
    error = "unsupported sample type (format " + std::to_string(format) + ", " + std::to_string(wav.bitsPerSample) +
            " bits)";
    return false;
  }
  const size_t count = dataBytes / width;
  wav.samples.resize(count);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* p = data + i * width;
    if (wav.isFloat) {
      std::memcpy(&wav.samples[i], p, 4);
    } else if (width == 1) {
      wav.samples[i] = (static_cast<int>(p[0]) - 128) / 128.0f;
    } else {
      int32_t v = 0;
      for (uint32_t b = 0; b < width; ++b) v |= static_cast<int32_t>(p[b]) << (8 * (4 - width + b));
      wav.samples[i] = static_cast<float>(v / 2147483648.0);
    }
  }
  return true;
}

bool WriteWav(const std::wstring& path, uint32_t rate, uint16_t channels, const std::vector<float>& samples) {
  std::vector<uint8_t> out;
  const uint32_t dataBytes = static_cast<uint32_t>(samples.size() * 4);
  out.insert(out.end(), {'R', 'I', 'F', 'F'});
  Put32(out, 38 + dataBytes);
  out.insert(out.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
  Put32(out, 18);
  Put16(out, kFormatFloat);
  Put16(out, channels);
  Put32(out, rate);
  Put32(out, rate * channels * 4);
  Put16(out, static_cast<uint16_t>(channels * 4));
  Put16(out, 32);
  Put16(out, 0);  // no extension: float WAVs carry the field
  out.insert(out.end(), {'d', 'a', 't', 'a'});
  Put32(out, dataBytes);
  File file(_wfopen(path.c_str(), L"wb"));
  if (!file) return false;
  bool ok = std::fwrite(out.data(), 1, out.size(), file.get()) == out.size();
  ok = ok && std::fwrite(samples.data(), 4, samples.size(), file.get()) == samples.size();
  return ok;
}

}  // namespace quillon::tools
