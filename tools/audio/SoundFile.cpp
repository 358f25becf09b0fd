// windows.h first and the switch below make sndfile.h declare sf_wchar_open.
#include <windows.h>
#define ENABLE_SNDFILE_WINDOWS_PROTOTYPES 1
#include "audio/SoundFile.h"

#include <cstring>

namespace quillon::audio {
namespace {

std::string Reason(SNDFILE* file) {
  std::string text = sf_strerror(file);
  // libsndfile's texts for "cannot open" name the cause after a colon or in
  // full sentences; one line is kept.
  if (const size_t nl = text.find('\n'); nl != std::string::npos) text.resize(nl);
  return text;
}

bool FileExists(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

}  // namespace

bool SoundFile::OpenRead(const std::wstring& path, std::string& error) {
  if (!FileExists(path)) {
    error = GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES ? "no such file" : "is a folder";
    return false;
  }
  info_ = SF_INFO{};
  failed_ = false;
  file_.reset(sf_wchar_open(path.c_str(), SFM_READ, &info_));
  if (!file_) {
    // The file is there: whatever libsndfile says (for an MPEG stream it cannot
    // parse, that the file "does not exist"), it holds nothing it can read.
    std::string reason = Reason(nullptr);
    while (!reason.empty() && reason.back() == '.') reason.pop_back();
    if (reason.find("does not exist") != std::string::npos) reason = "not a sound format it knows, or damaged";
    error = "holds no sound that can be read (" + reason + ")";
    return false;
  }
  if (info_.channels < 1 || info_.samplerate < 1) {
    error = "the header names no channels or no rate";
    return false;
  }
  // Floats from integer samples are scaled to -1..1; float files stay as they are.
  sf_command(file_.get(), SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
  return CheckWhole(error);
}

// A WAV or AIFF whose header announces more sound than the file holds is
// shortened silently by libsndfile, which notes it in its log ("should be");
// other formats show a missing end when the last frame cannot be reached.
bool SoundFile::CheckWhole(std::string& error) {
  char log[8192] = {};
  sf_command(file_.get(), SFC_GET_LOG_INFO, log, sizeof(log));
  for (const char* marker : {"data : ", "SSND : "}) {
    const char* line = std::strstr(log, marker);
    if (line != nullptr && std::strstr(line, "(should be") != nullptr &&
        std::strstr(line, "(should be") < std::strchr(line, '\n')) {
      error = "truncated: the header announces more sound than the file holds";
      return false;
    }
  }
  if (info_.frames == 0) {
    error = "holds no sound";
    return false;
  }
  std::vector<float> probe(static_cast<size_t>(info_.channels) * 16);
  const bool seekable = info_.seekable != 0 && info_.frames > 0 && info_.frames != SF_COUNT_MAX;
  if (seekable && sf_seek(file_.get(), info_.frames - 1, SEEK_SET) >= 0) {
    if (sf_readf_float(file_.get(), probe.data(), 1) != 1) {
      error = "truncated: its last frame cannot be read";
      return false;
    }
  } else if (seekable) {
    error = "truncated or damaged: its end cannot be reached";
    return false;
  }
  if (seekable && sf_seek(file_.get(), 0, SEEK_SET) != 0) {
    error = "cannot go back to its start";
    return false;
  }
  if (sf_readf_float(file_.get(), probe.data(), 16) <= 0) {
    error = "holds no sound";
    return false;
  }
  if (seekable && sf_seek(file_.get(), 0, SEEK_SET) != 0) {
    error = "cannot go back to its start";
    return false;
  }
  return true;
}

bool SoundFile::OpenWrite(const std::wstring& path, uint32_t rate, uint32_t channels, std::string& error) {
  info_ = SF_INFO{};
  info_.samplerate = static_cast<int>(rate);
  info_.channels = static_cast<int>(channels);
  info_.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  file_.reset(sf_wchar_open(path.c_str(), SFM_WRITE, &info_));
  if (!file_) error = Reason(nullptr);
  return file_ != nullptr;
}

std::string SoundFile::FormatName() const {
  const int major = info_.format & SF_FORMAT_TYPEMASK, minor = info_.format & SF_FORMAT_SUBMASK;
  std::string name;
  switch (major) {
    case SF_FORMAT_WAV: case SF_FORMAT_WAVEX: name = "WAV"; break;
    case SF_FORMAT_W64: name = "W64"; break;
    case SF_FORMAT_RF64: name = "RF64"; break;
    case SF_FORMAT_AIFF: name = "AIFF"; break;
    case SF_FORMAT_FLAC: name = "FLAC"; break;
    case SF_FORMAT_OGG: return minor == SF_FORMAT_OPUS ? "Ogg Opus" : "Ogg Vorbis";
    case SF_FORMAT_MPEG: return "MP3";
    default: {
      SF_FORMAT_INFO info{};
      info.format = major;
      sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info));
      name = info.name != nullptr ? info.name : "audio";
    }
  }
  switch (minor) {
    case SF_FORMAT_PCM_U8: case SF_FORMAT_PCM_S8: return name + " 8-bit";
    case SF_FORMAT_PCM_16: return name + " 16-bit";
    case SF_FORMAT_PCM_24: return name + " 24-bit";
    case SF_FORMAT_PCM_32: return name + " 32-bit";
    case SF_FORMAT_FLOAT: return name + " float";
    case SF_FORMAT_DOUBLE: return name + " double";
    default: return name;
  }
}

size_t SoundFile::Read(float* samples, size_t frames) {
  if (!file_ || failed_) return 0;
  const sf_count_t got = sf_readf_float(file_.get(), samples, static_cast<sf_count_t>(frames));
  if (got < static_cast<sf_count_t>(frames) && sf_error(file_.get()) != SF_ERR_NO_ERROR) failed_ = true;
  return got > 0 ? static_cast<size_t>(got) : 0;
}

std::string SoundFile::Error() const { return Reason(file_.get()); }

bool SoundFile::Write(const float* samples, size_t frames) {
  return file_ && sf_writef_float(file_.get(), samples, static_cast<sf_count_t>(frames)) ==
                      static_cast<sf_count_t>(frames);
}

bool ReadSound(const std::wstring& path, Sound& sound, std::string& error) {
  SoundFile file;
  if (!file.OpenRead(path, error)) return false;
  sound.rate = file.Rate();
  sound.channels = file.Channels();
  sound.samples.clear();
  std::vector<float> block(static_cast<size_t>(4096) * sound.channels);
  while (const size_t frames = file.Read(block.data(), 4096)) {
    sound.samples.insert(sound.samples.end(), block.begin(), block.begin() + frames * sound.channels);
  }
  if (file.Failed()) error = file.Error();
  return !file.Failed();
}

bool WriteSound(const std::wstring& path, const Sound& sound, std::string& error) {
  SoundFile file;
  if (!file.OpenWrite(path, sound.rate, sound.channels, error)) return false;
  if (!file.Write(sound.samples.data(), sound.samples.size() / sound.channels)) {
    error = file.Error();
    return false;
  }
  return true;
}

}  // namespace quillon::audio
