// AtomicFile: write beside, sync, rename over, sync the folder.
#include "atomicfile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace qdcore {

namespace {

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Some file systems cannot sync a folder and say so: that is no failure.
bool SyncFolder(const std::string& folder) noexcept {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP;
  ::close(fd);
  return synced;
}

// A new file named after `path` with a suffix no one else uses; -1 when
// none can be made.
int CreateBeside(const std::string& path, std::string& made) {
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned char noise[4] = {};
    if (::getrandom(noise, sizeof noise, GRND_NONBLOCK) != sizeof noise) {
      noise[0] = static_cast<unsigned char>(counter.fetch_add(1));
    }
    char suffix[48];
    std::snprintf(suffix, sizeof suffix, ".tmp-%d-%02x%02x%02x%02x", static_cast<int>(::getpid()),
                  noise[0], noise[1], noise[2], noise[3]);
    std::string name = path + suffix;
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd >= 0) {
      made = std::move(name);
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

}  // namespace

bool AtomicFile::Begin(const std::string& path) {
  Abandon();
  m_failed = false;
  if (path.empty() || path.back() == '/' || path.find('\0') != std::string::npos) return false;
  struct stat existing;
  const bool exists = ::lstat(path.c_str(), &existing) == 0;
  if (exists && !S_ISREG(existing.st_mode)) return false;
  if (!exists && errno != ENOENT) return false;
  // Exclusive creation, never through a link planted under the name; a
  // new file gets what the umask allows, a replacement the old file's mode.
  const int fd = CreateBeside(path, m_temporary);
  if (fd < 0) return false;
  m_fd = fd;
  m_target = path;
  if (exists && ::fchmod(fd, existing.st_mode & 07777) != 0) {
    Abandon();
    return false;
  }
  return true;
}

bool AtomicFile::Write(const char* data, std::size_t size) noexcept {
  if (m_fd < 0 || m_failed) return false;
  while (size > 0) {
    const ssize_t wrote = ::write(m_fd, data, size);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      m_failed = true;
      return false;
    }
    data += wrote;
    size -= static_cast<std::size_t>(wrote);
  }
  return true;
}

bool AtomicFile::Commit() noexcept {
  if (m_fd < 0) return false;
  if (m_failed || ::fsync(m_fd) != 0) {
    Abandon();
    return false;
  }
  const int fd = m_fd;
  m_fd = -1;
  if (::close(fd) != 0 || ::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
    ::unlink(m_temporary.c_str());
    m_temporary.clear();
    return false;
  }
  m_temporary.clear();
  return SyncFolder(FolderOf(m_target));
}

void AtomicFile::Abandon() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  if (!m_temporary.empty()) ::unlink(m_temporary.c_str());
  m_temporary.clear();
}

}  // namespace qdcore
