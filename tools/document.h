// A parameter set file as the commands see it: the set, loaded through the
// host API, and the library's own set beneath it.
#pragma once

#include <string>
#include <unordered_map>

#include "qdcore/xml.h"
#include "qdparam/paramset.h"
#include "qdparam/qdparam.hpp"

namespace qdtool {

// The bundled example that every command falls back on.
std::string DefaultExample();

class Document {
 public:
  // Reads `file` (the bundled example when empty); throws Failure with the
  // reason, and the line and column when it comes from the text, when it
  // cannot be read or holds no loadable parameter set.
  explicit Document(const std::string& file);

  const std::string& Path() const { return m_path; }
  std::string Name() const;  // the file name without folders, for titles
  qd::Set& Api() { return m_set; }
  const qd::Set& Api() const { return m_set; }
  const qdcore::CParamSet& Set() const { return m_set.native(); }
  // The host API's handle of one of Set()'s parameters.
  const qd::Param& Handle(const qdcore::CParam& param) const;
  // The "Property" element as written, with its "Validation" rules: read
  // again from the file, for the one command that needs it.
  qdcore::CXMLObject Property() const;

 private:
  std::string m_path;
  qd::Set m_set;
  std::unordered_map<const qdcore::CParam*, qd::Param> m_handles;
};

}  // namespace qdtool
