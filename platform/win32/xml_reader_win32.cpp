// The XML reader on Windows: XmlLite, bound at run time from the system directory, reading a
// file stream from SHCreateStreamOnFileW, with DTD processing prohibited.

#include <memory>
#include <string>

#include "platform/library.h"
#include "platform/system_library.h"
#include "platform/xml_reader.h"

// After the platform headers: <windows.h> would rename the facilities' methods to their W forms.
#include <objbase.h>
#include <shlwapi.h>
#include <windows.h>
#include <xmllite.h>

namespace nw::platform {
namespace {

static_assert(static_cast<int>(XmlNodeType_Element) == static_cast<int>(XmlNodeType::kElement));
static_assert(static_cast<int>(XmlNodeType_Attribute) == static_cast<int>(XmlNodeType::kAttribute));
static_assert(static_cast<int>(XmlNodeType_Text) == static_cast<int>(XmlNodeType::kText));
static_assert(static_cast<int>(XmlNodeType_CDATA) == static_cast<int>(XmlNodeType::kCData));
static_assert(static_cast<int>(XmlNodeType_ProcessingInstruction) ==
              static_cast<int>(XmlNodeType::kProcessingInstruction));
static_assert(static_cast<int>(XmlNodeType_Comment) == static_cast<int>(XmlNodeType::kComment));
static_assert(static_cast<int>(XmlNodeType_DocumentType) ==
              static_cast<int>(XmlNodeType::kDocumentType));
static_assert(static_cast<int>(XmlNodeType_Whitespace) ==
              static_cast<int>(XmlNodeType::kWhitespace));
static_assert(static_cast<int>(XmlNodeType_EndElement) ==
              static_cast<int>(XmlNodeType::kEndElement));
static_assert(static_cast<int>(XmlNodeType_XmlDeclaration) ==
              static_cast<int>(XmlNodeType::kXmlDeclaration));
static_assert(kXmlFalse == S_FALSE);

using CreateXmlReaderFn = HRESULT(WINAPI*)(REFIID, void**, IMalloc*);

struct ComRelease {
  void operator()(IUnknown* object) const { object->Release(); }
};
template <class Interface>
using ComPtr = std::unique_ptr<Interface, ComRelease>;

struct LibraryRelease {
  void operator()(void* module) const { TheLibraries().FreeLibrary(module); }
};
using LibraryPtr = std::unique_ptr<void, LibraryRelease>;

Status Copy(HRESULT result, const WCHAR* text, UINT length, std::wstring* out) {
  if (FAILED(result)) return result;
  out->assign(text == nullptr ? L"" : text, text == nullptr ? 0 : length);
  return result;
}

class XmlLiteReader final : public XmlReader {
 public:
  XmlLiteReader(LibraryPtr module, ComPtr<IStream> stream, ComPtr<IXmlReader> reader)
      : module_(std::move(module)), stream_(std::move(stream)), reader_(std::move(reader)) {}

  Status Read(XmlNodeType* type) override {
    *type = XmlNodeType::kNone;
    if (stalled_) return kMxEInputEnd;
    ::XmlNodeType node = XmlNodeType_None;
    const HRESULT result = reader_->Read(&node);
    if (result != S_OK) return result;
    // Wine's XmlLite, at a file that ends inside an element, reports the last node again and
    // again instead of failing. Two nodes of one kind cannot start at one place, so a repeat
    // means the input has run out, which is what XmlLite says for it.
    UINT line = 0;
    UINT column = 0;
    if (SUCCEEDED(reader_->GetLineNumber(&line)) && SUCCEEDED(reader_->GetLinePosition(&column))) {
      if (node == lastType_ && line == lastLine_ && column == lastColumn_) {
        stalled_ = true;
        return kMxEInputEnd;
      }
      lastType_ = node;
      lastLine_ = line;
      lastColumn_ = column;
    }
    *type = static_cast<XmlNodeType>(node);
    return S_OK;
  }

  Status GetPrefix(std::wstring* prefix) override {
    const WCHAR* text = nullptr;
    UINT length = 0;
    const HRESULT result = reader_->GetPrefix(&text, &length);
    return Copy(result, text, length, prefix);
  }

  Status GetLocalName(std::wstring* name) override {
    const WCHAR* text = nullptr;
    UINT length = 0;
    const HRESULT result = reader_->GetLocalName(&text, &length);
    return Copy(result, text, length, name);
  }

  Status GetValue(std::wstring* value) override {
    const WCHAR* text = nullptr;
    UINT length = 0;
    const HRESULT result = reader_->GetValue(&text, &length);
    return Copy(result, text, length, value);
  }

  bool IsEmptyElement() override { return reader_->IsEmptyElement() != FALSE; }
  Status MoveToFirstAttribute() override { return reader_->MoveToFirstAttribute(); }
  Status MoveToNextAttribute() override { return reader_->MoveToNextAttribute(); }
  bool IsDefaultAttribute() override { return reader_->IsDefault() != FALSE; }
  Status MoveToElement() override { return reader_->MoveToElement(); }

 private:
  // Released in the reverse order: the reader, then its stream, then the library.
  LibraryPtr module_;
  ComPtr<IStream> stream_;
  ComPtr<IXmlReader> reader_;
  bool stalled_ = false;
  ::XmlNodeType lastType_ = XmlNodeType_None;
  UINT lastLine_ = 0;
  UINT lastColumn_ = 0;
};

class Win32XmlDocuments final : public XmlDocuments {
 public:
  bool Open(const wchar_t* path, std::unique_ptr<XmlReader>* reader, XmlOpenStep* failed,
            Status* status) override {
    *failed = XmlOpenStep::kNone;
    *status = S_OK;
    const auto fail = [&](XmlOpenStep step, Status result) {
      *failed = step;
      *status = result;
      return false;
    };
    uint32_t error = 0;
    LibraryPtr module(LoadSystemLibrary(L"xmllite.dll", &error));
    if (module == nullptr) return fail(XmlOpenStep::kLoadLibrary, static_cast<Status>(error));
    auto create = reinterpret_cast<CreateXmlReaderFn>(
        TheLibraries().GetProcAddress(module.get(), "CreateXmlReader", &error));
    if (create == nullptr) {
      return fail(XmlOpenStep::kFindCreateReader, static_cast<Status>(HRESULT_FROM_WIN32(error)));
    }
    IStream* rawStream = nullptr;
    HRESULT result = ::SHCreateStreamOnFileW(path, STGM_READ, &rawStream);
    ComPtr<IStream> stream(rawStream);
    if (FAILED(result)) return fail(XmlOpenStep::kOpenFile, result);
    void* rawReader = nullptr;
    result = create(__uuidof(IXmlReader), &rawReader, nullptr);
    ComPtr<IXmlReader> xml(static_cast<IXmlReader*>(rawReader));
    if (FAILED(result)) return fail(XmlOpenStep::kCreateReader, result);
    result = xml->SetProperty(XmlReaderProperty_DtdProcessing, DtdProcessing_Prohibit);
    if (FAILED(result)) return fail(XmlOpenStep::kProhibitDtd, result);
    result = xml->SetInput(stream.get());
    if (FAILED(result)) return fail(XmlOpenStep::kSetInput, result);
    *reader = std::make_unique<XmlLiteReader>(std::move(module), std::move(stream), std::move(xml));
    return true;
  }
};

}  // namespace

template <>
XmlDocuments& Facility<XmlDocuments>::Host() {
  static Win32XmlDocuments documents;
  return documents;
}

}  // namespace nw::platform
