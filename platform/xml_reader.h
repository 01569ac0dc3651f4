#pragma once

// A streaming XML reader for the policy document: the nodes of one file in document order, as
// the Windows XmlLite reader reports them. DTD processing is prohibited, nothing is fetched
// from the network and no entity is expanded beyond the predefined ones.

#include <cstdint>
#include <memory>
#include <string>

#include "core/status.h"
#include "platform/facility.h"

namespace nw::platform {

/// XmlNodeType's values.
enum class XmlNodeType : int32_t {
  kNone = 0,
  kElement = 1,
  kAttribute = 2,
  kText = 3,
  kCData = 4,
  kProcessingInstruction = 7,
  kComment = 8,
  kDocumentType = 10,
  kWhitespace = 13,
  kEndElement = 15,
  kXmlDeclaration = 17,
};

/// S_FALSE: Read's answer at the end of the input, and the attribute moves' when there is none.
inline constexpr Status kXmlFalse = 1;

// XmlLite's answers for a malformed document, as both hosts' readers give them.
/// MX_E_INPUTEND: the input ended inside the document.
inline constexpr Status kMxEInputEnd = static_cast<Status>(0xC00CEE01u);
inline constexpr Status kWcEGreaterThan = static_cast<Status>(0xC00CEE23u);
inline constexpr Status kWcEQuote = static_cast<Status>(0xC00CEE24u);
inline constexpr Status kWcELessThan = static_cast<Status>(0xC00CEE26u);
/// WC_E_SYNTAX: what the emulated reader answers for any failure it does not tell apart.
inline constexpr Status kWcESyntax = static_cast<Status>(0xC00CEE2Du);
inline constexpr Status kWcEElementMatch = static_cast<Status>(0xC00CEE3Bu);
inline constexpr Status kWcEUniqueAttribute = static_cast<Status>(0xC00CEE3Cu);
inline constexpr Status kWcEUndeclaredEntity = static_cast<Status>(0xC00CEE47u);
inline constexpr Status kWcECdSectEnd = static_cast<Status>(0xC00CEE4Du);
inline constexpr Status kWcEDtdProhibited = static_cast<Status>(0xC00CEE4Fu);
inline constexpr Status kNcEUndeclaredPrefix = static_cast<Status>(0xC00CEE65u);

/// One open document.
class XmlReader {
 public:
  virtual ~XmlReader() = default;

  /// The next node: 0 and its type; kXmlFalse at the end of the input; any other status when
  /// the document is malformed from here on (the caller stops at any result but 0).
  virtual Status Read(XmlNodeType* type) = 0;
  /// Of the current node (an element, end element, attribute or processing instruction).
  virtual Status GetPrefix(std::wstring* prefix) = 0;
  virtual Status GetLocalName(std::wstring* name) = 0;
  /// The text of a text, CDATA, comment, processing-instruction, whitespace or attribute node.
  virtual Status GetValue(std::wstring* value) = 0;
  /// Whether the current element was written as <name/>. Ask before moving to attributes.
  virtual bool IsEmptyElement() = 0;
  /// 0 when an attribute of the current element (or declaration) is now current; kXmlFalse
  /// when it has none left.
  virtual Status MoveToFirstAttribute() = 0;
  virtual Status MoveToNextAttribute() = 0;
  /// Whether the current attribute comes from a default rather than from the text.
  virtual bool IsDefaultAttribute() = 0;
  /// Back from the attributes to their element.
  virtual Status MoveToElement() = 0;
};

/// Which step of opening a document failed (each has its own message).
enum class XmlOpenStep {
  kNone,
  kLoadLibrary,       ///< xmllite.dll; *status holds the system error
  kFindCreateReader,  ///< CreateXmlReader missing from it
  kOpenFile,          ///< SHCreateStreamOnFileW
  kCreateReader,      ///< CreateXmlReader
  kProhibitDtd,       ///< setting XmlReaderProperty_DtdProcessing to DtdProcessing_Prohibit
  kSetInput,          ///< IXmlReader::SetInput
};

class XmlDocuments {
 public:
  virtual ~XmlDocuments() = default;

  /// Opens path (a Windows-form path on every host) for reading. On success *reader holds the
  /// document. On failure returns false with the failed step and its status (a system error
  /// code for kLoadLibrary, an HRESULT otherwise); whatever was acquired is released again.
  virtual bool Open(const wchar_t* path, std::unique_ptr<XmlReader>* reader, XmlOpenStep* failed,
                    Status* status) = 0;
};

template <>
XmlDocuments& Facility<XmlDocuments>::Host();

inline XmlDocuments& TheXmlDocuments() { return Facility<XmlDocuments>::Get(); }

}  // namespace nw::platform
