// An outside program: builds an element, writes it and reads it back.
#include <qdcore/xml.h>
#include <qdparam/version.h>

#include <cstdio>

int main() {
  using namespace qdcore;
  CXMLObject element(CStringPool::GetStringRef(u"Parameter"));
  element.SprintfAttribute(CStringPool::GetStringRef(u"value"), u"%.12f", 0.25);
  CXMLMemOut out;
  out.Open();
  out.Write(element);
  out.Close();
  CXMLDoc doc;
  if (doc.OpenDocMemory(out.View()) != 0) return 1;
  const double value = doc.GetContentElement().FindAttributeDouble(CStringPool::GetStringRef(u"value"));
  std::printf("qdparam %s: %g\n", GetParamLibraryVersion(), value);
  return value == 0.25 ? 0 : 1;
}
