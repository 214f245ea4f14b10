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

void CheckIsFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) throw Failure(path + ": no such file");
  if (std::filesystem::is_directory(status)) throw Failure(path + " is a folder, not a file");
}

qd::Set LoadSet(const std::string& path) {
  qd::Result<qd::Set> set = qd::Set::load(path);
  if (!set) throw Failure(set.error().describe());  // "file:line:column: reason"
  return std::move(*set);
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
  m_set = LoadSet(m_path);
  for (const qd::Param& param : m_set.params()) m_handles.emplace(param.native(), param);
}

const qd::Param& Document::Handle(const CParam& param) const { return m_handles.at(&param); }

CXMLObject Document::Property() const {
  std::u16string widePath;
  CXMLDoc doc;
  if (!FromUtf8(m_path, widePath) || doc.OpenDocFile(widePath.c_str()) != CXMLDoc::kOk) {
    throw Failure(m_path + " cannot be read again");
  }
  const CXMLObject& root = doc.GetContentElement();
  if (root.IsName(Pooled(u"Property"))) return root;
  const CXMLObject* inner = root.FindNextElement(Pooled(u"Property"), nullptr);
  return inner ? *inner : CXMLObject();
}

std::string Document::Name() const { return std::filesystem::path(m_path).filename().string(); }

}  // namespace qdtool
