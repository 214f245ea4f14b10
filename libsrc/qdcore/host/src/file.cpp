// File utilities over std::filesystem; no call throws out of here.
#include <filesystem>
#include <system_error>

#include "qdcore/file.h"

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

}  // namespace qdcore
