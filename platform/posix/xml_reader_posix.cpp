// The XML reader of the emulated host: libxml2's push parser with event handlers of our own,
// which turn its events into the nodes XmlLite reports, in the same order, with a failure at
// the same place.
//
// libxml2's streaming reader (xmlTextReader) is not used, although it looks like XmlLite: it
// reports a text node only after parsing what follows it, and when it meets an error it drops
// every node it had parsed but not yet handed out (up to a chunk of the file). A malformed
// document would lose its last good nodes, and the policy reader keeps exactly those. Events
// come out of the push parser in document order, each before any later error, so queueing
// them as nodes keeps everything up to the error.

#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/format.h"
#include "core/status.h"
#include "platform/library.h"
#include "platform/posix/paths_posix.h"
#include "platform/system_library.h"
#include "platform/xml_reader.h"

namespace nw::platform {
namespace {

// What IStream::Read answers when the disk fails under it.
constexpr Status kStgEReadFault = static_cast<Status>(0x8003001Eu);
constexpr Status kEFail = static_cast<Status>(0x80004005u);
constexpr Status kStatusOutOfMemory = static_cast<Status>(0x8007000Eu);

constexpr uint32_t kErrorPathNotFound = 3;
constexpr uint32_t kErrorAccessDenied = 5;

constexpr size_t kReadBlockBytes = 64 * 1024;

struct Attribute {
  std::wstring prefix;
  std::wstring localName;
  std::wstring value;
};

struct Node {
  XmlNodeType type = XmlNodeType::kNone;
  std::wstring prefix;
  std::wstring localName;
  std::wstring value;
  bool empty = false;
  std::vector<Attribute> attributes;
};

std::wstring Wide(const xmlChar* text) {
  return text == nullptr ? std::wstring() : Utf8ToWide(reinterpret_cast<const char*>(text));
}

bool IsXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// An attribute's value as the document means it. Without entity substitution the parser keeps
/// each "&" of a value as "&#38;" (so that a tree could tell it from an entity reference); no
/// other reference can be left in it, since only the predefined entities exist here.
std::wstring AttributeValue(const xmlChar* begin, const xmlChar* end) {
  constexpr std::string_view kAmpersand = "&#38;";
  const std::string_view raw(reinterpret_cast<const char*>(begin),
                             static_cast<size_t>(end - begin));
  std::string value;
  for (size_t i = 0; i < raw.size();) {
    if (raw.compare(i, kAmpersand.size(), kAmpersand) == 0) {
      value += '&';
      i += kAmpersand.size();
    } else {
      value += raw[i++];
    }
  }
  return Utf8ToWide(value);
}

/// The pseudo-attributes of the XML declaration at the start of text, in their order, as
/// XmlLite lists them on its declaration node; false when text does not start with one. The
/// parser has already accepted the declaration, so only its shape is followed here.
bool ParseDeclaration(std::string_view text, std::vector<Attribute>* attributes) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  if (text.size() < 6 || text.substr(0, 5) != "<?xml" || !IsXmlSpace(text[5])) return false;
  size_t i = 5;
  for (;;) {
    while (i < text.size() && IsXmlSpace(text[i])) ++i;
    if (i >= text.size() || text[i] == '?') return true;
    const size_t nameStart = i;
    while (i < text.size() && text[i] != '=' && !IsXmlSpace(text[i])) ++i;
    const std::string_view name = text.substr(nameStart, i - nameStart);
    while (i < text.size() && (IsXmlSpace(text[i]) || text[i] == '=')) ++i;
    if (i >= text.size()) return true;
    const char quote = text[i++];
    const size_t valueStart = i;
    while (i < text.size() && text[i] != quote) ++i;
    attributes->push_back(
        {L"", Utf8ToWide(name), Utf8ToWide(text.substr(valueStart, i - valueStart))});
    ++i;
  }
}

/// For each attribute of the start tag that ends at tagEnd, in the order the text gives them,
/// whether it declares a namespace. The parser hands namespace declarations and the other
/// attributes over in two lists; this says how XmlLite, which keeps the text's order, interleaves
/// them. Empty when the tag is no longer in the buffer.
std::vector<bool> DeclarationPattern(const xmlChar* base, const xmlChar* tagEnd) {
  // "<" cannot occur inside a tag, not even in an attribute value, so the last one is its start.
  const xmlChar* p = tagEnd;
  while (p > base && *(p - 1) != '<') --p;
  if (p == base) return {};
  std::vector<bool> pattern;
  const auto space = [](xmlChar c) { return IsXmlSpace(static_cast<char>(c)); };
  while (p < tagEnd && !space(*p)) ++p;  // the element's name
  for (;;) {
    while (p < tagEnd && space(*p)) ++p;
    if (p >= tagEnd || *p == '/' || *p == '>') return pattern;
    const xmlChar* name = p;
    while (p < tagEnd && *p != '=' && !space(*p)) ++p;
    const std::string_view text(reinterpret_cast<const char*>(name), static_cast<size_t>(p - name));
    pattern.push_back(text.substr(0, 5) == "xmlns" && (text.size() == 5 || text[5] == ':'));
    while (p < tagEnd && *p != '"' && *p != '\'') ++p;
    if (p >= tagEnd) return pattern;
    const xmlChar quote = *p++;
    while (p < tagEnd && *p != quote) ++p;
    ++p;
  }
}

/// An open document: the file, the parser, and the nodes parsed but not yet read.
class PosixXmlReader final : public XmlReader {
 public:
  PosixXmlReader(int fd, ModuleHandle xmlLite) : fd_(fd), xmlLite_(xmlLite) {}

  ~PosixXmlReader() override {
    if (parser_ != nullptr) {
      xmlFreeDoc(parser_->myDoc);
      xmlFreeParserCtxt(parser_);
    }
    ::close(fd_);
    TheLibraries().FreeLibrary(xmlLite_);
  }

  PosixXmlReader(const PosixXmlReader&) = delete;
  PosixXmlReader& operator=(const PosixXmlReader&) = delete;

  bool Start() {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startDocument = &PosixXmlReader::OnStartDocument;
    handler.endDocument = &PosixXmlReader::OnEndDocument;
    handler.startElementNs = &PosixXmlReader::OnStartElement;
    handler.endElementNs = &PosixXmlReader::OnEndElement;
    handler.characters = &PosixXmlReader::OnCharacters;
    handler.ignorableWhitespace = &PosixXmlReader::OnCharacters;
    handler.cdataBlock = &PosixXmlReader::OnCData;
    handler.comment = &PosixXmlReader::OnComment;
    handler.processingInstruction = &PosixXmlReader::OnProcessingInstruction;
    handler.internalSubset = &PosixXmlReader::OnDoctype;
    handler.serror = &PosixXmlReader::OnError;
    // No entity handlers: without getEntity only the predefined entities are known, and every
    // other reference is an error, as it is for XmlLite with DTDs prohibited. No external
    // subset, entity or DTD is ever resolved, since the parser stops at the DOCTYPE.
    parser_ = xmlCreatePushParserCtxt(&handler, this, nullptr, 0, nullptr);
    if (parser_ == nullptr) return false;
    // No entity substitution, no DTD loading or validation, never the network.
    xmlCtxtUseOptions(parser_, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    return true;
  }

  Status Read(XmlNodeType* type) override {
    attribute_ = -1;
    while (queue_.empty() && state_ == State::kParsing) Feed();
    if (!queue_.empty()) {
      current_ = std::move(queue_.front());
      queue_.pop_front();
      *type = current_.type;
      return kStatusOk;
    }
    current_ = Node{};
    *type = XmlNodeType::kNone;
    return state_ == State::kFailed ? failure_ : kXmlFalse;
  }

  Status GetPrefix(std::wstring* prefix) override {
    *prefix = attribute_ < 0 ? current_.prefix : CurrentAttribute().prefix;
    return kStatusOk;
  }

  Status GetLocalName(std::wstring* name) override {
    *name = attribute_ < 0 ? current_.localName : CurrentAttribute().localName;
    return kStatusOk;
  }

  Status GetValue(std::wstring* value) override {
    *value = attribute_ < 0 ? current_.value : CurrentAttribute().value;
    return kStatusOk;
  }

  bool IsEmptyElement() override { return attribute_ < 0 && current_.empty; }

  Status MoveToFirstAttribute() override {
    if (current_.attributes.empty()) return kXmlFalse;
    attribute_ = 0;
    return kStatusOk;
  }

  Status MoveToNextAttribute() override {
    if (static_cast<size_t>(attribute_ + 1) >= current_.attributes.size()) return kXmlFalse;
    ++attribute_;
    return kStatusOk;
  }

  bool IsDefaultAttribute() override { return false; }  // defaults come only from a DTD

  Status MoveToElement() override {
    attribute_ = -1;
    return kStatusOk;
  }

 private:
  enum class State { kParsing, kEnded, kFailed };

  static PosixXmlReader& Self(void* context) { return *static_cast<PosixXmlReader*>(context); }

  const Attribute& CurrentAttribute() const {
    return current_.attributes[static_cast<size_t>(attribute_)];
  }

  /// Parses the next block of the file, or tells the parser that the file has ended.
  void Feed() {
    std::array<char, kReadBlockBytes> block;
    ssize_t n = 0;
    do {
      n = ::read(fd_, block.data(), block.size());
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
      Fail(kStgEReadFault);
      return;
    }
    const int result = xmlParseChunk(parser_, block.data(), static_cast<int>(n), n == 0 ? 1 : 0);
    if (result != 0) Fail(kWcESyntax);  // if no handler has said more
    if (n == 0 && state_ == State::kParsing) {
      FlushText();
      state_ = State::kEnded;
    }
  }

  void Fail(Status status) {
    if (state_ != State::kParsing) return;
    // A CDATA section the error cut short was never a node; text before the error was.
    cdataOpen_ = false;
    FlushText();
    state_ = State::kFailed;
    failure_ = status;
  }

  bool Parsing() const { return state_ == State::kParsing; }

  void Push(Node node) { queue_.push_back(std::move(node)); }

  /// Characters arrive in pieces (around entity references, at block ends); XmlLite reports the
  /// run between two pieces of markup as one node, whitespace when it is nothing else.
  void FlushText() {
    if (cdataOpen_) {
      Push(Node{XmlNodeType::kCData, L"", L"", Utf8ToWide(cdata_), false, {}});
      cdataOpen_ = false;
      cdata_.clear();
    }
    if (text_.empty()) return;
    bool blank = true;
    for (char c : text_) blank = blank && IsXmlSpace(c);
    Push(Node{blank ? XmlNodeType::kWhitespace : XmlNodeType::kText,
              L"",
              L"",
              Utf8ToWide(text_),
              false,
              {}});
    text_.clear();
  }

  /// Where the parser is, counted in the parser's own (UTF-8) text from the start.
  unsigned long Offset() const {
    return parser_->input->consumed +
           static_cast<unsigned long>(parser_->input->cur - parser_->input->base);
  }

  static void OnStartDocument(void* context) {
    PosixXmlReader& self = Self(context);
    const xmlParserInputPtr input = self.parser_->input;
    // The parser reports no node for the declaration. It has just read it, so the declaration
    // is the text before the parser's position.
    Node declaration{XmlNodeType::kXmlDeclaration, L"", L"xml", L"", false, {}};
    const std::string_view head(reinterpret_cast<const char*>(input->base),
                                static_cast<size_t>(input->cur - input->base));
    if (ParseDeclaration(head, &declaration.attributes)) self.Push(std::move(declaration));
  }

  static void OnEndDocument(void* context) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    self.FlushText();
    self.state_ = State::kEnded;
  }

  static void OnStartElement(void* context, const xmlChar* localName, const xmlChar* prefix,
                             const xmlChar*, int namespaceCount, const xmlChar** namespaces,
                             int attributeCount, int, const xmlChar** attributes) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    self.FlushText();
    const xmlParserInputPtr input = self.parser_->input;
    // The parser stands at the end of the start tag: "/>" or ">". It reports a tag before
    // checking that it ends there, and fails right after when it does not (a file that ends in
    // "<b"); XmlLite reports no element for such a tag.
    const bool empty = input->cur[0] == '/' && input->cur[1] == '>';
    if (!empty && input->cur[0] != '>') return;
    Node node{XmlNodeType::kElement, Wide(prefix), Wide(localName), L"", empty, {}};
    self.lastStartWasEmpty_ = node.empty;
    ++self.depth_;

    std::vector<Attribute> declarations;
    for (int i = 0; i < namespaceCount; ++i) {
      const xmlChar* name = namespaces[2 * i];
      const std::wstring uri = Wide(namespaces[2 * i + 1]);
      declarations.push_back(name == nullptr ? Attribute{L"", L"xmlns", uri}
                                             : Attribute{L"xmlns", Wide(name), uri});
    }
    std::vector<Attribute> others;
    for (int i = 0; i < attributeCount; ++i) {
      // localname, prefix, URI, value, end of value
      const xmlChar** a = attributes + 5 * i;
      others.push_back({Wide(a[1]), Wide(a[0]), AttributeValue(a[3], a[4])});
    }
    std::vector<bool> pattern = DeclarationPattern(input->base, input->cur);
    size_t declarationsInPattern = 0;
    for (bool isDeclaration : pattern) declarationsInPattern += isDeclaration ? 1 : 0;
    if (pattern.size() != declarations.size() + others.size() ||
        declarationsInPattern != declarations.size()) {
      // The tag's text is gone or says something else: declarations first, as they usually are.
      pattern.assign(declarations.size(), true);
      pattern.resize(declarations.size() + others.size(), false);
    }
    size_t d = 0;
    size_t o = 0;
    for (bool isDeclaration : pattern) {
      node.attributes.push_back(std::move(isDeclaration ? declarations[d++] : others[o++]));
    }
    self.Push(std::move(node));
  }

  static void OnEndElement(void* context, const xmlChar* localName, const xmlChar* prefix,
                           const xmlChar*) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    self.FlushText();
    if (--self.depth_ == 0) self.rootClosed_ = true;
    // <name/> is one node for XmlLite, with no end element.
    if (self.lastStartWasEmpty_) {
      self.lastStartWasEmpty_ = false;
      return;
    }
    self.Push(Node{XmlNodeType::kEndElement, Wide(prefix), Wide(localName), L"", false, {}});
  }

  static void OnCharacters(void* context, const xmlChar* text, int length) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    if (self.cdataOpen_) self.FlushText();
    self.text_.append(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
  }

  static void OnCData(void* context, const xmlChar* text, int length) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    // A long section arrives in blocks, each starting where the last one ended; a block
    // anywhere else starts a section of its own.
    const unsigned long offset = self.Offset();
    if (!self.cdataOpen_ || offset != self.cdataEnd_) {
      self.FlushText();
      self.cdataOpen_ = true;
    }
    self.cdata_.append(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
    self.cdataEnd_ = offset + static_cast<unsigned long>(length);
  }

  static void OnComment(void* context, const xmlChar* text) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    self.FlushText();
    self.Push(Node{XmlNodeType::kComment, L"", L"", Wide(text), false, {}});
  }

  static void OnProcessingInstruction(void* context, const xmlChar* target, const xmlChar* data) {
    PosixXmlReader& self = Self(context);
    if (!self.Parsing()) return;
    self.FlushText();
    self.Push(Node{XmlNodeType::kProcessingInstruction, L"", Wide(target), Wide(data), false, {}});
  }

  /// DTDs are prohibited: the document fails at its DOCTYPE, before the internal subset is even
  /// parsed, so no entity is ever declared, let alone expanded or fetched.
  static void OnDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    PosixXmlReader& self = Self(context);
    self.Fail(kWcEDtdProhibited);
    xmlStopParser(self.parser_);
  }

  static void OnError(void* context, xmlErrorPtr error) {
    PosixXmlReader& self = Self(context);
    if (error == nullptr || error->level == XML_ERR_WARNING) return;
    // Namespace errors leave the parser going; XmlLite stops at them like at any other.
    if (error->level != XML_ERR_FATAL && error->domain != XML_FROM_NAMESPACE) return;
    // A DOCTYPE too malformed to reach OnDoctype is still a DOCTYPE.
    if (self.parser_->inSubset != 0) {
      self.Fail(kWcEDtdProhibited);
      return;
    }
    self.Fail(self.StatusOf(error->code));
  }

  Status StatusOf(int code) const {
    switch (code) {
      case XML_ERR_DOCUMENT_EMPTY:
      case XML_ERR_DOCUMENT_END:
        // The parser says "extra content" both for a file that ends inside the root element
        // and for anything after it.
        return rootClosed_ ? kWcESyntax : kMxEInputEnd;
      case XML_ERR_TAG_NOT_FINISHED:
        return kMxEInputEnd;
      case XML_ERR_TAG_NAME_MISMATCH:
        return kWcEElementMatch;
      case XML_ERR_UNDECLARED_ENTITY:
        return kWcEUndeclaredEntity;
      case XML_ERR_MISPLACED_CDATA_END:
        return kWcECdSectEnd;
      case XML_ERR_ATTRIBUTE_NOT_STARTED:
        return kWcEQuote;
      case XML_ERR_LT_IN_ATTRIBUTE:
        return kWcELessThan;
      case XML_ERR_GT_REQUIRED:
        return kWcEGreaterThan;
      case XML_ERR_ATTRIBUTE_REDEFINED:
        return kWcEUniqueAttribute;
      case XML_NS_ERR_UNDEFINED_NAMESPACE:
        return kNcEUndeclaredPrefix;
      default:
        return kWcESyntax;
    }
  }

  int fd_;
  ModuleHandle xmlLite_;
  xmlParserCtxtPtr parser_ = nullptr;
  State state_ = State::kParsing;
  Status failure_ = kStatusOk;
  std::deque<Node> queue_;
  Node current_;
  int attribute_ = -1;  // the current attribute of current_, or -1 for the node itself
  std::string text_;    // characters since the last markup, UTF-8
  std::string cdata_;   // the CDATA section being read, UTF-8
  bool cdataOpen_ = false;
  unsigned long cdataEnd_ = 0;
  bool lastStartWasEmpty_ = false;
  int depth_ = 0;  // open elements
  bool rootClosed_ = false;
};

/// Opens a Windows-form path for reading as SHCreateStreamOnFileW does, with its answers: 0,
/// or the HRESULT of the Windows error. Only a regular file is read; anything else (a
/// directory, a FIFO, a device) is refused as Windows refuses to open a directory as a file.
Status OpenRegularFile(const wchar_t* path, int* fd) {
  if (path == nullptr) return kStatusInvalidArg;
  const std::string file = posix::PosixPathOf(path);
  if (file.empty()) return HresultFromWin32(kErrorPathNotFound);  // no such drive
  // Non-blocking, so that a FIFO without a writer cannot hold the open up; a regular file reads
  // the same either way.
  *fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (*fd < 0) {
    switch (errno) {
      case ENOENT: {
        // Windows tells a missing file (2) from a missing folder (3).
        const size_t slash = file.find_last_of('/');
        const std::string folder = slash == std::string::npos ? "."
                                   : slash == 0               ? "/"
                                                              : file.substr(0, slash);
        struct stat st;
        const bool folderExists = ::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
        return HresultFromWin32(folderExists ? kErrorFileNotFound : kErrorPathNotFound);
      }
      case ENOTDIR:
        return HresultFromWin32(kErrorPathNotFound);
      case EACCES:
      case EPERM:
      case ENXIO:  // a socket
        return HresultFromWin32(kErrorAccessDenied);
      default:
        return kEFail;
    }
  }
  struct stat st;
  if (::fstat(*fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(*fd);
    *fd = -1;
    return HresultFromWin32(kErrorAccessDenied);
  }
  return kStatusOk;
}

class PosixXmlDocuments final : public XmlDocuments {
 public:
  bool Open(const wchar_t* path, std::unique_ptr<XmlReader>* reader, XmlOpenStep* failed,
            Status* status) override {
    *failed = XmlOpenStep::kNone;
    *status = kStatusOk;
    // xmllite.dll exists when the host lists it among its system libraries (it does unless the
    // host file says otherwise); libxml2 stands in for its code, so there is nothing in it to
    // look CreateXmlReader up in.
    uint32_t error = 0;
    ModuleHandle xmlLite = LoadSystemLibrary(L"xmllite.dll", &error);
    if (xmlLite == nullptr) {
      *failed = XmlOpenStep::kLoadLibrary;
      *status = static_cast<Status>(error);
      return false;
    }
    int fd = -1;
    if (const Status opened = OpenRegularFile(path, &fd); opened != kStatusOk) {
      TheLibraries().FreeLibrary(xmlLite);
      *failed = XmlOpenStep::kOpenFile;
      *status = opened;
      return false;
    }
    auto document = std::make_unique<PosixXmlReader>(fd, xmlLite);
    if (!document->Start()) {
      *failed = XmlOpenStep::kCreateReader;
      *status = kStatusOutOfMemory;
      return false;
    }
    *reader = std::move(document);
    return true;
  }
};

}  // namespace

template <>
XmlDocuments& Facility<XmlDocuments>::Host() {
  static PosixXmlDocuments documents;
  return documents;
}

}  // namespace nw::platform
