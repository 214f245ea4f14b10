// Writing a command's output file: never over an existing file unless asked,
// and never a half-written one.
#pragma once

#include <string>

#include "qdcore/xml.h"

namespace qdtool {

// Throws Failure when `path` cannot be written: it is a folder, or it exists
// and `force` is not given. Commands call it before doing their work.
void CheckOutputPath(const std::string& path, bool force);

void WriteTextFile(const std::string& path, const std::string& text, bool force);
// UTF-8 with the XML declaration, one element per line.
void WriteXmlFile(const std::string& path, const qdcore::CXMLObject& element, bool force);

}  // namespace qdtool
