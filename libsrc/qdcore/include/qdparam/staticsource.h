// CStaticSource: a piece of XML content that several users share by
// identifier. The library keeps one process-wide registry of them with a use
// count per entry, and mirrors each source to its own file in the folder
// "QWSTATICSOURCE" under the temporary path, from which every read is served.
#pragma once

#include <cstdint>
#include <vector>

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/export.h"

namespace qdcore {

/// The element "StaticSource" with the content as its first child, the
/// source's identifier and its use count. As a file it is written as
/// `<Root><StaticSource ID="{...}">content</StaticSource></Root>`.
///
/// The registry is started when the library is loaded and ended when it is
/// unloaded. All registry operations are thread-safe: they run under one
/// recursive, process-wide registry lock.
class QDPARAM_API CStaticSource : public CXMLObject {
 public:
  // ---- the object
  CStaticSource();  ///< a fresh identifier, no content
  /// A private copy of `content` becomes the child; a fresh identifier.
  explicit CStaticSource(const CXMLObject& content);
  /// A private copy of `content` becomes the child; the identifier `id`.
  CStaticSource(CGUID id, const CXMLObject& content);

  /// Writes "ID" and appends this element to `parent`. Always true.
  bool Store(CXMLObject& parent);
  /// Takes a "StaticSource" element: its attributes are merged onto this one
  /// and its first child replaces the content. False for another name or an
  /// element without children; the identifier never changes.
  bool Load(const CXMLObject& xml);

  // ---- the registry
  /// Registers `content` under `id` with use count 1 and writes its file.
  /// False when `id` is registered already or the registry is not started. A
  /// file that cannot be written goes unnoticed: the entry is registered.
  static bool SetSource(CGUID id, const CXMLObject& content);

  /// Gives the caller content of its own. When the caller is the entry's only
  /// user (use count 1) the entry's content is replaced in memory only: its
  /// file, and so every later read, keeps the old content. Otherwise the
  /// entry's count drops by one and `id` becomes a fresh identifier registered
  /// with `content` and use count 1. False when not started or `id` is unknown.
  ///
  /// LOCKING: unless it returns false because the registry is not started,
  /// ReplaceSource returns with the calling thread still holding the registry
  /// lock one level deeper than before, whatever its result; no public call
  /// leaves it. The lock is recursive, so this thread's own registry calls go
  /// on working, but registry calls from any other thread (AddRef and Release
  /// even after the registry has ended) block until this thread leaves the
  /// lock, which does not happen: not even when the thread ends. Call it only
  /// where the calling thread is the registry's sole user for the rest of the
  /// process.
  static bool ReplaceSource(CGUID& id, const CXMLObject& content);

  /// Raises the use count of `id`. False for an unknown `id` or when not started.
  static bool AddRef(CGUID id);
  /// Lowers the use count of `id`. An entry is never removed, also at 0 or
  /// below, and its file stays. False for an unknown `id` or when not started.
  static bool Release(CGUID id);

  /// Reads the source's file, also for an identifier this process never
  /// registered (a file left by another process or an earlier start); a
  /// registered entry takes the file's content too. On success `content` is
  /// a private copy of the source's content. False, leaving `content`
  /// untouched, when not started or when the file is missing, unreadable or
  /// holds no content (as for a source registered with an empty element).
  static bool GetSource(CGUID id, CXMLObject& content);
  /// The content's "value" attribute decoded as hexadecimal digit pairs
  /// ("0aFF" gives 0x0A 0xFF). False for an empty or odd-length text and for
  /// a character that is not a hexadecimal digit; `data` then holds the bytes
  /// decoded before it.
  static bool GetSource(CGUID id, std::vector<unsigned char>& data);

  // ---- lifecycle
  /// Starts the registry; does nothing when it is started already. The
  /// library calls it when loaded.
  static void StartStaticSource();
  /// Ends the registry: every operation but AddRef and Release then fails at
  /// once without waiting for the lock. Entries and files stay, and a later
  /// start finds them again. The library calls it when unloaded.
  static void EndStaticSource();
  /// Empties the folder of source files (creating it when missing). For the
  /// host application, e.g. at its start; the library never calls it.
  static void DeleteTempFolder();

 private:
  /// Twins of the public operations: they run under the registry lock and
  /// fail when the registry is not started.
  static bool _SetSource(CGUID id, const CXMLObject& content);
  static bool _ReplaceSource(CGUID& id, const CXMLObject& content);
  static bool _AddRef(CGUID id);
  static bool _Release(CGUID id);
  static bool _GetSource(CGUID id, CXMLObject& content);
  static bool _GetSource(CGUID id, std::vector<unsigned char>& data);

  static void EnterLock();
  static void LeaveLock();
  static void Init();

  bool _Load();   ///< reads this source's file
  void _Store();  ///< writes this source's file; failures are silent

  CGUID m_ID;
  std::uint32_t m_UseCount = 0;
};

}  // namespace qdcore
