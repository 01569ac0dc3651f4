// Saving a file on Windows: a temporary file with a random name, created only if no file of
// that name exists, flushed, and moved over the target. An open file cannot be deleted here, so
// the temporary files of saves still at work are safe from the clean-up of stale ones; a stale
// one is removed by a later save once it is old enough not to be anybody's work in progress.

#define _CRT_RAND_S
#include <fcntl.h>
#include <io.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "base/format.h"
#include "sim/common/file_io.h"

namespace nw::sim {
namespace {

constexpr int kNameAttempts = 100;
constexpr size_t kRandomDigits = 16;
// 100-nanosecond ticks in ten minutes: older temporary files belong to no save at work.
constexpr uint64_t kStaleTicks = 10ull * 60 * 10000000;

std::string RandomHex() {
  std::string hex;
  static const char kDigits[] = "0123456789abcdef";
  while (hex.size() < kRandomDigits) {
    unsigned int value = 0;
    if (::rand_s(&value) != 0) value = ::GetTickCount() ^ ::GetCurrentProcessId();
    for (int i = 0; i < 8 && hex.size() < kRandomDigits; ++i, value >>= 4) {
      hex += kDigits[value & 15];
    }
  }
  return hex;
}

void SweepStaleTemporaries(const std::wstring& dir) {
  const std::wstring pattern =
      dir + Utf8ToWide(kSaveTemporaryPrefix) + L"*" + Utf8ToWide(kSaveTemporarySuffix);
  WIN32_FIND_DATAW found;
  HANDLE search = ::FindFirstFileW(pattern.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  FILETIME nowTime;
  ::GetSystemTimeAsFileTime(&nowTime);
  const uint64_t now = (uint64_t{nowTime.dwHighDateTime} << 32) | nowTime.dwLowDateTime;
  do {
    const uint64_t written = (uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32) |
                             found.ftLastWriteTime.dwLowDateTime;
    if ((found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
        now > written && now - written > kStaleTicks) {
      ::DeleteFileW((dir + found.cFileName).c_str());
    }
  } while (::FindNextFileW(search, &found));
  ::FindClose(search);
}

}  // namespace

void UseNamedTemporaryFilesForTesting(bool) {}

bool WriteFileAtomically(const std::string& file, std::string_view contents, std::string* error) {
  const std::wstring wideFile = Utf8ToWide(file);
  const size_t slash = wideFile.find_last_of(L"\\/");
  const std::wstring dir = slash == std::wstring::npos ? L"" : wideFile.substr(0, slash + 1);
  SweepStaleTemporaries(dir);
  std::string temp;
  std::wstring wideTemp;
  int fd = -1;
  for (int attempt = 0; attempt < kNameAttempts && fd < 0; ++attempt) {
    temp = WideToUtf8(dir) + std::string(kSaveTemporaryPrefix) + RandomHex() +
           std::string(kSaveTemporarySuffix);
    wideTemp = Utf8ToWide(temp);
    // Binary mode: the runtime would otherwise turn every "\n" into "\r\n".
    fd = ::_wopen(wideTemp.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                  _S_IREAD | _S_IWRITE);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    *error = temp + ": cannot create: " + std::strerror(errno);
    return false;
  }
  size_t written = 0;
  while (written < contents.size()) {
    const size_t chunk = std::min<size_t>(contents.size() - written, size_t{1} << 30);
    const int n = ::_write(fd, contents.data() + written, static_cast<unsigned>(chunk));
    if (n <= 0) {
      *error = file + ": cannot write: " + std::strerror(errno);
      ::_close(fd);
      ::_wunlink(wideTemp.c_str());
      return false;
    }
    written += static_cast<size_t>(n);
  }
  const bool committed = ::_commit(fd) == 0;
  const int commitError = errno;
  if (::_close(fd) != 0 || !committed) {
    *error = file + ": cannot flush: " + std::strerror(committed ? errno : commitError);
    ::_wunlink(wideTemp.c_str());
    return false;
  }
  // rename() will not replace an existing file here; MoveFileEx does, and with write-through it
  // returns only once the new name is on disk.
  if (!::MoveFileExW(wideTemp.c_str(), wideFile.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    *error = file + ": cannot replace: Windows error " + std::to_string(::GetLastError());
    ::_wunlink(wideTemp.c_str());
    return false;
  }
  return true;
}

}  // namespace nw::sim
