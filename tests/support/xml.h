// Small helpers the tests share: pooled names, elements built from attribute
// pairs, parsing and writing XML text, and files read and written whole.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "qdcore/xml.h"

namespace qdtest {

using Attrs = std::initializer_list<std::pair<const char16_t*, const char16_t*>>;

inline qdcore::CZPoolString P(const char16_t* text) { return qdcore::CStringPool::GetStringRef(text); }

// An element with the given attributes and, unless null, data text.
inline qdcore::CXMLObject Element(const char16_t* name, Attrs attrs = {},
                                  const char16_t* data = nullptr) {
  qdcore::CXMLObject element(P(name));
  for (const auto& [key, value] : attrs) element.SetAttribute(P(key), value);
  if (data) element.Set(data);
  return element;
}

// The root element parsed from `text`, which the test expects to be well-formed.
inline qdcore::CXMLObject Parse(std::string_view text) {
  qdcore::CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocMemory(text), 0) << text;
  return doc.GetContentElement();
}

// The compact XML text of `element` (UTF-16 and UTF-8).
inline std::u16string WideText(const qdcore::CXMLObject& element) {
  qdcore::CXMLMemOut out;
  EXPECT_TRUE(out.Write(element));
  return std::u16string(out.View());
}
inline std::string Text(const qdcore::CXMLObject& element) { return qdcore::ToUtf8(WideText(element)); }

inline std::string Attr(const qdcore::CXMLObject& element, const char16_t* name) {
  return qdcore::ToUtf8(element.FindAttribute(P(name)).view());
}

inline std::u16string Wide(const std::string& text) {
  std::u16string wide;
  qdcore::FromUtf8(text, wide);
  return wide;
}

inline std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

inline void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace qdtest
