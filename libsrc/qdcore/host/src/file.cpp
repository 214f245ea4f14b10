// File utilities over std::filesystem and POSIX; no call throws out of here.
#include "qdcore/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "atomicfile.h"

namespace qdcore {

namespace fs = std::filesystem;

namespace {

fs::path ToPath(const wchar* path) { return fs::path(ToUtf8(path ? path : u"")); }

}  // namespace

CZPoolString QF_GetTempPath() {
  std::error_code error;
  fs::path folder = fs::temp_directory_path(error);
  if (error) folder = "/tmp";
  std::u16string text = folder.u16string();
  if (text.empty() || text.back() != u'/') text += u'/';
  return CZPoolString(std::u16string_view(text));
}

bool QF_IsDirectory(const wchar* path) noexcept {
  try {
    std::error_code error;
    return fs::is_directory(ToPath(path), error);
  } catch (...) {
    return false;
  }
}

bool QF_CreateDirectory(const wchar* path) noexcept {
  try {
    std::error_code error;
    const fs::path folder = ToPath(path);
    fs::create_directory(folder, error);
    return fs::is_directory(folder, error);
  } catch (...) {
    return false;
  }
}

bool QF_DeleteDirectory(const wchar* path, int recursive, int removeFolder) noexcept {
  try {
    std::error_code error;
    fs::path folder = ToPath(path);
    if (folder.filename() == "*.*") folder = folder.parent_path();
    if (folder.empty() || !fs::is_directory(folder, error)) return false;
    if (recursive && removeFolder) {
      fs::remove_all(folder, error);
      return !error;
    }
    bool cleared = true;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
      if (recursive) {
        fs::remove_all(entry.path(), error);
      } else if (!entry.is_directory(error)) {
        fs::remove(entry.path(), error);
      }
      cleared = cleared && !error;
    }
    if (removeFolder) cleared = fs::remove(folder, error) && cleared;
    return cleared && !error;
  } catch (...) {
    return false;
  }
}

namespace {

bool IsPrivate(const std::string& folder) noexcept {
  struct stat info;
  if (::lstat(folder.c_str(), &info) != 0) return false;
  return S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() && (info.st_mode & 022) == 0;
}

}  // namespace

bool QF_CreatePrivateDirectory(const wchar* path) noexcept {
  try {
    const std::string folder = ToUtf8(path ? path : u"");
    if (folder.empty()) return false;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
    return IsPrivate(folder);
  } catch (...) {
    return false;
  }
}

bool QF_IsPrivateDirectory(const wchar* path) noexcept {
  try {
    return IsPrivate(ToUtf8(path ? path : u""));
  } catch (...) {
    return false;
  }
}

bool QF_WriteFileAtomic(const wchar* path, const void* data, std::size_t size) noexcept {
  try {
    if (!path || (!data && size)) return false;
    AtomicFile file;
    return file.Begin(ToUtf8(path)) && file.Write(static_cast<const char*>(data), size) &&
           file.Commit();
  } catch (...) {
    return false;
  }
}

}  // namespace qdcore
