#include "qdatomicfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace qdcore {

namespace {

bool Failed(std::string& error, const std::string& what) {
  error = what + ": " + std::strerror(errno);
  return false;
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The rename is only durable once the folder's entry is on the disk too.
void SyncFolder(const std::string& path) {
  const int folder = ::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  ::fsync(folder);
  ::close(folder);
}

}  // namespace

bool WriteFileAtomically(const std::string& path, std::string_view bytes, std::string& error) {
  struct stat existing;
  if (path.empty()) {
    error = "the file name is empty";
    return false;
  }
  if (::lstat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
    error = path + " exists and is not a regular file";
    return false;
  }
  std::string pattern = path + ".XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return Failed(error, "cannot create a file beside " + path);
  const std::string temporary(name.data());
  // A new file keeps the permissions of the one it replaces.
  const mode_t mode = ::lstat(path.c_str(), &existing) == 0 ? existing.st_mode & 07777 : 0644;
  const bool written = WriteAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
  const int savedErrno = errno;
  const bool closed = ::close(fd) == 0;
  if (!written || !closed) {
    errno = written ? errno : savedErrno;
    Failed(error, "cannot write " + path);
    ::unlink(temporary.c_str());
    return false;
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    Failed(error, "cannot replace " + path);
    ::unlink(temporary.c_str());
    return false;
  }
  SyncFolder(path);
  return true;
}

}  // namespace qdcore
