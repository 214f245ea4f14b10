// The host's core support: pooled strings, time, memory blocks, identifiers,
// locks, the assertion routine, allocation and locale-free number parsing.
//
// A host application may replace this library with its own implementation of
// the same declarations; the parameter library relies only on what is here.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <locale.h>
#include <mutex>
#include <string>
#include <string_view>

#if defined(QDHOST_BUILD)
#define QDHOST_API __attribute__((visibility("default")))
#else
#define QDHOST_API
#endif

/// The parameter library (classes C*, the codes of qdparam/types.h) and the host layer it
/// builds on (pooled UTF-16 strings, time, memory blocks, XML elements, trace, files).
namespace qdcore {

/// Characters are 16-bit UTF-16 code units throughout the interfaces.
using wchar = char16_t;

// ---------------------------------------------------------------------------
// Pooled strings
// ---------------------------------------------------------------------------

/// An immutable, reference-counted UTF-16 string. The empty string is a null
/// handle and costs nothing. Strings made by CStringPool::GetStringRef are
/// interned and never freed, so comparing two of them is a pointer compare.
class QDHOST_API CZPoolString {
 public:
  struct Entry;  // opaque: count, length, flags, text

  /// The empty string.
  constexpr CZPoolString() noexcept = default;
  /// A string of `text` (zero-terminated); empty for null.
  CZPoolString(const wchar* text);  // NOLINT: implicit by design, like a literal
  /// A string of `text`.
  CZPoolString(std::u16string_view text);
  explicit CZPoolString(int number);  ///< decimal text ("%d")
  /// The decimal text of `number`, taken as a 32-bit number.
  explicit CZPoolString(long number);
  /// Shares the other's text.
  CZPoolString(const CZPoolString& other) noexcept;
  /// Takes the other's text, leaving it empty.
  CZPoolString(CZPoolString&& other) noexcept : m_entry(other.m_entry) { other.m_entry = nullptr; }
  /// Shares the other's text.
  CZPoolString& operator=(const CZPoolString& other) noexcept;
  /// Takes the other's text, leaving it empty.
  CZPoolString& operator=(CZPoolString&& other) noexcept;
  /// Drops this reference to the text.
  ~CZPoolString();

  /// True for equal texts.
  bool operator==(const CZPoolString& other) const noexcept;
  /// True for different texts.
  bool operator!=(const CZPoolString& other) const noexcept { return !(*this == other); }
  /// True when the text equals `text` (null counts as empty).
  bool operator==(const wchar* text) const noexcept;
  /// True when the text differs from `text`.
  bool operator!=(const wchar* text) const noexcept { return !(*this == text); }

  /// False for the empty string.
  explicit operator bool() const noexcept { return m_entry != nullptr; }
  /// The zero-terminated text; u"" for the empty string, never null.
  operator const wchar*() const noexcept { return c_str(); }
  /// The zero-terminated text; u"" for the empty string, never null.
  const wchar* c_str() const noexcept;
  /// The text as a view; empty for the empty string.
  std::u16string_view view() const noexcept;
  /// The length in UTF-16 code units.
  unsigned int len() const noexcept;
  /// 0 when the string ends with `suffix`, non-zero otherwise.
  int cmp_p(const wchar* suffix) const noexcept;
  /// True for the same entry: cheap identity test for pooled names.
  bool same(const CZPoolString& other) const noexcept { return m_entry == other.m_entry; }

 private:
  friend class CStringPool;
  explicit CZPoolString(Entry* adopted) noexcept : m_entry(adopted) {}
  Entry* m_entry = nullptr;
};

/// The process-wide pool. GetStringRef interns: the same text always yields
/// the same entry. Thread-safe.
class QDHOST_API CStringPool {
 public:
  /// The interned string of `text`; empty for null.
  static CZPoolString GetStringRef(const wchar* text);
  /// The interned string of `text`.
  static CZPoolString GetStringRef(std::u16string_view text);
};

// ---------------------------------------------------------------------------
// Time
// ---------------------------------------------------------------------------

/// A point or span of time in seconds. `unassigned` is minus infinity so that
/// an unknown span compares as shorter than any real one.
class mtime {
 public:
  /// Zero seconds.
  static const mtime null;
  /// No time known: minus infinity.
  static const mtime unassigned;

  /// Zero seconds.
  constexpr mtime() noexcept = default;
  /// The time of `seconds`.
  constexpr mtime(double seconds) noexcept : m_seconds(seconds) {}  // NOLINT: implicit by design
  /// Sets the time to `seconds`.
  constexpr mtime& operator=(double seconds) noexcept {
    m_seconds = seconds;
    return *this;
  }
  /// The time in seconds.
  constexpr operator double() const noexcept { return m_seconds; }

  /// The sum of two times.
  constexpr mtime operator+(mtime other) const noexcept { return m_seconds + other.m_seconds; }
  /// This time plus `seconds`.
  constexpr mtime operator+(double seconds) const noexcept { return m_seconds + seconds; }
  /// The difference of two times.
  constexpr mtime operator-(mtime other) const noexcept { return m_seconds - other.m_seconds; }
  /// This time minus `seconds`.
  constexpr mtime operator-(double seconds) const noexcept { return m_seconds - seconds; }
  /// The negated time.
  constexpr mtime operator-() const noexcept { return -m_seconds; }
  /// This time divided by `divisor`.
  constexpr mtime operator/(double divisor) const noexcept { return m_seconds / divisor; }
  /// This time times `factor`.
  constexpr mtime operator*(double factor) const noexcept { return m_seconds * factor; }

  /// True for equal times.
  constexpr bool operator==(mtime other) const noexcept { return m_seconds == other.m_seconds; }
  /// True when this time is earlier.
  constexpr bool operator<(mtime other) const noexcept { return m_seconds < other.m_seconds; }
  /// True when this time is earlier or equal.
  constexpr bool operator<=(mtime other) const noexcept { return m_seconds <= other.m_seconds; }
  /// True when this time is later.
  constexpr bool operator>(mtime other) const noexcept { return m_seconds > other.m_seconds; }
  /// True when this time is later or equal.
  constexpr bool operator>=(mtime other) const noexcept { return m_seconds >= other.m_seconds; }
  /// True when this time is `seconds`.
  constexpr bool operator==(double seconds) const noexcept { return m_seconds == seconds; }
  /// True when this time is before `seconds`.
  constexpr bool operator<(double seconds) const noexcept { return m_seconds < seconds; }
  /// True when this time is at or before `seconds`.
  constexpr bool operator<=(double seconds) const noexcept { return m_seconds <= seconds; }
  /// True when this time is after `seconds`.
  constexpr bool operator>(double seconds) const noexcept { return m_seconds > seconds; }
  /// True when this time is at or after `seconds`.
  constexpr bool operator>=(double seconds) const noexcept { return m_seconds >= seconds; }

  /// False for mtime::unassigned.
  constexpr bool isassigned() const noexcept { return m_seconds != -__builtin_huge_val(); }

 private:
  double m_seconds = 0.0;
};

constexpr mtime mtime::null{0.0};
constexpr mtime mtime::unassigned{-__builtin_huge_val()};

/// `time` times `factor`.
constexpr mtime operator*(double factor, mtime time) noexcept { return time * factor; }

// ---------------------------------------------------------------------------
// Memory blocks
// ---------------------------------------------------------------------------

/// A growable, relocatable block of bytes with a used and an allocated size.
/// Containers derive from it and override RelocateMemory and ClearForRelease to
/// move, copy and release the elements that live in the block.
///
/// RelocateMemory(from, fromSize, to, toSize, mode): `from` is the source.
///   mode 0: move into a new block (Realloc); mode 1: move within the block;
///   mode 2 and above: copy (operator=). The base class moves or copies bytes.
class QDHOST_API CZMemory {
 public:
  /// For Realloc: keep the block's size.
  static constexpr std::uint64_t kKeepSize = ~std::uint64_t{0};
  static const CZMemory pnull;  ///< the shared empty block

  /// An empty block.
  constexpr CZMemory() noexcept = default;
  /// Copies the bytes. A base constructor cannot reach a derived class's hook,
  /// so containers construct empty and assign, which does reach it.
  CZMemory(const CZMemory& other);
  /// Takes the other's block, leaving it empty.
  CZMemory(CZMemory&& other) noexcept;
  /// Releases the bytes only: ClearForRelease can no longer reach a derived
  /// class here, so containers call Free() in their own destructors.
  virtual ~CZMemory();
  /// Releases the current content (Free), then copies `other` through the
  /// RelocateMemory hook in copy mode.
  CZMemory& operator=(const CZMemory& other);
  /// Releases the current content and takes the other's block, leaving it empty.
  CZMemory& operator=(CZMemory&& other) noexcept;

  /// Releases the content, then holds a new block of `bytes`, all of it used.
  bool Alloc(std::uint64_t bytes);
  /// Resizes the allocation; elements are moved by RelocateMemory (mode 0) and
  /// the old bytes released without ClearForRelease. kKeepSize keeps the block
  /// as it is (blocks are never shared) and returns true. Realloc(0) is Free();
  /// a size below the used size is refused, as it would drop live elements.
  bool Realloc(std::uint64_t bytes);
  /// Sets the used size. A size beyond the allocation is clamped to it and the
  /// call returns false.
  bool SetSize(std::uint64_t bytes) noexcept;
  /// Runs ClearForRelease for the elements, then releases the block.
  void Free() noexcept;

  /// The used size in bytes.
  std::uint64_t GetSize() const noexcept { return m_size; }
  /// The allocated size in bytes.
  std::uint64_t GetAllocSize() const noexcept { return m_alloc; }
  /// The bytes; null for an empty block.
  operator void*() noexcept { return m_data; }
  /// The bytes; null for an empty block.
  operator const void*() const noexcept { return m_data; }
  /// False for an empty block.
  explicit operator bool() const noexcept { return m_data != nullptr; }

 protected:
  /// The offset at which an element placed at `offset` starts; `offset` itself here.
  virtual std::uint64_t AlignOffset(std::uint64_t offset) const noexcept { return offset; }
  /// Releases the elements in the block before the bytes go; true here, having none.
  virtual bool ClearForRelease() { return true; }
  /// Moves or copies the elements from one block to another (mode above); bytes here.
  virtual void RelocateMemory(void* from, std::uint64_t fromSize, void* to, std::uint64_t toSize,
                              int mode);

 private:
  virtual std::uint32_t GetClassID() const noexcept { return 0; }
  void ReleaseBytes() noexcept;

  unsigned char* m_data = nullptr;
  std::uint64_t m_size = 0;
  std::uint64_t m_alloc = 0;
};

/// The construction, copy and destruction entries of one kind of object held
/// in a CZObjectMemory. The descriptor's address names the kind.
struct tagCZOVTABL {
  /// Constructs an object in place.
  void (*construct)(void* object);
  /// Copy-constructs an object in place from `from`.
  void (*copy)(void* object, const void* from);
  /// Destroys an object in place.
  void (*destruct)(void* object);
};

/// A block holding one object of a kind named by its descriptor.
class QDHOST_API CZObjectMemory {
 public:
  /// A block without an object.
  constexpr CZObjectMemory() noexcept = default;
  /// Holds a copy of the other's object.
  CZObjectMemory(const CZObjectMemory& other);
  /// Releases the object and holds a copy of the other's.
  CZObjectMemory& operator=(const CZObjectMemory& other);
  /// Destroys the object.
  virtual ~CZObjectMemory();

  /// Releases the current object and constructs a new one of `size` bytes.
  bool Alloc(std::uint64_t size, const tagCZOVTABL* descriptor);
  /// True when the block holds an object of this size and kind.
  bool IsAssignable(std::uint64_t size, const tagCZOVTABL* descriptor) const noexcept;
  /// Destroys the object: the block is empty.
  void Free() noexcept;

  /// False when the block holds no object.
  explicit operator bool() const noexcept { return m_object != nullptr; }
  /// The object; null when none.
  operator void*() noexcept { return m_object; }
  /// The object; null when none.
  operator const void*() const noexcept { return m_object; }

 private:
  void* m_object = nullptr;
  std::uint64_t m_size = 0;
  const tagCZOVTABL* m_descriptor = nullptr;
};

// ---------------------------------------------------------------------------
// Identifiers
// ---------------------------------------------------------------------------

/// A 128-bit identifier; text form {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
class QDHOST_API CGUID {
 public:
  /// The all-zero identifier.
  constexpr CGUID() noexcept = default;
  /// A new random value from the operating system.
  bool create();
  /// Reads the text form; false (and the value unchanged) when malformed.
  bool parse(const wchar* text);
  /// The text form {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, upper-case.
  CZPoolString GetString() const;

  /// Byte-wise order, for maps.
  bool operator<(const CGUID& other) const noexcept;
  /// True for the same 16 bytes.
  bool operator==(const CGUID& other) const noexcept;
  /// True for different bytes.
  bool operator!=(const CGUID& other) const noexcept { return !(*this == other); }

  /// The identifier's bytes, in text order.
  unsigned char bytes[16] = {};
};

// ---------------------------------------------------------------------------
// Locks
// ---------------------------------------------------------------------------

/// A recursive lock. The number is a spin count on platforms that spin
/// before sleeping; this one does not, and accepts it for the signature.
class QDHOST_API COSCriticalSection {
 public:
  /// An unlocked lock.
  explicit COSCriticalSection(std::uint32_t /*spinCount*/ = 0) noexcept {}
  COSCriticalSection(const COSCriticalSection&) = delete;
  COSCriticalSection& operator=(const COSCriticalSection&) = delete;

  /// Takes the lock, waiting for it; a thread may take it again.
  void Enter() { m_mutex.lock(); }
  /// Takes the lock when free; false when another thread holds it.
  bool TryEnter() { return m_mutex.try_lock(); }
  /// Releases one level of the lock.
  void Leave() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

/// Holds a lock for its lifetime.
class COSAutoLock {
 public:
  /// Takes `lock`.
  explicit COSAutoLock(COSCriticalSection& lock) : m_lock(lock) { m_lock.Enter(); }
  /// Releases the lock.
  ~COSAutoLock() { m_lock.Leave(); }
  COSAutoLock(const COSAutoLock&) = delete;
  COSAutoLock& operator=(const COSAutoLock&) = delete;

 private:
  COSCriticalSection& m_lock;
};

// ---------------------------------------------------------------------------
// Assertion routine
// ---------------------------------------------------------------------------

/// The kind text of a failed assumption.
inline constexpr const char* kRuntimeAssumptionFailed = "Runtime assumption failed";
/// The kind text of a point the code must not reach.
inline constexpr const char* kIllegalCodePointReached = "Illegal code point reached";

/// One failed assumption, as handed to the AssertHandler.
struct AssertReport {
  std::string expression;  ///< UTF-8
  const char* message;     ///< kind text
  /// source file
  const char* file;
  /// source line
  int line;
  /// the function's signature text
  const char* signature;
};

/// Returns true to ask for a break into the debugger.
using AssertHandler = bool (*)(const AssertReport& report, void* context);

/// Installs a handler and returns the previous one; null restores the default,
/// which writes one line to stderr (silenced by QD_ASSERT=silent).
QDHOST_API AssertHandler SetAssertHandler(AssertHandler handler, void* context = nullptr);

/// Shows a failed assumption; true when the handler asks to break.
QDHOST_API bool DetailedMessageBox(const char* expression, const char* message, const char* file,
                                   int line, const char* signature);
/// The same with a UTF-16 expression text; true when the handler asks to break.
QDHOST_API bool DetailedMessageBox(const wchar* expression, const char* message, const char* file,
                                   int line, const char* signature);

/// True when a debugger is attached to the process.
QDHOST_API bool IsDebuggerPresent() noexcept;
/// Stops in the debugger (a trap signal).
QDHOST_API void DebugBreak() noexcept;

/// Reports through DetailedMessageBox and breaks when asked to and a debugger
/// is attached. What the library calls at every broken precondition.
QDHOST_API void ReportFailure(const char* expression, const char* message, const char* file,
                              int line, const char* signature);

// ---------------------------------------------------------------------------
// Allocation and numbers
// ---------------------------------------------------------------------------

QDHOST_API void* _falloc(std::size_t bytes) noexcept;  ///< null on failure
/// Releases what _falloc gave; null is allowed.
QDHOST_API void _ffree(void* pointer) noexcept;

/// Prefix parse of a real number in the "C" locale, like wcstod: leading
/// blanks skipped, "2.5s" reads 2.5. `end` (optional) receives the first
/// character not used; it is `text` when no number was read, and 0.0 returned.
QDHOST_API double ParseDouble(const wchar* text, const wchar** end = nullptr) noexcept;
/// The same in a given locale (null means "C"), for callers that keep their own.
QDHOST_API double ParseDoubleL(const wchar* text, const wchar** end, locale_t locale) noexcept;
/// Prefix parse of a decimal whole number, like wcstol with a 32-bit long:
/// saturates at the 32-bit limits.
QDHOST_API std::int32_t ParseInt(const wchar* text, const wchar** end = nullptr) noexcept;
/// Truncation toward zero; NaN or out-of-range gives INT32_MIN, as the x86
/// conversion instruction does.
QDHOST_API std::int32_t TruncateToInt32(double value) noexcept;

/// UTF-8 at the I/O boundary. Unpaired surrogates become U+FFFD on the way out;
/// malformed UTF-8 makes FromUtf8 return false.
QDHOST_API std::string ToUtf8(std::u16string_view text);
/// Converts UTF-8 to UTF-16 into `out`; false for malformed UTF-8.
QDHOST_API bool FromUtf8(std::string_view text, std::u16string& out);

}  // namespace qdcore
