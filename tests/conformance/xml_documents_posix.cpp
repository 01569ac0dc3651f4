// The emulated host reads the POSIX file system, which it shows in Windows form.

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/posix/paths_posix.h"
#include "tests/conformance/xml_documents.h"

namespace nw::conformance {
namespace {

std::string folder;

}  // namespace

bool MakeDocumentFolder(std::string* error) {
  char pattern[] = "/tmp/nw-xml-conformance-XXXXXX";
  if (::mkdtemp(pattern) == nullptr) {
    *error = "no temporary folder";
    return false;
  }
  folder = pattern;
  return true;
}

std::wstring DocumentPath(const std::string& name) {
  return platform::posix::WindowsFormOf(folder + "/" + name);
}

bool WriteDocument(const std::string& name, const std::string& bytes) {
  std::ofstream file(folder + "/" + name, std::ios::binary);
  file << bytes;
  return static_cast<bool>(file);
}

bool MakeSubfolder(const std::string& name) {
  std::error_code error;
  return std::filesystem::create_directory(folder + "/" + name, error);
}

void RemoveDocumentFolder() {
  std::error_code error;
  std::filesystem::remove_all(folder, error);
}

bool EmulatedHost() { return true; }

bool RunningUnderWine() { return false; }

}  // namespace nw::conformance
