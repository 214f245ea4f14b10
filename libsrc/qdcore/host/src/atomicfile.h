// Replacing a file so that a reader, a crash or a full disk never leaves a
// torn one: the new content goes to a temporary file beside the target (the
// same folder, so the same file system), is synced, and is renamed over the
// target; the folder is synced so that the rename itself lasts.
#pragma once

#include <cstddef>
#include <string>

namespace qdcore {

class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile() { Abandon(); }

  // Starts a replacement of `path`. False when `path` names something that
  // is not a regular file (a device, a pipe, a folder, a symbolic link) or
  // the temporary file cannot be made.
  bool Begin(const std::string& path);
  // False once any write failed; the replacement then cannot be committed.
  bool Write(const char* data, std::size_t size) noexcept;
  // Syncs and renames over the target. False on any failure, which leaves
  // the target as it was.
  bool Commit() noexcept;
  // Drops the temporary file; the target stays as it was.
  void Abandon() noexcept;
  bool IsOpen() const noexcept { return m_fd >= 0; }

 private:
  std::string m_target;
  std::string m_temporary;
  int m_fd = -1;
  bool m_failed = false;
};

}  // namespace qdcore
