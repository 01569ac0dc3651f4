// The emulated host's XML reader, where it is the emulation's own: which files and hosts it
// opens, and that no document makes libxml2 fetch anything. The nodes themselves are pinned by
// tests/conformance/xml_reader_conformance.cpp, which Windows' reader passes too.

#include "platform/xml_reader.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "platform/posix/paths_posix.h"
#include "platform/system_library.h"
#include "sim/host/host_state.h"

namespace nw {
namespace {

using platform::kWcEDtdProhibited;
using platform::XmlNodeType;
using platform::XmlOpenStep;
using platform::XmlReader;

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/nw-xml-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
  const std::string& path() const { return path_; }
  std::string Write(const std::string& name, const std::string& text) const {
    const std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::string path_;
};

/// A host file for one test; the empty host again afterwards.
class Host {
 public:
  Host(const TempDir& dir, const std::string& json) {
    ::setenv("NETWARDEN_HOST", dir.Write("host.json", json).c_str(), 1);
    sim::ResetHostStateForTesting();
    std::string error;
    ok_ = sim::LoadHostState(&error);
  }
  ~Host() {
    ::unsetenv("NETWARDEN_HOST");
    sim::ResetHostStateForTesting();
  }
  bool ok() const { return ok_; }

 private:
  bool ok_ = false;
};

struct OpenResult {
  bool opened;
  XmlOpenStep step;
  Status status;
};

OpenResult Open(const wchar_t* path) {
  std::unique_ptr<XmlReader> reader;
  OpenResult result{false, XmlOpenStep::kNone, 0};
  result.opened = platform::TheXmlDocuments().Open(path, &reader, &result.step, &result.status);
  EXPECT_EQ(reader != nullptr, result.opened);
  return result;
}

TEST(XmlReaderOpen, HostDecidesWhetherXmlLiteExistsAndWhatPathsName) {
  TempDir dir;
  const std::string document = dir.Write("doc.xml", "<a/>");
  ASSERT_EQ(::mkfifo((dir.path() + "/fifo").c_str(), 0600), 0);
  const std::wstring inDir = platform::posix::WindowsFormOf(dir.path());
  const struct {
    const char* name;
    std::string host;
    std::wstring path;
    OpenResult expected;
  } cases[] = {
      {"the empty host has xmllite", "{}", inDir + L"\\doc.xml", {true, XmlOpenStep::kNone, 0}},
      {"a host that lists its libraries without it",
       R"({"systemLibraries": ["wintrust.dll"]})",
       inDir + L"\\doc.xml",
       {false, XmlOpenStep::kLoadLibrary, 126}},
      {"a host that lists it in another case",
       R"({"systemLibraries": ["XmlLite.DLL"]})",
       inDir + L"\\doc.xml",
       {true, XmlOpenStep::kNone, 0}},
      // With the search restricted the bare name is enough; without it the system directory
      // must be named, and nothing else is tried.
      {"no system directory, search restricted",
       R"({"faults": {"GetSystemDirectory": 1}})",
       inDir + L"\\doc.xml",
       {true, XmlOpenStep::kNone, 0}},
      {"no system directory to load it from",
       R"({"setDefaultDllDirectories": "missing", "faults": {"GetSystemDirectory": 1}})",
       inDir + L"\\doc.xml",
       {false, XmlOpenStep::kLoadLibrary, 126}},
      {"hardening unavailable: still the system directory's copy",
       R"({"setDefaultDllDirectories": "missing"})",
       inDir + L"\\doc.xml",
       {true, XmlOpenStep::kNone, 0}},
      {"a drive the host gives a folder",
       R"({"drives": {"D": ")" + dir.path() + R"("}})",
       L"D:\\doc.xml",
       {true, XmlOpenStep::kNone, 0}},
      {"a drive the host does not have",
       "{}",
       L"Q:\\doc.xml",
       {false, XmlOpenStep::kOpenFile, static_cast<Status>(0x80070003u)}},
      // Opening a FIFO would wait for a writer; it is refused at once, as any non-file is.
      {"a FIFO",
       "{}",
       inDir + L"\\fifo",
       {false, XmlOpenStep::kOpenFile, static_cast<Status>(0x80070005u)}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Host host(dir, c.host);
    ASSERT_TRUE(host.ok());
    platform::ResetSystemLibraryStateForTesting();  // a new process on this host
    const OpenResult result = Open(c.path.c_str());
    EXPECT_EQ(result.opened, c.expected.opened);
    EXPECT_EQ(result.step, c.expected.step);
    EXPECT_EQ(result.status, c.expected.status);
  }
  EXPECT_EQ(Open(nullptr).status, kStatusInvalidArg);
}

int loaderCalls = 0;

xmlParserInputPtr RefuseAndCount(const char*, const char*, xmlParserCtxtPtr) {
  ++loaderCalls;
  return nullptr;
}

// Every way a document can ask for another resource. A reader that let libxml2 load the DTD or
// substitute entities would call the loader; this one fails at the DOCTYPE before any of it.
TEST(XmlReaderSecurity, NothingOutsideTheDocumentIsEverLoaded) {
  TempDir dir;
  const char* documents[] = {
      "<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>",
      "<!DOCTYPE a PUBLIC \"-//x//y\" \"http://192.0.2.1/a.dtd\"><a/>",
      "<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>",
      "<!DOCTYPE a [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]><a/>",
      "<!DOCTYPE a [<!ATTLIST a x CDATA \"default\">]><a/>",
  };
  const xmlExternalEntityLoader previous = xmlGetExternalEntityLoader();
  xmlSetExternalEntityLoader(&RefuseAndCount);
  for (const char* document : documents) {
    SCOPED_TRACE(document);
    loaderCalls = 0;
    const std::wstring path = platform::posix::WindowsFormOf(dir.Write("doc.xml", document));
    std::unique_ptr<XmlReader> reader;
    XmlOpenStep step;
    Status status;
    ASSERT_TRUE(platform::TheXmlDocuments().Open(path.c_str(), &reader, &step, &status));
    XmlNodeType type;
    EXPECT_EQ(reader->Read(&type), kWcEDtdProhibited);
    EXPECT_EQ(loaderCalls, 0);
  }
  xmlSetExternalEntityLoader(previous);
}

}  // namespace
}  // namespace nw
