// windows.h first and the switch below make sndfile.h declare sf_wchar_open.
#include <windows.h>
#define ENABLE_SNDFILE_WINDOWS_PROTOTYPES 1
#include "audio/SoundFile.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace quillon::audio {
namespace {

std::string Reason(SNDFILE* file) {
  std::string text = sf_strerror(file);
  // libsndfile's texts for "cannot open" name the cause after a colon or in
  // full sentences; one line is kept.
  if (const size_t nl = text.find('\n'); nl != std::string::npos) text.resize(nl);
  return text;
}

// A path Windows takes whatever its length: a long one gets the "\\?\" form.
std::wstring LongPath(const std::wstring& path) {
  if (path.rfind(L"\\\\?\\", 0) == 0) return path;
  const std::wstring full = tools::FullPath(path);
  if (full.size() < MAX_PATH - 12) return full;
  if (full.rfind(L"\\\\", 0) == 0) return L"\\\\?\\UNC\\" + full.substr(2);
  return L"\\\\?\\" + full;
}

// `bytes` bytes of `file` from `offset` (fewer at its end).
std::vector<unsigned char> ReadAt(HANDLE file, uint64_t offset, size_t bytes) {
  std::vector<unsigned char> data(bytes);
  OVERLAPPED at{};
  at.Offset = static_cast<DWORD>(offset);
  at.OffsetHigh = static_cast<DWORD>(offset >> 32);
  DWORD got = 0;
  if (!ReadFile(file, data.data(), static_cast<DWORD>(bytes), &got, &at)) got = 0;
  data.resize(got);
  return data;
}

// Whether an MP3 stream carries a length tag (Xing, Info or VBRI) in its
// first frame; without one, its length is only estimated from its size.
bool Mp3HasLengthTag(HANDLE file) {
  // ID3v2 tags come first (cover art makes them large), their size in 7-bit bytes.
  uint64_t at = 0;
  for (std::vector<unsigned char> tag = ReadAt(file, 0, 10);
       tag.size() == 10 && tag[0] == 'I' && tag[1] == 'D' && tag[2] == '3'; tag = ReadAt(file, at, 10)) {
    at += 10 + ((uint64_t{tag[6]} << 21) | (uint64_t{tag[7]} << 14) | (uint64_t{tag[8]} << 7) | tag[9]) +
          ((tag[5] & 0x10) != 0 ? 10 : 0);
  }
  const std::vector<unsigned char> head = ReadAt(file, at, 16 * 1024);
  for (size_t at = 0; at + 4 <= head.size(); ++at) {
    const bool frame = head[at] == 0xFF && (head[at + 1] & 0xE0) == 0xE0 && ((head[at + 1] >> 1) & 3) != 0 &&
                       (head[at + 2] >> 4) != 0xF && ((head[at + 2] >> 2) & 3) != 3;
    if (!frame) continue;
    const auto has = [&](size_t from, const char* tag) {
      return from + 4 <= head.size() && std::memcmp(&head[from], tag, 4) == 0;
    };
    for (size_t from = at + 4; from < at + 4 + 40; ++from) {
      if (has(from, "Xing") || has(from, "Info")) return true;
    }
    return has(at + 36, "VBRI");
  }
  return false;
}

}  // namespace

// libsndfile's texts of why a file did not open are kept for the whole
// process: an open and the reading of its reason go together.
static std::mutex& OpenLock() {
  static std::mutex lock;
  return lock;
}

// libsndfile reads the file through these, on a handle of Windows' own.
struct SoundFile::Stream {
  UniqueHandle handle;
  DWORD readError = ERROR_SUCCESS;  // a read that failed (a share gone, a disk error): not an end

  static Stream& Of(void* data) { return *static_cast<Stream*>(data); }
  static sf_count_t Length(void* data) {
    LARGE_INTEGER size{};
    return GetFileSizeEx(Of(data).handle.Get(), &size) ? size.QuadPart : -1;
  }
  static sf_count_t Seek(sf_count_t offset, int whence, void* data) {
    LARGE_INTEGER to{}, at{};
    to.QuadPart = offset;
    const DWORD method = whence == SEEK_CUR ? FILE_CURRENT : whence == SEEK_END ? FILE_END : FILE_BEGIN;
    return SetFilePointerEx(Of(data).handle.Get(), to, &at, method) ? at.QuadPart : -1;
  }
  static sf_count_t Read(void* into, sf_count_t count, void* data) {
    sf_count_t done = 0;
    while (done < count) {
      DWORD got = 0;
      const DWORD want = static_cast<DWORD>(std::min<sf_count_t>(count - done, 1 << 30));
      if (!ReadFile(Of(data).handle.Get(), static_cast<char*>(into) + done, want, &got, nullptr)) {
        Of(data).readError = GetLastError();
        break;
      }
      if (got == 0) break;
      done += got;
    }
    return done;
  }
  static sf_count_t Write(const void*, sf_count_t, void*) { return 0; }
  static sf_count_t Tell(void* data) { return Seek(0, SEEK_CUR, data); }
};

void SoundFile::StreamCloser::operator()(Stream* stream) const { delete stream; }

bool SoundFile::OpenRead(const std::wstring& path, std::string& error) {
  file_.reset();
  stream_.reset();
  info_ = SF_INFO{};
  failed_ = declared_ = false;
  read_ = 0;
  error_.clear();
  const std::wstring name = LongPath(path);
  const DWORD attributes = GetFileAttributesW(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const DWORD why = GetLastError();
    error = why == ERROR_FILE_NOT_FOUND || why == ERROR_PATH_NOT_FOUND ? "no such file" : tools::SystemText(why);
    return false;
  }
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    error = "is a folder";
    return false;
  }
  // Shared for everything: another program may go on writing the file, or
  // rename or delete it while it plays.
  std::unique_ptr<Stream, StreamCloser> stream(new Stream{UniqueHandle(
      CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr))});
  if (!stream->handle) {
    error = "cannot be opened (" + tools::SystemText(GetLastError()) + ")";
    return false;
  }
  SF_VIRTUAL_IO io{&Stream::Length, &Stream::Seek, &Stream::Read, &Stream::Write, &Stream::Tell};
  stream_ = std::move(stream);
  std::unique_lock<std::mutex> opening(OpenLock());
  file_.reset(sf_open_virtual(&io, SFM_READ, &info_, stream_.get()));
  if (!file_) {
    // The file is there: whatever libsndfile says (for an MPEG stream it cannot
    // parse, that the file "does not exist"), it holds nothing it can read.
    std::string reason = Reason(nullptr);
    opening.unlock();
    while (!reason.empty() && reason.back() == '.') reason.pop_back();
    if (reason.find("does not exist") != std::string::npos) reason = "not a sound format it knows, or damaged";
    error = "holds no sound that can be read (" + reason + ")";
    return false;
  }
  opening.unlock();
  if (info_.channels < 1 || info_.samplerate < 1) {
    error = "the header names no channels or no rate";
    return false;
  }
  const bool known = info_.frames > 0 && info_.frames != SF_COUNT_MAX;
  const int major = info_.format & SF_FORMAT_TYPEMASK;
  if (known && major == SF_FORMAT_MPEG) {
    // Read beside libsndfile, which finds its place where it left it.
    const sf_count_t position = Stream::Tell(stream_.get());
    declared_ = Mp3HasLengthTag(stream_->handle.Get());
    Stream::Seek(position, SEEK_SET, stream_.get());
  } else {
    declared_ = known;
  }
  // Floats from integer samples are scaled to -1..1; float files stay as they are.
  sf_command(file_.get(), SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
  return CheckWhole(error);
}

bool SoundFile::HeaderBindsLength() const {
  const int major = info_.format & SF_FORMAT_TYPEMASK;
  return declared_ && major != SF_FORMAT_MPEG && major != SF_FORMAT_OGG;
}

// A WAV or AIFF whose header announces more sound than the file holds is
// shortened silently by libsndfile, which notes it in its log ("should be");
// a FLAC stream that declares its total shows a missing end when its last
// frame cannot be reached. A stream that declares no length (MP3, Ogg) is not
// read through: it plays to its real end.
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
  const bool checkEnd = HeaderBindsLength() && info_.seekable != 0;
  if (checkEnd && sf_seek(file_.get(), info_.frames - 1, SEEK_SET) >= 0) {
    if (sf_readf_float(file_.get(), probe.data(), 1) != 1) {
      error = "truncated: its last frame cannot be read";
      return false;
    }
  } else if (checkEnd) {
    error = "truncated or damaged: its end cannot be reached";
    return false;
  }
  if (checkEnd && sf_seek(file_.get(), 0, SEEK_SET) != 0) {
    error = "cannot go back to its start";
    return false;
  }
  if (sf_readf_float(file_.get(), probe.data(), 16) <= 0) {
    error = "holds no sound";
    return false;
  }
  if (info_.seekable != 0 && sf_seek(file_.get(), 0, SEEK_SET) != 0) {
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
  std::lock_guard<std::mutex> opening(OpenLock());
  file_.reset(sf_wchar_open(LongPath(path).c_str(), SFM_WRITE, &info_));
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

bool SoundFile::Seek(int64_t frame) {
  if (!file_ || failed_ || info_.seekable == 0) return false;
  if (sf_seek(file_.get(), static_cast<sf_count_t>(frame), SEEK_SET) != static_cast<sf_count_t>(frame)) return false;
  read_ = frame;  // what lies before counts as read, for the check of a declared length
  return true;
}

size_t SoundFile::Read(float* samples, size_t frames) {
  if (!file_ || failed_) return 0;
  const sf_count_t got = sf_readf_float(file_.get(), samples, static_cast<sf_count_t>(frames));
  read_ += std::max<sf_count_t>(got, 0);
  if (got < static_cast<sf_count_t>(frames)) {
    if (stream_->readError != ERROR_SUCCESS) {
      failed_ = true;
      error_ = "cannot be read further (" + tools::SystemText(stream_->readError) + ")";
    } else if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
      failed_ = true;
      std::string reason = Reason(file_.get());
      while (!reason.empty() && reason.back() == '.') reason.pop_back();
      error_ = "damaged (" + reason + ")";
    } else if (HeaderBindsLength() && read_ < info_.frames) {
      failed_ = true;
      error_ = "ended early: " + std::to_string(read_) + " of the " + std::to_string(info_.frames) +
               " frames its header announces";
    }
  }
  return got > 0 ? static_cast<size_t>(got) : 0;
}

std::string SoundFile::Error() const { return error_.empty() ? Reason(file_.get()) : error_; }

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
