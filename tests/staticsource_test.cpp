// Static sources: the object's XML, the registry's counts and trace lines,
// the files behind it (damaged behind its back), the lock that ReplaceSource
// keeps, start and end, and a stress run.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qdparam/staticsource.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Element, qdtest::P, qdtest::Wide;
using namespace std::chrono_literals;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

CGUID NewId() {
  CGUID id;
  id.create();
  return id;
}

std::string Text(const CGUID& id) { return ToUtf8(id.GetString().view()); }

// Content that names its identifier, with the identifier's bytes as the hex
// "value", so any read can be checked against the identifier alone.
CXMLObject ContentFor(const CGUID& id) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char byte : id.bytes) hex += {kDigits[byte >> 4], kDigits[byte & 15]};
  CXMLObject content = Element(u"Clip", {{u"value", Wide(hex).c_str()}, {u"id", id.GetString()}});
  content.Add(Element(u"Note", {}, u"a < b & \"c\""));
  return content;
}

bool ReadsBack(const CGUID& id) {
  CXMLObject content;
  std::vector<unsigned char> bytes;
  return CStaticSource::GetSource(id, content) && content.IsEqual(ContentFor(id)) &&
         CStaticSource::GetSource(id, bytes) &&
         bytes == std::vector<unsigned char>(std::begin(id.bytes), std::end(id.bytes));
}

std::string FolderOf(const qdtest::TempDir& tmp) { return tmp.path() + "/QWSTATICSOURCE"; }
std::string FileOf(const qdtest::TempDir& tmp, const CGUID& id) { return FolderOf(tmp) + "/" + Text(id) + ".qws"; }

// True when `call`, made on another thread, finishes within `wait` and
// returns true; a call that does not finish stays blocked for good.
bool OtherThreadGetsThrough(std::function<bool()> call, std::chrono::milliseconds wait) {
  auto result = std::make_shared<std::atomic<int>>(-1);
  std::thread([call, result] { *result = call() ? 1 : 0; }).detach();
  for (auto end = std::chrono::steady_clock::now() + wait; std::chrono::steady_clock::now() < end;) {
    if (*result >= 0) return *result == 1;
    std::this_thread::sleep_for(5ms);
  }
  return *result == 1;
}

// In a child process a failed check ends the process with its text.
void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "failed: %s\n", what);
  std::_Exit(1);
}

// The second process of the cross-process test: this program started again
// with QDTEST_STATIC_SOURCE="write {id}" or "read {id}" plays its part before
// any test runs, relying on the library's load to have started the registry.
[[maybe_unused]] const bool kSecondProcess = [] {
  const char* role = std::getenv("QDTEST_STATIC_SOURCE");
  if (!role) return false;
  const std::string text(role);
  CGUID id;
  if (text.size() < 6 || !id.parse(Wide(text.substr(text.find(' ') + 1)).c_str())) std::exit(2);
  const bool ok = text.starts_with("write ") ? CStaticSource::SetSource(id, ContentFor(id)) : ReadsBack(id);
  std::exit(ok ? 0 : 1);
}();

int RunSecondProcess(const char* role, const CGUID& id) {
  setenv("QDTEST_STATIC_SOURCE", (std::string(role) + " " + Text(id)).c_str(), 1);
  char program[] = "/proc/self/exe";
  char* argv[] = {program, nullptr};
  pid_t child = 0;
  const int spawned = posix_spawn(&child, program, nullptr, nullptr, argv, environ);
  unsetenv("QDTEST_STATIC_SOURCE");
  int status = 0;
  if (spawned != 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The count an identifier has now, read from the trace of one more AddRef.
int UseCount(const CGUID& id) {
  qdtest::TraceCapture trace(835, 1);
  if (!CStaticSource::AddRef(id) || trace.lines().size() != 1) return INT32_MIN;
  CStaticSource::Release(id);
  const std::string& line = trace.lines()[0].text;
  return std::atoi(line.c_str() + line.find("usecount = ") + 11) - 1;
}

class StaticSourceTest : public ::testing::Test {
 protected:
  // A test that ends the registry must not stop the next one.
  void TearDown() override { CStaticSource::StartStaticSource(); }
  qdtest::TempDir tmp;
};

using StaticSourceDeathTest = StaticSourceTest;

}  // namespace

TEST(StaticSourceObject, LoadTakesFirstChildAndKeepsIdentifier) {
  const CGUID id = NewId();
  CXMLObject other = Element(u"StaticSource", {{u"ID", NewId().GetString()}, {u"extra", u"1"}});
  other.Add(Element(u"A"));
  other.Add(Element(u"B"));
  CStaticSource source(id, Element(u"Old"));
  EXPECT_FALSE(source.Load(Element(u"Other")));
  EXPECT_FALSE(source.Load(Element(u"StaticSource")));  // no children
  ASSERT_TRUE(source.Load(other));
  ASSERT_EQ(source.GetNElements(CZPoolString()), 1u);
  EXPECT_TRUE(source.item(0)->IsName(u"A"));
  EXPECT_EQ(source.FindAttribute(u"extra"), CZPoolString(u"1"));
  EXPECT_TRUE(source.Load(source));  // from itself
  CXMLObject parent(P(u"Root"));
  EXPECT_TRUE(source.Store(parent));
  EXPECT_EQ(parent.item(0)->FindAttribute(u"ID"), id.GetString());  // not the loaded ID
  EXPECT_TRUE(parent.item(0)->item(0)->IsName(u"A"));
}

TEST_F(StaticSourceTest, CountsAndTraceLines) {
  const CGUID id = NewId();
  const std::string text = Text(id);
  qdtest::TraceCapture trace(835, 1);
  EXPECT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
  EXPECT_FALSE(CStaticSource::SetSource(id, Element(u"Other")));
  EXPECT_TRUE(CStaticSource::AddRef(id));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(CStaticSource::Release(id));
  EXPECT_FALSE(CStaticSource::AddRef(NewId()) || CStaticSource::Release(NewId()));
  EXPECT_TRUE(ReadsBack(id));  // an entry below zero stays, with its file
  std::vector<std::string> expected = {"SetSource new id = " + text + ", usecount = 1",
                                       "SetSource error because already exist, id = " + text,
                                       "AddRef id = " + text + ", usecount = 2"};
  for (int count : {1, 0, -1}) expected.push_back("Release id = " + text + ", usecount = " + std::to_string(count));
  for (std::string& line : expected) line = "CStaticSource " + line + "\r\n";
  EXPECT_EQ(trace.texts(), expected);
  qdtest::TraceCapture quiet(835, 0);
  EXPECT_TRUE(CStaticSource::AddRef(id));
  EXPECT_TRUE(quiet.lines().empty());
}

TEST_F(StaticSourceTest, HexValueDecoding) {
  // On failure the expected bytes are the prefix decoded before the bad digit.
  struct Row { const wchar* value; bool ok; std::vector<unsigned char> bytes; } rows[] = {
      {u"0aFF", true, {0x0A, 0xFF}}, {u"0aF", false, {}}, {u"0g", false, {}}, {u"0A0g", false, {0x0A}},
      {u"\u0663\u0663", false, {}},  // digits, but not hexadecimal ones
      {nullptr, false, {}}};
  for (const Row& row : rows) {
    const CGUID id = NewId();
    ASSERT_TRUE(CStaticSource::SetSource(id, row.value ? Element(u"Blob", {{u"value", row.value}}) : Element(u"Blob")));
    std::vector<unsigned char> data(5, 0xEE);
    const std::string label = row.value ? ToUtf8(row.value) : "(absent)";
    EXPECT_EQ(CStaticSource::GetSource(id, data), row.ok) << label;
    if (!row.ok) data.resize(row.bytes.size());
    EXPECT_EQ(data, row.bytes) << label;
  }
}

TEST_F(StaticSourceTest, FileLayoutAndTempFolder) {
  CStaticSource::DeleteTempFolder();  // missing: created
  EXPECT_TRUE(fs::is_directory(FolderOf(tmp)) && fs::is_empty(FolderOf(tmp)));
  const CGUID id = NewId();
  ASSERT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
  CXMLObject expected(P(u"Root")), source = Element(u"StaticSource", {{u"ID", id.GetString()}});
  source.Add(ContentFor(id));
  expected.Add(source);
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocFile(Wide(FileOf(tmp, id)).c_str()), 0);
  EXPECT_TRUE(doc.GetContentElement().IsEqual(expected));
  // Deleting the folder empties it, sub-folders too, and keeps the entries.
  fs::create_directories(FolderOf(tmp) + "/sub/deeper");
  CStaticSource::DeleteTempFolder();
  EXPECT_TRUE(fs::is_directory(FolderOf(tmp)) && fs::is_empty(FolderOf(tmp)));
  CXMLObject content;
  EXPECT_FALSE(CStaticSource::GetSource(id, content));
  EXPECT_TRUE(CStaticSource::AddRef(id));
}

// Every read goes to the file: damage made behind the registry's back shows,
// for registered identifiers and for ones only a file names (as another
// process writes them), and fails cleanly.
TEST_F(StaticSourceTest, ReadsWhateverTheFileHolds) {
  const std::string good = "<Root><Other/><StaticSource ID=\"x\"><A n=\"1\"/><B/></StaticSource></Root>";
  // The text written over the file; "-" deletes it, "/" puts a folder there.
  struct Row { const char* label; std::string text; bool ok; } rows[] = {
      {"first StaticSource, first child", good, true},
      {"deleted", "-", false},
      {"a folder", "/", false},
      {"empty", "", false},
      {"truncated", good.substr(0, good.size() / 2), false},
      {"binary junk", "\0\xff\xfe<Root><StaticSource><A/>"s, false},
      {"document element not Root", "<Other><StaticSource><A/></StaticSource></Other>", false},
      {"no StaticSource", "<Root><A/></Root>", false},
      {"no content", "<Root><StaticSource ID=\"x\"/></Root>", false},
  };
  fs::create_directories(FolderOf(tmp));
  for (const bool registered : {true, false}) {
    for (const Row& row : rows) {
      const CGUID id = NewId();
      const std::string path = FileOf(tmp, id);
      if (registered) {
        ASSERT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
      }
      fs::remove(path);
      if (row.text == "/") {
        fs::create_directory(path);
      } else if (row.text != "-") {
        qdtest::WriteFile(path, row.text);
      }
      CXMLObject content(P(u"Untouched"));
      EXPECT_EQ(CStaticSource::GetSource(id, content), row.ok) << row.label << registered;
      EXPECT_TRUE(content.IsName(row.ok ? u"A" : u"Untouched")) << row.label << registered;
      EXPECT_EQ(CStaticSource::AddRef(id), registered) << row.label;
    }
  }
}

// A file where the folder should be: nothing can be written, nothing breaks.
TEST_F(StaticSourceTest, UnwritableFolderLosesNoEntry) {
  qdtest::WriteFile(FolderOf(tmp), "in the way");
  const CGUID id = NewId();
  qdtest::TraceCapture trace(835, 1);
  EXPECT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
  EXPECT_FALSE(CStaticSource::SetSource(id, ContentFor(id)));
  EXPECT_TRUE(CStaticSource::AddRef(id) && CStaticSource::Release(id));
  CXMLObject content;
  EXPECT_FALSE(CStaticSource::GetSource(id, content));
  CStaticSource::DeleteTempFolder();
  EXPECT_EQ(trace.lines().size(), 4u);
  fs::remove(FolderOf(tmp));
  const CGUID later = NewId();
  EXPECT_TRUE(CStaticSource::SetSource(later, ContentFor(later)) && ReadsBack(later));
}

TEST_F(StaticSourceTest, AnotherProcessReadsAndWritesByIdentifier) {
  const CGUID mine = NewId();
  ASSERT_TRUE(CStaticSource::SetSource(mine, ContentFor(mine)));
  EXPECT_EQ(RunSecondProcess("read", mine), 0);
  const CGUID theirs = NewId();
  ASSERT_EQ(RunSecondProcess("write", theirs), 0);
  EXPECT_TRUE(ReadsBack(theirs));
  EXPECT_FALSE(CStaticSource::AddRef(theirs));  // read from its file, not registered here
}

TEST_F(StaticSourceTest, StartIsNotCountedAndEndKeepsEntries) {
  const CGUID id = NewId();
  ASSERT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
  CStaticSource::StartStaticSource();
  CStaticSource::EndStaticSource();
  CGUID other = NewId();
  CXMLObject content;
  std::vector<unsigned char> bytes;
  EXPECT_FALSE(CStaticSource::SetSource(other, ContentFor(other)) || CStaticSource::ReplaceSource(other, content));
  EXPECT_FALSE(CStaticSource::AddRef(id) || CStaticSource::Release(id));
  EXPECT_FALSE(CStaticSource::GetSource(id, content) || CStaticSource::GetSource(id, bytes));
  CStaticSource::StartStaticSource();
  EXPECT_TRUE(CStaticSource::AddRef(id) && ReadsBack(id));
}

// ReplaceSource keeps the registry's lock for good, so this runs in a child
// process; an alarm turns a call that blocks where it must not into a failure.
// A shared entry splits off under a new identifier, a sole one changes in
// memory only; once ended, the registry answers other threads without the
// lock, except AddRef.
TEST_F(StaticSourceDeathTest, ReplaceSplitsSharedEntriesAndKeepsTheLock) {
  EXPECT_EXIT((alarm(20), [] {
    const CGUID id = NewId(), sole = NewId();
    Require(CStaticSource::SetSource(id, ContentFor(id)) && CStaticSource::AddRef(id) &&
                CStaticSource::SetSource(sole, ContentFor(sole)), "setup");
    qdtest::TraceCapture trace(835, 1);
    CGUID caller = id;
    const CGUID fresh = NewId();
    Require(CStaticSource::ReplaceSource(caller, ContentFor(fresh)) && caller != id, "split off");
    Require(trace.texts() == std::vector<std::string>{
                "CStaticSource ReplaceSource id = " + Text(id) + ", usecount = 1\r\n",
                "CStaticSource SetSource new id = " + Text(caller) + ", usecount = 1\r\n"}, "trace lines");
    CXMLObject content;
    Require(ReadsBack(id), "the shared entry keeps its content");
    Require(CStaticSource::GetSource(caller, content) && content.IsEqual(ContentFor(fresh)), "new content");
    CGUID soleCaller = sole, unknown = NewId();
    const CGUID before = unknown;
    Require(CStaticSource::ReplaceSource(soleCaller, ContentFor(NewId())), "sole replaced");
    Require(soleCaller == sole && trace.lines().size() == 2, "same identifier, no trace");
    Require(ReadsBack(sole), "the file keeps the old content");
    Require(!CStaticSource::ReplaceSource(unknown, ContentFor(id)) && unknown == before, "unknown");
    Require(CStaticSource::AddRef(caller), "this thread still uses the registry");
    Require(!OtherThreadGetsThrough([id] { return CStaticSource::AddRef(id); }, 200ms), "the lock stays held");
    CStaticSource::EndStaticSource();
    Require(OtherThreadGetsThrough([id] {
              CGUID other = NewId();
              CXMLObject content;
              std::vector<unsigned char> bytes;
              const bool refused = !CStaticSource::SetSource(other, content) &&
                                   !CStaticSource::ReplaceSource(other, content) &&
                                   !CStaticSource::GetSource(id, content) && !CStaticSource::GetSource(id, bytes);
              CStaticSource::StartStaticSource();
              CStaticSource::EndStaticSource();
              return refused;
            }, 5000ms), "an ended registry answers without the lock");
    Require(!OtherThreadGetsThrough([] { return CStaticSource::AddRef(NewId()), true; }, 200ms),
            "AddRef takes the lock regardless");
    std::thread([] { std::exit(0); }).join();  // the unload finds the lock held by another thread
  }()), ::testing::ExitedWithCode(0), "");
}

TEST_F(StaticSourceTest, ThreadsKeepCountsAndContentConsistent) {
  std::vector<CGUID> shared(3);
  for (CGUID& id : shared) {
    id.create();
    ASSERT_TRUE(CStaticSource::SetSource(id, ContentFor(id)));
  }
  // Per thread: AddRef minus Release per shared source, and private sources
  // each left at count 1.
  struct Tally { std::vector<int> delta = std::vector<int>(3); std::vector<CGUID> own; int failures = 0; };
  std::vector<Tally> tallies(4);
  const auto deadline = std::chrono::steady_clock::now() + 2s;
  std::vector<std::thread> threads;
  for (Tally& tally : tallies) {
    threads.emplace_back([&shared, &tally, deadline] {
      const auto check = [&tally](bool ok) { tally.failures += ok ? 0 : 1; };
      for (unsigned i = 0; std::chrono::steady_clock::now() < deadline; ++i) {
        // Bursts of count changes between the slower file reads, so that
        // the counts are contended.
        const unsigned k = i % shared.size();
        const int adds = 8 + static_cast<int>(i % 3);
        for (int n = 0; n < adds; ++n) check(CStaticSource::AddRef(shared[k]));
        for (int n = 0; n < 8; ++n) check(CStaticSource::Release(shared[k]));
        tally.delta[k] += adds - 8;
        check(ReadsBack(shared[k]));
        if (i % 4 != 0) continue;
        const CGUID mine = NewId();
        check(CStaticSource::SetSource(mine, ContentFor(mine)) && !CStaticSource::SetSource(mine, ContentFor(mine)));
        check(CStaticSource::AddRef(mine) && ReadsBack(mine) && CStaticSource::Release(mine));
        tally.own.push_back(mine);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<int> expected(shared.size(), 1);
  for (const Tally& tally : tallies) {
    EXPECT_EQ(tally.failures, 0);
    EXPECT_FALSE(tally.own.empty());
    for (std::size_t k = 0; k < shared.size(); ++k) expected[k] += tally.delta[k];
    for (const CGUID& id : tally.own) EXPECT_EQ(UseCount(id), 1) << Text(id);
  }
  for (std::size_t k = 0; k < shared.size(); ++k) EXPECT_EQ(UseCount(shared[k]), expected[k]);
}
