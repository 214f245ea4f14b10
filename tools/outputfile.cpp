#include "outputfile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "qdcore/file.h"

namespace qdtool {

using namespace qdcore;

namespace {

std::u16string WidePath(const std::string& path) {
  std::u16string wide;
  if (!FromUtf8(path, wide)) throw Failure("the file name " + path + " is not valid UTF-8");
  return wide;
}

[[noreturn]] void CannotWrite(const std::string& path) {
  const std::string reason = errno ? std::strerror(errno) : "write failed";
  throw Failure("cannot write " + path + ": " + reason);
}

}  // namespace

// Only a regular file is ever replaced: a device, a pipe or a link in its
// place stays as it is, whatever --force says.
void CheckOutputPath(const std::string& path, bool force) {
  if (path.empty()) throw Failure("the output file name is empty");
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return;
  if (S_ISDIR(info.st_mode)) throw Failure(path + " is a folder, not a file");
  if (!S_ISREG(info.st_mode)) throw Failure(path + " is not a regular file; it is left as it is");
  if (!force) throw Failure(path + " exists; pass --force to replace it");
}

// Both writers put the new file in place whole or not at all: a failure
// half-way leaves whatever was there before.
void WriteTextFile(const std::string& path, const std::string& text, bool force) {
  CheckOutputPath(path, force);
  errno = 0;
  if (!QF_WriteFileAtomic(WidePath(path).c_str(), text.data(), text.size())) CannotWrite(path);
}

void WriteXmlFile(const std::string& path, const CXMLObject& element, bool force) {
  CheckOutputPath(path, force);
  const std::u16string wide = WidePath(path);
  errno = 0;
  CXMLFileOut out(1);
  if (!out.Open(wide.c_str())) CannotWrite(path);
  const bool written = out.Write(element);
  if (!out.Close() || !written) CannotWrite(path);
}

}  // namespace qdtool
