// The host's file utilities. Paths are UTF-16 and use '/' as separator.
#pragma once

#include <cstddef>

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

/// A folder that only this user can change, for files other users must not
/// plant or replace: created 0700 when absent. False when it cannot be made,
/// or when what is there is not a folder (a symbolic link included), belongs
/// to another user, or is writable by its group or by others.
QDHOST_API bool QF_CreatePrivateDirectory(const wchar* path) noexcept;
/// True when `path` is such a folder; creates nothing.
QDHOST_API bool QF_IsPrivateDirectory(const wchar* path) noexcept;

/// Replaces the file at `path` with `size` bytes from `data` so that a reader
/// or a crash sees the old file or the new one, never part of one: written
/// beside it, synced and renamed over it (see CXMLFileOut for XML). False,
/// with the old file intact, when anything fails or when `path` names
/// something other than a regular file.
QDHOST_API bool QF_WriteFileAtomic(const wchar* path, const void* data, std::size_t size) noexcept;

}  // namespace qdcore
