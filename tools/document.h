// A parameter set file as the commands see it: the element read from disk
// and the set loaded from it.
#pragma once

#include <string>

#include "qdcore/xml.h"
#include "qdparam/paramset.h"

namespace qdtool {

// The bundled example that every command falls back on.
std::string DefaultExample();

class Document {
 public:
  // Reads `file` (the bundled example when empty); throws Failure with the
  // reason when it cannot be read or holds no loadable parameter set.
  explicit Document(const std::string& file);
  // Pointers into the set are handed out: a copy would not own them.
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  const std::string& Path() const { return m_path; }
  std::string Name() const;  // the file name without folders, for titles
  // The "Property" element as written, with its "Validation" rules.
  const qdcore::CXMLObject& Property() const { return m_property; }
  qdcore::CParamSet& Set() { return m_set; }
  const qdcore::CParamSet& Set() const { return m_set; }

 private:
  std::string m_path;
  qdcore::CXMLObject m_property;
  qdcore::CParamSet m_set;
};

}  // namespace qdtool
