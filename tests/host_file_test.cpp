// Files from shared folders and failing disks: only regular files are read,
// never by blocking; a file is replaced whole or not at all; the folder of
// static sources is this user's alone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qdcore/file.h"
#include "qdparam/staticsource.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using namespace std::chrono_literals;
using qdtest::Element, qdtest::P, qdtest::Wide;

namespace {

namespace fs = std::filesystem;

// True when `call` returns within a few seconds. A call still blocked on
// the pipe is released by opening its other end, so no thread stays stuck.
bool ReturnsPromptly(const std::string& fifo, std::function<void()> call) {
  auto done = std::make_shared<std::atomic<bool>>(false);
  std::thread worker([call, done] {
    call();
    *done = true;
  });
  for (auto end = std::chrono::steady_clock::now() + 5s; !*done;) {
    if (std::chrono::steady_clock::now() > end) break;
    std::this_thread::sleep_for(5ms);
  }
  const bool prompt = *done;
  while (!*done) {  // unblock a reader or a writer waiting for the other end
    for (const int flags : {O_WRONLY | O_NONBLOCK, O_RDONLY | O_NONBLOCK}) {
      const int fd = ::open(fifo.c_str(), flags);
      if (fd >= 0) ::close(fd);
    }
    std::this_thread::sleep_for(5ms);
  }
  worker.join();
  return prompt;
}

// A tree large enough that writing it takes a while.
CXMLObject LargeTree() {
  CXMLObject root(P(u"Root"));
  CXMLObject child = Element(u"Item", {{u"value", u"0123456789abcdefghijklmnopqrstuvwxyz"}});
  for (int i = 0; i < 400000; ++i) root.Add(child);
  return root;
}

bool WriteTree(const std::string& path, const CXMLObject& tree) {
  CXMLFileOut out(1);
  if (!out.Open(Wide(path).c_str())) return false;
  const bool written = out.Write(tree);
  return out.Close() && written;
}

// Files in `folder` other than the ones named.
std::vector<std::string> Leftovers(const std::string& folder, const std::string& kept) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name != kept) names.push_back(name);
  }
  return names;
}

// Runs `work` in a child process and returns its exit status (-1 when killed).
template <typename Work>
int InChild(Work work) {
  const pid_t child = fork();
  if (child == 0) std::_Exit(work() ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class HostFiles : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return tmp.path() + "/" + name; }
  qdtest::TempDir tmp;
};

}  // namespace

// ---- reading

TEST_F(HostFiles, PipesAndDevicesAreRefusedWithoutBlocking) {
  const std::string fifo = Path("planted.xml");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  int result = -1;
  EXPECT_TRUE(ReturnsPromptly(fifo, [&] {
    CXMLDoc doc;
    result = doc.OpenDocFile(Wide(fifo).c_str());
  }));
  EXPECT_EQ(result, CXMLDoc::kCannotOpen);
  bool opened = true;
  EXPECT_TRUE(ReturnsPromptly(fifo, [&] { opened = CXMLFileOut(1).Open(Wide(fifo).c_str()); }));
  EXPECT_FALSE(opened);
  EXPECT_TRUE(fs::is_fifo(fifo));
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocFile(u"/dev/zero"), CXMLDoc::kCannotOpen);
}

// A file longer than its told size (0, as the system's own files say) is
// read on, its room grown as the text comes, and judged like any text.
TEST_F(HostFiles, AFileLongerThanItsToldSizeIsReadWhole) {
  if (!fs::exists("/proc/self/status")) GTEST_SKIP() << "no /proc";
  for (const bool positions : {false, true}) {
    CXMLDoc doc;
    doc.KeepPositions(positions);
    EXPECT_EQ(doc.OpenDocFile(u"/proc/self/status"), CXMLDoc::kMalformed);  // text, not XML
    EXPECT_EQ(doc.GetLastFailure().line, 1u);
  }
}

TEST_F(HostFiles, LinksAreFollowedOnlyWhenAllowed) {
  const std::string target = Path("real.xml");
  qdtest::WriteFile(target, "<a/>");
  fs::create_symlink(target, Path("link.xml"));
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocFile(Wide(Path("link.xml")).c_str()), CXMLDoc::kOk);
  EXPECT_EQ(doc.OpenDocFile(Wide(Path("link.xml")).c_str(), 0, CXMLDoc::kNoFollow),
            CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(Wide(target).c_str(), 0, CXMLDoc::kNoFollow), CXMLDoc::kOk);
}

// ---- writing

TEST_F(HostFiles, AtomicWritesReplaceWholeAndKeepTheMode) {
  const std::string path = Path("out.txt");
  ASSERT_TRUE(QF_WriteFileAtomic(Wide(path).c_str(), "first", 5));
  ::chmod(path.c_str(), 0640);
  ASSERT_TRUE(QF_WriteFileAtomic(Wide(path).c_str(), "second", 6));
  EXPECT_EQ(qdtest::ReadFile(path), "second");
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_TRUE(Leftovers(tmp.path(), "out.txt").empty());
}

TEST_F(HostFiles, WhatIsNotARegularFileIsNeverReplaced) {
  fs::create_directory(Path("folder"));
  fs::create_symlink(Path("elsewhere"), Path("dangling"));
  for (const std::string& path : {std::string("/dev/full"), std::string("/dev/null"),
                                  Path("folder"), Path("dangling"), Path("missing/file")}) {
    EXPECT_FALSE(QF_WriteFileAtomic(Wide(path).c_str(), "x", 1)) << path;
    EXPECT_FALSE(CXMLFileOut(1).Open(Wide(path).c_str())) << path;
  }
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  EXPECT_TRUE(fs::is_symlink(Path("dangling")) && !fs::exists(Path("elsewhere")));
  EXPECT_EQ(Leftovers(tmp.path(), "").size(), 2u);  // the folder and the link, nothing more
}

// A disk that fills up half-way (a file size limit in a child process):
// the write fails and the old file is there, whole.
TEST_F(HostFiles, AFailedWriteLeavesTheOldFile) {
  const std::string path = Path("kept.xml");
  qdtest::WriteFile(path, "<old/>");
  const CXMLObject tree = LargeTree();
  const int status = InChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{64 * 1024, 64 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const bool xml = WriteTree(path, tree);
    const std::string text(128 * 1024, 'x');
    const bool raw = QF_WriteFileAtomic(Wide(path).c_str(), text.data(), text.size());
    return !xml && !raw;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(qdtest::ReadFile(path), "<old/>");
  EXPECT_TRUE(Leftovers(tmp.path(), "kept.xml").empty());
}

// A process killed while it writes leaves the old file (and at most its
// unfinished temporary file beside it).
TEST_F(HostFiles, AProcessKilledMidWriteLeavesTheOldFile) {
  const std::string path = Path("kept.xml");
  qdtest::WriteFile(path, "<old/>");
  const CXMLObject tree = LargeTree();
  const pid_t child = fork();
  if (child == 0) {
    for (;;) WriteTree(path, tree);
  }
  // Killed once a temporary file has content: the write is under way.
  bool writing = false;
  for (auto end = std::chrono::steady_clock::now() + 10s;
       !writing && std::chrono::steady_clock::now() < end;) {
    for (const std::string& name : Leftovers(tmp.path(), "kept.xml")) {
      std::error_code error;
      writing = writing || fs::file_size(Path(name), error) > 0;
    }
  }
  ::kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(writing);
  EXPECT_EQ(qdtest::ReadFile(path), "<old/>");
}

// ---- the folder of static sources

class StaticSourceFolder : public HostFiles {
 protected:
  std::string Folder() const { return Path("QWSTATICSOURCE"); }
  std::string FileOf(const CGUID& id) const {
    return Folder() + "/" + ToUtf8(id.GetString().view()) + ".qws";
  }
  static CGUID NewId() {
    CGUID id;
    id.create();
    return id;
  }
};

TEST_F(StaticSourceFolder, IsMadeForThisUserAlone) {
  const CGUID id = NewId();
  ASSERT_TRUE(CStaticSource::SetSource(id, Element(u"A")));
  EXPECT_EQ(fs::status(Folder()).permissions() & fs::perms::all, fs::perms::owner_all);
  CXMLObject content;
  EXPECT_TRUE(CStaticSource::GetSource(id, content) && content.IsName(u"A"));
}

// A folder others can write, or a link in the folder's place, is neither
// written nor read nor emptied.
TEST_F(StaticSourceFolder, ForeignFoldersAreLeftAlone) {
  const std::string elsewhere = Path("elsewhere");
  fs::create_directory(elsewhere);
  qdtest::WriteFile(elsewhere + "/precious", "keep");
  for (const bool link : {false, true}) {
    if (link) {
      fs::remove_all(Folder());
      fs::create_directory_symlink(elsewhere, Folder());
    } else {
      fs::create_directory(Folder());
      fs::permissions(Folder(), fs::perms::all);
    }
    const CGUID id = NewId();
    ASSERT_TRUE(CStaticSource::SetSource(id, Element(u"A")));  // registered, but not written
    EXPECT_FALSE(fs::exists(FileOf(id))) << link;
    CXMLObject content;
    EXPECT_FALSE(CStaticSource::GetSource(id, content)) << link;
    CStaticSource::DeleteTempFolder();
    EXPECT_EQ(qdtest::ReadFile(elsewhere + "/precious"), "keep");
  }
}

TEST_F(StaticSourceFolder, PlantedPipesAndLinksAreNotRead) {
  ASSERT_TRUE(QF_CreatePrivateDirectory(Wide(Folder()).c_str()));
  const CGUID piped = NewId(), linked = NewId();
  ASSERT_EQ(::mkfifo(FileOf(piped).c_str(), 0600), 0);
  const std::string real = Path("real.qws");
  qdtest::WriteFile(real, "<Root><StaticSource><A/></StaticSource></Root>");
  fs::create_symlink(real, FileOf(linked));
  CXMLObject content;
  bool got = true;
  EXPECT_TRUE(
      ReturnsPromptly(FileOf(piped), [&] { got = CStaticSource::GetSource(piped, content); }));
  EXPECT_FALSE(got);
  EXPECT_FALSE(CStaticSource::GetSource(linked, content));
}

// Another process rewriting a source's file over and over: every read here
// gets one whole version or the other, never a torn file.
TEST_F(StaticSourceFolder, ReadersNeverSeeAFileBeingReplaced) {
  ASSERT_TRUE(QF_CreatePrivateDirectory(Wide(Folder()).c_str()));
  const CGUID id = NewId();
  const auto mirror = [&](const char16_t* value) {
    CXMLObject root(P(u"Root")), source = Element(u"StaticSource", {{u"ID", id.GetString()}});
    CXMLObject content = Element(u"Content", {{u"value", value}});
    for (int i = 0; i < 2000; ++i) content.Add(Element(u"Filler", {{u"n", u"0123456789"}}));
    source.Add(content);
    root.Add(source);
    return root;
  };
  const CXMLObject versions[] = {mirror(u"0A"), mirror(u"0B")};
  ASSERT_TRUE(WriteTree(FileOf(id), versions[0]));
  const pid_t child = fork();
  if (child == 0) {
    for (int i = 0;; ++i) WriteTree(FileOf(id), versions[i % 2]);
  }
  int whole = 0;
  for (int i = 0; i < 300; ++i) {
    std::vector<unsigned char> bytes;
    whole += CStaticSource::GetSource(id, bytes) && bytes.size() == 1;
  }
  ::kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(whole, 300);
}
