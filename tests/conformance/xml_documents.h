#pragma once

// Where xml_reader_conformance puts its documents: a fresh folder of the host's own, named in
// Windows form, as the program names the files it reads. Each host does it its own way.

#include <string>

namespace nw::conformance {

/// Makes the folder; false with *error set when it cannot.
bool MakeDocumentFolder(std::string* error);
/// The Windows-form path of a file in the folder (which need not exist).
std::wstring DocumentPath(const std::string& name);
/// Writes a file of these bytes into the folder.
bool WriteDocument(const std::string& name, const std::string& bytes);
/// Makes a folder inside the folder.
bool MakeSubfolder(const std::string& name);
/// Removes the folder and what was written into it.
void RemoveDocumentFolder();

/// Whether the backend is the emulated host's (libxml2) rather than XmlLite.
bool EmulatedHost();
/// Whether XmlLite is Wine's rather than Windows'.
bool RunningUnderWine();

}  // namespace nw::conformance
