#include "platform/posix/paths_posix.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "sim/host/host_state.h"

namespace nw::platform::posix {
namespace {

// The character a "\\" inside a POSIX name becomes, and the base of the characters that stand
// for bytes outside valid UTF-8: lone low surrogates, which no valid UTF-8 decodes to.
constexpr wchar_t kEscapedBackslash = 0xDC5C;
constexpr wchar_t kEscapedByteFirst = 0xDC80;
constexpr wchar_t kEscapedByteLast = 0xDCFF;
constexpr wchar_t kEscapeBase = 0xDC00;

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

/// The length of the valid UTF-8 sequence at text[i], and its code point; 0 when the bytes
/// there are not one (overlong forms, surrogates and values above U+10FFFF are not).
size_t DecodeUtf8(std::string_view text, size_t i, char32_t* code) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[i + k]); };
  const unsigned char lead = byte(0);
  size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + length > text.size() || byte(1) < low || byte(1) > high) return 0;
  for (size_t k = 2; k < length; ++k) {
    if (!IsContinuation(byte(k))) return 0;
  }
  char32_t value = lead & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) value = (value << 6) | (byte(k) & 0x3F);
  *code = value;
  return length;
}

void AppendUtf8(std::string& out, char32_t c) {
  if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = 0xFFFD;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

/// One component of a Windows-form path as the bytes of a POSIX name.
std::string PosixName(std::wstring_view component) {
  std::string name;
  for (wchar_t c : component) {
    if (c == kEscapedBackslash) {
      name += '\\';
    } else if (c >= kEscapedByteFirst && c <= kEscapedByteLast) {
      name += static_cast<char>(c - kEscapeBase);
    } else {
      AppendUtf8(name, static_cast<char32_t>(c));
    }
  }
  return name;
}

char UpperAsciiByte(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

std::wstring WindowsFormOf(std::string_view posixPath) {
  std::wstring path;
  path.reserve(posixPath.size());
  for (size_t i = 0; i < posixPath.size();) {
    const char c = posixPath[i];
    if (c == '/') {
      path += L'\\';
    } else if (c == '\\') {
      path += kEscapedBackslash;
    } else if (static_cast<unsigned char>(c) < 0x80) {
      path += static_cast<wchar_t>(c);
    } else {
      char32_t code = 0;
      if (const size_t length = DecodeUtf8(posixPath, i, &code)) {
        path += static_cast<wchar_t>(code);
        i += length;
        continue;
      }
      path += static_cast<wchar_t>(kEscapeBase + static_cast<unsigned char>(c));
    }
    ++i;
  }
  return path;
}

std::string PosixPathOf(std::wstring_view windowsPath) {
  if (windowsPath.empty()) return {};
  std::string root;
  std::wstring_view rest = windowsPath;
  const bool drive = windowsPath.size() >= 2 && windowsPath[1] == L':' &&
                     ((windowsPath[0] >= L'A' && windowsPath[0] <= L'Z') ||
                      (windowsPath[0] >= L'a' && windowsPath[0] <= L'z'));
  if (drive) {
    const auto letter = static_cast<wchar_t>(windowsPath[0] & ~0x20);  // upper case
    const auto& drives = sim::Host().drives;
    const auto found = drives.find(letter);
    if (found == drives.end()) return {};
    root = found->second;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    rest.remove_prefix(2);
  } else if (!windowsPath.empty() && IsSeparator(windowsPath[0])) {
    root = "/";
  }
  const bool absolute = !root.empty();

  std::vector<std::string> names;
  const bool separated = rest.find_first_of(L"\\/") != std::wstring_view::npos;
  for (std::wstring_view left = rest; !left.empty();) {
    const size_t end = std::min(left.find_first_of(L"\\/"), left.size());
    const std::wstring_view component = left.substr(0, end);
    left.remove_prefix(std::min(end + 1, left.size()));
    if (component == L"..") {
      if (!names.empty() && names.back() != "..") {
        names.pop_back();
      } else if (!absolute) {
        names.emplace_back("..");  // a relative path may climb; the root has nothing above
      }
    } else if (!component.empty() && component != L".") {
      names.push_back(PosixName(component));
    }
  }

  std::string path = root;
  for (const std::string& name : names) {
    if (!path.empty() && path.back() != '/') path += '/';
    path += name;
  }
  if (path.empty()) return ".";
  // ".\\x.dll" stays a path to a file in the current directory, not a bare name to be searched.
  if (!absolute && separated && names.size() == 1) path = "./" + path;
  return path;
}

bool SamePath(std::wstring_view a, std::wstring_view b) {
  const std::string first = PosixPathOf(a);
  const std::string second = PosixPathOf(b);
  if (first.empty() || second.empty() || first.size() != second.size()) return false;
  for (size_t i = 0; i < first.size(); ++i) {
    if (UpperAsciiByte(first[i]) != UpperAsciiByte(second[i])) return false;
  }
  return true;
}

}  // namespace nw::platform::posix
