// Signature verification on the emulated host. Linux has no Authenticode, so trust is judged
// by who could have written the file: only a regular file that nobody but root or this user
// can change is trusted, and, when the host lists trusted digests, only a file whose SHA-256
// is among them. The results are the ones the Windows verifier gives for the same situations,
// so the loader's decisions are the same on both hosts.

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "core/status.h"
#include "platform/posix/paths_posix.h"
#include "platform/signature.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

constexpr int32_t kTrustEProviderUnknown = static_cast<int32_t>(0x800B0001u);
constexpr int32_t kTrustESubjectFormUnknown = static_cast<int32_t>(0x800B0003u);
constexpr int32_t kTrustESubjectNotTrusted = static_cast<int32_t>(0x800B0004u);
constexpr int32_t kTrustEBadDigest = static_cast<int32_t>(0x80096010u);

/// SHA-256 of an open file in lower-case hex, or an empty text when it cannot be read.
std::string DigestOf(int fd) {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  if (ctx == nullptr || EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr) != 1) {
    EVP_MD_CTX_free(ctx);
    return {};
  }
  std::array<unsigned char, 65536> block;
  ssize_t n;
  while ((n = ::read(fd, block.data(), block.size())) > 0) {
    EVP_DigestUpdate(ctx, block.data(), static_cast<size_t>(n));
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  const bool ok = n == 0 && EVP_DigestFinal_ex(ctx, digest, &length) == 1;
  EVP_MD_CTX_free(ctx);
  if (!ok) return {};
  std::string hex;
  char pair[3];
  for (unsigned int i = 0; i < length; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", digest[i]);
    hex += pair;
  }
  return hex;
}

int32_t VerifyFile(const wchar_t* windowsPath) {
  const sim::HostState& host = sim::Host();
  std::wstring key = sim::UpperAscii(windowsPath);
  std::replace(key.begin(), key.end(), L'/', L'\\');
  if (auto forced = host.signatureResults.find(key); forced != host.signatureResults.end()) {
    return forced->second;
  }
  const std::string file = posix::PosixPathOf(windowsPath);
  // Judge the very file that is read: open it once and look at what was opened.
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return kCryptEFileError;
  struct stat st;
  int32_t result = 0;
  if (::fstat(fd, &st) != 0) {
    result = kCryptEFileError;
  } else if (!S_ISREG(st.st_mode)) {
    result = kTrustESubjectFormUnknown;
  } else if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 ||
             (st.st_uid != 0 && st.st_uid != ::geteuid())) {
    result = kTrustESubjectNotTrusted;
  } else if (!host.trustedSha256.empty()) {
    const std::string digest = DigestOf(fd);
    if (std::find(host.trustedSha256.begin(), host.trustedSha256.end(), digest) ==
        host.trustedSha256.end()) {
      result = kTrustEBadDigest;
    }
  }
  ::close(fd);
  return result;
}

class PosixTrust final : public Trust {
 public:
  // The emulated host's system libraries are tokens (see library_posix.cpp): a wintrust that
  // loaded from the system directory is all the verifier needs.
  uint32_t BindWinVerifyTrust(ModuleHandle) override { return 0; }

  int32_t WinVerifyTrust(void*, const Guid* action, WinTrustData* data) override {
    if (action == nullptr || !(*action == kWinTrustActionGenericVerifyV2)) {
      return kTrustEProviderUnknown;
    }
    if (data == nullptr) return kStatusInvalidArg;
    if (data->dwStateAction == kWtdStateActionClose) return 0;
    if (data->dwUnionChoice != kWtdChoiceFile || data->pFile == nullptr ||
        data->pFile->pcwszFilePath == nullptr) {
      return kStatusInvalidArg;
    }
    return VerifyFile(data->pFile->pcwszFilePath);
  }

  // This host has no message table for verification results.
  wchar_t* MessageText(ModuleHandle, int32_t) override { return nullptr; }
};

}  // namespace

template <>
Trust& Facility<Trust>::Host() {
  static PosixTrust trust;
  return trust;
}

}  // namespace nw::platform
