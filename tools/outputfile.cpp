#include "outputfile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <system_error>

#include "failure.h"

namespace qdtool {

using namespace qdcore;

namespace {

// Beside the target, so that the final rename stays on one file system.
std::string TemporaryPath(const std::string& path) {
  return path + ".qdparam-" + std::to_string(::getpid()) + ".tmp";
}

void RemoveQuietly(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

// Writes through `write` into a temporary file, then puts it in place: a
// failure half-way leaves whatever was there before.
void WriteInPlace(const std::string& path, bool force,
                  const std::function<bool(const std::string&)>& write) {
  CheckOutputPath(path, force);
  const std::string temporary = TemporaryPath(path);
  errno = 0;
  if (!write(temporary)) {
    const std::string reason = errno ? std::strerror(errno) : "write failed";
    RemoveQuietly(temporary);
    throw Failure("cannot write " + path + ": " + reason);
  }
  std::error_code error;
  std::filesystem::rename(temporary, path, error);
  if (!error) return;
  RemoveQuietly(temporary);
  throw Failure("cannot write " + path + ": " + error.message());
}

}  // namespace

void CheckOutputPath(const std::string& path, bool force) {
  if (path.empty()) throw Failure("the output file name is empty");
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) throw Failure(path + " is a folder, not a file");
  if (std::filesystem::exists(status) && !force) {
    throw Failure(path + " exists; pass --force to replace it");
  }
}

void WriteTextFile(const std::string& path, const std::string& text, bool force) {
  WriteInPlace(path, force, [&](const std::string& temporary) {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return !file.fail();
  });
}

void WriteXmlFile(const std::string& path, const CXMLObject& element, bool force) {
  WriteInPlace(path, force, [&](const std::string& temporary) {
    std::u16string widePath;
    if (!FromUtf8(temporary, widePath)) return false;
    CXMLFileOut out(1);
    if (!out.Open(widePath.c_str())) return false;
    const bool written = out.Write(element);
    return out.Close() && written;
  });
}

}  // namespace qdtool
