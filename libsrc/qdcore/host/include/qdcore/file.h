// The host's file utilities. Paths are UTF-16 and use '/' as separator.
#pragma once

#include "qdcore/core.h"

namespace qdcore {

/// The temporary folder with a trailing separator (honours TMPDIR).
QDHOST_API CZPoolString QF_GetTempPath();
/// True when `path` names a folder; false for anything else or an error.
QDHOST_API bool QF_IsDirectory(const wchar* path) noexcept;
/// Creates one folder; true when it exists afterwards.
QDHOST_API bool QF_CreateDirectory(const wchar* path) noexcept;
/// Deletes a folder tree. A path ending in "/*.*" names the folder's contents.
/// With `recursive` non-zero sub-folders go too; with `removeFolder` non-zero
/// the folder itself goes as well. True when nothing named is left.
QDHOST_API bool QF_DeleteDirectory(const wchar* path, int recursive, int removeFolder) noexcept;

}  // namespace qdcore
