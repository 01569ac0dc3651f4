// On Windows (and under Wine) the documents go into a folder under the user's temporary folder.

#include <windows.h>

#include <string>

#include "tests/conformance/xml_documents.h"

namespace nw::conformance {
namespace {

std::wstring folder;

std::wstring Wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

void RemoveTree(const std::wstring& path) {
  WIN32_FIND_DATAW entry;
  HANDLE search = ::FindFirstFileW((path + L"\\*").c_str(), &entry);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..") continue;
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        RemoveTree(path + L"\\" + name);
      } else {
        ::DeleteFileW((path + L"\\" + name).c_str());
      }
    } while (::FindNextFileW(search, &entry));
    ::FindClose(search);
  }
  ::RemoveDirectoryW(path.c_str());
}

}  // namespace

bool MakeDocumentFolder(std::string* error) {
  wchar_t temp[MAX_PATH + 1];
  const DWORD length = ::GetTempPathW(MAX_PATH + 1, temp);
  if (length == 0 || length > MAX_PATH) {
    *error = "GetTempPath " + std::to_string(::GetLastError());
    return false;
  }
  folder = std::wstring(temp) + L"nw-xml-conformance-" + std::to_wstring(::GetCurrentProcessId());
  RemoveTree(folder);  // left by an earlier run that was killed
  if (!::CreateDirectoryW(folder.c_str(), nullptr)) {
    *error = "CreateDirectory " + std::to_string(::GetLastError());
    return false;
  }
  return true;
}

std::wstring DocumentPath(const std::string& name) { return folder + L"\\" + Wide(name); }

bool WriteDocument(const std::string& name, const std::string& bytes) {
  HANDLE file = ::CreateFileW(DocumentPath(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  const BOOL ok =
      ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  ::CloseHandle(file);
  return ok && written == bytes.size();
}

bool MakeSubfolder(const std::string& name) {
  return ::CreateDirectoryW(DocumentPath(name).c_str(), nullptr) != FALSE;
}

void RemoveDocumentFolder() { RemoveTree(folder); }

bool EmulatedHost() { return false; }

bool RunningUnderWine() {
  HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace nw::conformance
