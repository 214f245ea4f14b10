// CStaticSource: shared XML content kept by identifier in a process-wide,
// reference-counted registry and mirrored to one file per source.
//
//   1. Names, paths and trace lines
//   2. The registry's state
//   3. The object and its XML
//   4. Files
//   5. Registry operations
//   6. Lifecycle
#include "qdparam/staticsource.h"

#include <atomic>
#include <cstddef>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "qdcore/file.h"
#include "qdcore/log.h"
#include "qdformatnames.h"
#include "staticsourceregistry.h"

namespace qdcore {

using namespace names;

namespace {

// ---------------------------------------------------------------------------
// 1. Names, paths and trace lines
// ---------------------------------------------------------------------------

constexpr const wchar* kFolderName = u"QWSTATICSOURCE";

constexpr int kTraceCategory = 835;
constexpr int kTraceLevel = 1;

constexpr const wchar* kTraceNew = u"CStaticSource SetSource new id = %s, usecount = %d\r\n";
constexpr const wchar* kTraceExists =
    u"CStaticSource SetSource error because already exist, id = %s\r\n";
constexpr const wchar* kTraceAddRef = u"CStaticSource AddRef id = %s, usecount = %d\r\n";
constexpr const wchar* kTraceRelease = u"CStaticSource Release id = %s, usecount = %d\r\n";
constexpr const wchar* kTraceReplace = u"CStaticSource ReplaceSource id = %s, usecount = %d\r\n";

// The folder of source files, directly under the temporary path.
std::u16string FolderPath() { return FormatString(u"%s%s", QF_GetTempPath().c_str(), kFolderName); }

std::u16string FilePath(const std::u16string& folder, const CGUID& id) {
  return FormatString(u"%s/%s.qws", folder.c_str(), id.GetString().c_str());
}

void Trace(const wchar* format, const CGUID& id) {
  if (!wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel)) return;
  wPrintf(kTraceCategory, kTraceLevel, format, id.GetString().c_str());
}

// Counts are kept unsigned and shown signed, so a count released below zero
// reads as -1 rather than 4294967295.
void Trace(const wchar* format, const CGUID& id, std::uint32_t useCount) {
  if (!wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel)) return;
  wPrintf(kTraceCategory, kTraceLevel, format, id.GetString().c_str(), static_cast<int>(useCount));
}

int HexDigit(wchar c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return -1;
}

// Pairs of digits, high digit first. On a bad digit `data` keeps the bytes
// decoded so far.
bool DecodeHex(std::u16string_view text, std::vector<unsigned char>& data) {
  if (text.empty() || text.size() % 2 != 0) return false;
  data.resize(text.size() / 2);
  for (std::size_t i = 0; i < data.size(); ++i) {
    const int high = HexDigit(text[2 * i]);
    const int low = HexDigit(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    data[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return true;
}

// ---------------------------------------------------------------------------
// 2. The registry's state
// ---------------------------------------------------------------------------

// Read before locking, so that a stopped registry fails without waiting for
// a lock that another thread may hold for good.
std::atomic<bool> g_started{false};

struct Registry {
  COSCriticalSection lock;
  std::map<CGUID, CStaticSource> sources;  // guarded by `lock`
};

// Made on first use (the library's load starts the registry) and never
// destroyed: AddRef and Release take the lock even after the registry has
// ended, and ReplaceSource leaves it held, so no moment is safe for
// destroying it. The storage is static, so nothing leaks; the unload frees
// the entries (FreeStaticSourceRegistry). This also keeps the registry out
// of the order in which the C++ runtime builds and destroys statics, which
// the load constructor and unload destructor do not follow.
Registry& TheRegistry() noexcept {
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static Registry* const registry = new (storage) Registry;
  return *registry;
}

bool IsStarted() noexcept { return g_started.load(); }

CStaticSource* Find(const CGUID& id) {
  auto& sources = TheRegistry().sources;
  const auto found = sources.find(id);
  return found == sources.end() ? nullptr : &found->second;
}

}  // namespace

// ---------------------------------------------------------------------------
// 3. The object and its XML
// ---------------------------------------------------------------------------

CStaticSource::CStaticSource() : CXMLObject(kStaticSource) { m_ID.create(); }

CStaticSource::CStaticSource(const CXMLObject& content) : CStaticSource() {
  CXMLObject child(content);
  child.Realloc();
  Add(child);
}

CStaticSource::CStaticSource(CGUID id, const CXMLObject& content)
    : CXMLObject(kStaticSource), m_ID(id) {
  CXMLObject child(content);
  child.Realloc();
  Add(child);
}

bool CStaticSource::Store(CXMLObject& parent) {
  SetAttribute(kStaticSourceId, m_ID);
  parent.Add(*this);
  return true;
}

bool CStaticSource::Load(const CXMLObject& xml) {
  if (!xml.IsName(kStaticSource)) return false;
  MergeAttributes(xml, true);
  const CXMLObject* first = xml.item(0);
  if (!first) return false;
  // Taken before the children go: `xml` may be this very element.
  const CXMLObject content(*first);
  DeleteElements();
  Add(content);
  return true;
}

// ---------------------------------------------------------------------------
// 4. Files
// ---------------------------------------------------------------------------

// The folder sits in the shared temporary folder: only one this user alone
// can change is written or read, and links in it are not followed, so that
// no other user can plant or swap a source. A file is replaced whole (see
// CXMLFileOut), so a reader in another process never sees part of one.
void CStaticSource::_Store() {
  const std::u16string folder = FolderPath();
  if (!QF_CreatePrivateDirectory(folder.c_str())) return;
  CXMLObject root(kRoot);
  Store(root);
  CXMLFileOut out(1);
  if (!out.Open(FilePath(folder, m_ID).c_str(), 0)) return;
  out.Write(root);
  out.Close();
}

bool CStaticSource::_Load() {
  const std::u16string folder = FolderPath();
  if (!QF_IsPrivateDirectory(folder.c_str())) return false;
  CXMLDoc doc;
  if (doc.OpenDocFile(FilePath(folder, m_ID).c_str(), 0, CXMLDoc::kNoFollow) != 0) return false;
  const CXMLObject& root = doc.GetContentElement();
  if (!root.IsName(kRoot)) return false;
  const CXMLObject* source = root.FindNextElement(kStaticSource, nullptr);
  return source && Load(*source);
}

void CStaticSource::DeleteTempFolder() {
  const std::u16string folder = FolderPath();
  // Not someone else's folder, nor one a link leads to.
  if (QF_IsPrivateDirectory(folder.c_str())) {
    QF_DeleteDirectory(FormatString(u"%s/*.*", folder.c_str()).c_str(), 1, 1);
  }
  QF_CreatePrivateDirectory(folder.c_str());
}

// ---------------------------------------------------------------------------
// 5. Registry operations
// ---------------------------------------------------------------------------

void CStaticSource::EnterLock() { TheRegistry().lock.Enter(); }

void CStaticSource::LeaveLock() { TheRegistry().lock.Leave(); }

void CStaticSource::Init() {}

bool CStaticSource::SetSource(CGUID id, const CXMLObject& content) {
  if (!IsStarted()) return false;
  COSAutoLock hold(TheRegistry().lock);
  return _SetSource(id, content);
}

bool CStaticSource::ReplaceSource(CGUID& id, const CXMLObject& content) {
  if (!IsStarted()) return false;
  COSAutoLock hold(TheRegistry().lock);
  return _ReplaceSource(id, content);
}

bool CStaticSource::AddRef(CGUID id) {
  COSAutoLock hold(TheRegistry().lock);
  return _AddRef(id);
}

bool CStaticSource::Release(CGUID id) {
  COSAutoLock hold(TheRegistry().lock);
  return _Release(id);
}

bool CStaticSource::GetSource(CGUID id, CXMLObject& content) {
  if (!IsStarted()) return false;
  COSAutoLock hold(TheRegistry().lock);
  return _GetSource(id, content);
}

bool CStaticSource::GetSource(CGUID id, std::vector<unsigned char>& data) {
  if (!IsStarted()) return false;
  COSAutoLock hold(TheRegistry().lock);
  return _GetSource(id, data);
}

bool CStaticSource::_SetSource(CGUID id, const CXMLObject& content) {
  if (!IsStarted()) return false;
  if (Find(id)) {
    Trace(kTraceExists, id);
    return false;
  }
  CStaticSource source(id, content);
  source.m_UseCount = 1;
  // Written first, and registered whether or not the write succeeded.
  source._Store();
  TheRegistry().sources.emplace(id, std::move(source));
  Trace(kTraceNew, id, 1);
  return true;
}

bool CStaticSource::_ReplaceSource(CGUID& id, const CXMLObject& content) {
  // Entered once more and never left, on every path: hosts rely on holding
  // the lock after ReplaceSource (see the header).
  EnterLock();
  if (!IsStarted()) return false;
  CStaticSource* entry = Find(id);
  if (!entry) return false;
  if (entry->m_UseCount == 1) {
    // The caller's own entry: replaced in memory only; the file keeps the
    // old content.
    entry->DeleteElements();
    entry->Add(content);
    return true;
  }
  --entry->m_UseCount;
  Trace(kTraceReplace, id, entry->m_UseCount);
  id.create();
  _SetSource(id, content);
  return true;
}

bool CStaticSource::_AddRef(CGUID id) {
  if (!IsStarted()) return false;
  CStaticSource* entry = Find(id);
  if (!entry) return false;
  ++entry->m_UseCount;
  Trace(kTraceAddRef, id, entry->m_UseCount);
  return true;
}

// Entries stay at a count of 0 and below: an identifier handed out once can
// always be read again.
bool CStaticSource::_Release(CGUID id) {
  if (!IsStarted()) return false;
  CStaticSource* entry = Find(id);
  if (!entry) return false;
  --entry->m_UseCount;
  Trace(kTraceRelease, id, entry->m_UseCount);
  return true;
}

bool CStaticSource::_GetSource(CGUID id, CXMLObject& content) {
  if (!IsStarted()) return false;
  // The content comes from the file every time, also for a registered entry.
  const auto readFile = [&content](CStaticSource& source) {
    if (!source._Load()) return false;
    const CXMLObject* first = std::as_const(source).item(0);
    content = first ? *first : CXMLObject();
    // The caller's copy shares no storage with the registry's entry.
    content.Realloc();
    return true;
  };
  if (CStaticSource* entry = Find(id)) return readFile(*entry);
  CStaticSource unregistered(id, CXMLObject());
  return readFile(unregistered);
}

bool CStaticSource::_GetSource(CGUID id, std::vector<unsigned char>& data) {
  CXMLObject content;
  if (!_GetSource(id, content)) return false;
  return DecodeHex(content.FindAttribute(kValue).view(), data);
}

// ---------------------------------------------------------------------------
// 6. Lifecycle
// ---------------------------------------------------------------------------

// Starting only raises the flag: the lock and the entries live on from the
// first start, so a restart finds every entry again.
void CStaticSource::StartStaticSource() {
  if (IsStarted()) return;
  TheRegistry();
  g_started.store(true);
}

void CStaticSource::EndStaticSource() { g_started.store(false); }

void FreeStaticSourceRegistry() noexcept {
  Registry& registry = TheRegistry();
  if (!registry.lock.TryEnter()) return;
  registry.sources.clear();
  registry.lock.Leave();
}

}  // namespace qdcore
