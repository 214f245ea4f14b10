#include "document.h"

#include <filesystem>
#include <system_error>

#include "failure.h"
#include "names.h"
#include "qdparam/param.h"

namespace qdtool {

using namespace qdcore;

namespace {

constexpr const char* kDefaultExampleFile = "pip.xml";

// ": why, at line L, column C" for a failure the reader could place.
std::string Where(const CXMLDoc::Failure& failure) {
  if (failure.message.empty()) return "";
  std::string text = ": " + failure.message;
  if (failure.line == 0) return text;
  return text + " at line " + std::to_string(failure.line) + ", column " +
         std::to_string(failure.column);
}

std::string ReadError(int result) {
  switch (result) {
    case CXMLDoc::kCannotOpen: return "cannot be opened";
    case CXMLDoc::kMalformed: return "is not well-formed XML";
    case CXMLDoc::kNotUtf8: return "is not UTF-8 text";
    case CXMLDoc::kNoElement: return "holds no XML element";
    case CXMLDoc::kTooLarge:
      return "is past the reader's limits";
    default: return "cannot be read (error " + std::to_string(result) + ")";
  }
}

void CheckIsFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) throw Failure(path + ": no such file");
  if (std::filesystem::is_directory(status)) throw Failure(path + " is a folder, not a file");
}

CXMLObject ReadRoot(const std::string& path) {
  std::u16string widePath;
  if (!FromUtf8(path, widePath)) throw Failure("the file name is not valid UTF-8");
  CXMLDoc doc;
  if (const int result = doc.OpenDocFile(widePath.c_str()); result != CXMLDoc::kOk) {
    throw Failure(path + " " + ReadError(result) + Where(doc.GetLastFailure()));
  }
  return doc.GetContentElement();
}

// The set is the document element, or a "Property" right inside it (as a host
// property wraps it).
CXMLObject FindProperty(const CXMLObject& root, const std::string& path) {
  const CZPoolString property = Pooled(u"Property");
  if (root.IsName(property)) return root;
  if (const CXMLObject* inner = root.FindNextElement(property, nullptr)) return *inner;
  throw Failure(path + " holds no parameter set: its root is <" + Utf8(root.GetName()) +
                ">, not <Property>");
}

// Names the first "Parameter" child the set refused and why.
std::string WhyNotLoaded(const CXMLObject& property) {
  const CZPoolString parameter = Pooled(u"Parameter");
  int position = 0;
  for (const CXMLObject* child = property.FindNextElement(parameter, nullptr); child;
       child = property.FindNextElement(parameter, child)) {
    ++position;
    CParam param;
    const bool loaded = param.Load(*child);
    const std::string name = Utf8(child->FindAttribute(Pooled(u"name")));
    const std::string which =
        "parameter " + std::to_string(position) + (name.empty() ? "" : " (\"" + name + "\")");
    if (!child->HasAttribute(Pooled(u"id"))) return which + " has no id";
    if (!loaded) return which + " cannot be loaded: a keyframe does not match its type";
    if (param.GetID() < 0) return which + " has a negative id";
  }
  return "its parameters cannot be loaded";
}

}  // namespace

std::string DefaultExample() {
  for (const char* folder : {QD_EXAMPLES_DIR, QD_INSTALLED_EXAMPLES_DIR}) {
    const std::filesystem::path path = std::filesystem::path(folder) / kDefaultExampleFile;
    std::error_code error;
    if (std::filesystem::exists(path, error)) return path.string();
  }
  throw Failure(std::string("the bundled example ") + kDefaultExampleFile +
                " is not installed; name a file");
}

Document::Document(const std::string& file) : m_path(file.empty() ? DefaultExample() : file) {
  CheckIsFile(m_path);
  m_property = FindProperty(ReadRoot(m_path), m_path);
  if (!m_set.Load(m_property)) throw Failure(m_path + ": " + WhyNotLoaded(m_property));
}

std::string Document::Name() const { return std::filesystem::path(m_path).filename().string(); }

}  // namespace qdtool
