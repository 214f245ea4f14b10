// Reading documents: files and texts checked, then read by the plain reader
// (xmlplain.cpp) or, for whatever it leaves, parsed by pugixml and copied
// into a CXMLObject tree without recursion; failures and their places.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xmlread.h"

namespace qdcore {

using Node = CXMLObject::Node;
using reading::PlaceCounter;
using reading::TreeBuilder;

namespace {

// ---- input checks

enum class Utf8Check { kOk, kBad, kNul };

bool HasZeroByte(std::uint64_t word) noexcept {
  return ((word - 0x0101010101010101ull) & ~word & 0x8080808080808080ull) != 0;
}

// Strict UTF-8: no overlong forms, surrogates or values past U+10FFFF. A NUL
// byte is reported apart: it is valid UTF-8 but never valid XML.
// `at` is set to the offending byte.
Utf8Check CheckUtf8(std::string_view text, std::size_t& at) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  std::size_t& i = at;
  i = 0;
  while (i < size) {
    if (size - i >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p + i, 8);
      if (!(word & 0x8080808080808080ull) && !HasZeroByte(word)) {
        i += 8;
        continue;
      }
    }
    const unsigned lead = p[i];
    if (lead == 0) return Utf8Check::kNul;
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length;
    char32_t c;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, c = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, c = lead & 0x07;
    } else {
      return Utf8Check::kBad;
    }
    if (size - i < length) return Utf8Check::kBad;
    for (std::size_t k = 1; k < length; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return Utf8Check::kBad;
      c = (c << 6) | (p[i + k] & 0x3F);
    }
    if (length == 3 && (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF))) return Utf8Check::kBad;
    if (length == 4 && (c < 0x10000 || c > 0x10FFFF)) return Utf8Check::kBad;
    i += length;
  }
  return Utf8Check::kOk;
}

// The result of a read, with the failure's message and place.
struct Outcome {
  CXMLDoc::Result result = CXMLDoc::kOk;
  std::string message;
  std::size_t offset = 0;
  bool placed = false;  // `offset` means something
};

Outcome Fail(CXMLDoc::Result result, std::string message) {
  return {result, std::move(message), 0, false};
}

Outcome FailAt(CXMLDoc::Result result, std::string message, std::ptrdiff_t offset) {
  if (offset < 0) return Fail(result, std::move(message));
  return {result, std::move(message), static_cast<std::size_t>(offset), true};
}

}  // namespace

namespace {

// ---- references the reader leaves as text

bool IsEntityNameChar(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == ':' || c == '.' || c == '-' || static_cast<unsigned char>(c) >= 0x80;
}

// Past the end of the markup that starts at `at` with `open`, or `at` when
// none starts there. A document type's internal subset ends at "]>".
std::size_t SkipMarkup(std::string_view text, std::size_t at) noexcept {
  const struct {
    std::string_view open, close;
  } kinds[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  for (const auto& kind : kinds) {
    if (text.substr(at, kind.open.size()) != kind.open) continue;
    const std::size_t end = text.find(kind.close, at + kind.open.size());
    return end == std::string_view::npos ? text.size() : end + kind.close.size();
  }
  if (text.substr(at, 9) != "<!DOCTYPE") return at;
  const std::size_t close = text.find('>', at);
  const std::size_t subset = text.find('[', at);
  const std::size_t end = subset < close ? text.find("]>", subset) : close;
  return end == std::string_view::npos ? text.size() : end + (subset < close ? 2 : 1);
}

// Every "&name;" outside markup whose name is not one of the five XML
// predefines; `counter` places them.
void FindUnresolved(std::string_view text, PlaceCounter& counter,
                    std::vector<CXMLDoc::Reference>& found) {
  constexpr std::string_view kPredefined[] = {"lt", "gt", "amp", "apos", "quot"};
  constexpr std::size_t kLongestName = 256;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '<') {
      const std::size_t past = SkipMarkup(text, at);
      if (past != at) at = past - 1;
      continue;
    }
    if (text[at] != '&') continue;
    std::size_t end = at + 1;
    while (end < text.size() && end - at <= kLongestName && IsEntityNameChar(text[end])) ++end;
    if (end == at + 1 || end >= text.size() || text[end] != ';') continue;
    const std::string_view name = text.substr(at + 1, end - at - 1);
    bool predefined = false;
    for (const std::string_view known : kPredefined) predefined = predefined || name == known;
    if (predefined) continue;
    CXMLDoc::Reference& reference = found.emplace_back();
    reference.name = std::string(name);
    counter.Place(at, reference.line, reference.column);
  }
}

}  // namespace

namespace {

// Name, attributes and text of `source` into `node`; room for its children.
// Text and CDATA pieces join into the element's data.
bool Fill(TreeBuilder& builder, Node& node, const pugi::xml_node& source) {
  if (!builder.Name(node, source.name())) return false;
  std::size_t index = 0;
  for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute(), ++index) {
    if (!builder.Attribute(node, index, a.name(), a.value())) return false;
  }
  if (!builder.AttributesDone(node)) return false;
  std::size_t elements = 0;
  std::size_t pieces = 0;
  const char* first = "";
  std::string joined;
  for (pugi::xml_node c = source.first_child(); c; c = c.next_sibling()) {
    const pugi::xml_node_type type = c.type();
    if (type == pugi::node_element) {
      ++elements;
    } else if (type == pugi::node_pcdata || type == pugi::node_cdata) {
      if (++pieces == 1) first = c.value();
      if (pieces == 2) joined = first;
      if (pieces >= 2) joined += c.value();
    }
  }
  node.children.reserve(elements);
  return pieces >= 2 ? builder.Joined(joined, node.text) : builder.Text(first, node.text);
}

// Where an element starts: pugixml gives its name's offset, one past the '<'.
std::ptrdiff_t StartOf(const pugi::xml_node& node, std::string_view text) noexcept {
  const std::ptrdiff_t at = node.offset_debug();
  if (at <= 0 || static_cast<std::size_t>(at) > text.size()) return at;
  return text[static_cast<std::size_t>(at) - 1] == '<' ? at - 1 : at;
}

Outcome Convert(const pugi::xml_document& doc, std::string_view text, CXMLObject& result,
                CXMLDoc::Positions* positions) {
  pugi::xml_node top;
  for (pugi::xml_node n = doc.first_child(); n; n = n.next_sibling()) {
    if (n.type() != pugi::node_element)
      return FailAt(CXMLDoc::kMalformed, "text outside the document element", StartOf(n, text));
    if (top) return FailAt(CXMLDoc::kMalformed, "a second document element", StartOf(n, text));
    top = n;
  }
  if (!top) return Fail(CXMLDoc::kNoElement, "no document element");

  PlaceCounter counter(text);
  TreeBuilder builder(text.size());
  // Every element goes through here: its size is checked before anything
  // is made for it, and its place noted when asked for.
  const auto make = [&](CXMLObject& slot, const pugi::xml_node& source,
                        std::size_t depth) -> Outcome {
    const std::ptrdiff_t start = StartOf(source, text);
    if (depth > CXMLDoc::kMaxDepth) {
      return FailAt(CXMLDoc::kTooLarge,
                    "elements nested deeper than " + std::to_string(CXMLDoc::kMaxDepth), start);
    }
    std::size_t attrs = 0;
    for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute()) {
      if (++attrs > CXMLDoc::kMaxAttributes) {
        return FailAt(
            CXMLDoc::kTooLarge,
            "an element with more than " + std::to_string(CXMLDoc::kMaxAttributes) + " attributes",
            start);
      }
    }
    Node* node = TreeBuilder::Place(slot, attrs);
    if (!Fill(builder, *node, source)) return FailAt(CXMLDoc::kMalformed, builder.Why(), start);
    if (positions && start >= 0) {
      CXMLDoc::Positions::Place& place = positions->places[node];
      counter.Place(static_cast<std::size_t>(start), place.line, place.column);
    }
    return {};
  };

  CXMLObject root;  // owns the tree as it grows, so any failure frees it
  if (Outcome made = make(root, top, 1); made.result != CXMLDoc::kOk) return made;
  struct Frame {
    Node* node;
    pugi::xml_node next;  // the next child of the source element to look at
  };
  std::vector<Frame> open{{Node::Of(root), top.first_child()}};
  while (!open.empty()) {
    Frame& frame = open.back();
    while (frame.next && frame.next.type() != pugi::node_element)
      frame.next = frame.next.next_sibling();
    if (!frame.next) {
      open.pop_back();
      continue;
    }
    const pugi::xml_node source = frame.next;
    frame.next = source.next_sibling();
    CXMLObject& slot = frame.node->children.emplace_back();
    if (Outcome made = make(slot, source, open.size() + 1); made.result != CXMLDoc::kOk)
      return made;
    open.push_back({Node::Of(slot), source.first_child()});
  }
  result = std::move(root);
  return {};
}

// Gives the memory of a text's whole pages back to the system as a reader
// passes them: what is left of a big document then shrinks while its tree
// grows. The pages read as zeros after.
class PageRelease : public reading::TextRelease {
 public:
  explicit PageRelease(std::string_view text) noexcept
      : m_from(text.data()), m_end(text.data() + text.size()) {}

  void Passed(const char* passed) noexcept override {
    static const auto kPage = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t from =
        (reinterpret_cast<std::uintptr_t>(m_from) + kPage - 1) & ~(kPage - 1);
    const std::uintptr_t to =
        reinterpret_cast<std::uintptr_t>(std::min(passed, m_end)) & ~(kPage - 1);
    if (to <= from) return;
    if (::madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED) == 0) {
      m_from = reinterpret_cast<const char*>(to);
      m_released = true;
    }
  }
  bool Released() const noexcept { return m_released; }

 private:
  const char* m_from;  // the first byte not released
  const char* m_end;
  bool m_released = false;
};

class FileHandle {
 public:
  explicit FileHandle(const char* path, int extraFlags = 0) noexcept
      : m_fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | extraFlags)) {}
  ~FileHandle() {
    if (m_fd >= 0) ::close(m_fd);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int fd() const noexcept { return m_fd; }

 private:
  int m_fd;
};

std::string TooLargeMessage() {
  return "a document larger than " + std::to_string(CXMLDoc::kMaxBytes >> 20) + " MB";
}

// The references a read document leaves as text, when positions are kept.
void NoteReferences(std::string_view utf8, CXMLDoc::Positions* positions) {
  if (!positions) return;
  PlaceCounter counter(utf8);
  FindUnresolved(utf8, counter, positions->references);
}

// Which readers may read: QD_XMLREADER=general or =plain names one alone,
// so that the tests can hold the plain reader's trees against the general
// one's; with "plain", what the plain reader leaves fails.
struct Readers {
  bool plain = true;
  bool general = true;
};

Readers ReadersAllowed() {
  const char* only = std::getenv("QD_XMLREADER");
  if (!only) return {};
  return {std::strcmp(only, "general") != 0, std::strcmp(only, "plain") != 0};
}

// Reads `utf8` into `root`; places elements in `positions` when given.
// `inPlace`: the parser may write into the text (no copy of it is made),
// which `utf8` then views in a buffer the caller owns and drops after. The
// places of failures are not right then (the text they count changed).
// `release` lets the plain reader give back the text it passed; should the
// general reader be needed after that, the read fails (kCannotOpen) and the
// caller reads the text again.
Outcome Read(std::string_view utf8, CXMLObject& root, CXMLDoc::Positions* positions,
             bool inPlace = false, PageRelease* release = nullptr) {
  if (utf8.size() > CXMLDoc::kMaxBytes) return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
  std::size_t bad = 0;
  switch (CheckUtf8(utf8, bad)) {
    case Utf8Check::kOk:
      break;
    case Utf8Check::kBad:
      return FailAt(CXMLDoc::kNotUtf8, "not UTF-8", static_cast<std::ptrdiff_t>(bad));
    case Utf8Check::kNul:
      return FailAt(CXMLDoc::kMalformed, "a NUL character", static_cast<std::ptrdiff_t>(bad));
  }
  const Readers readers = ReadersAllowed();
  if (readers.plain && reading::ReadPlain(utf8, root, positions, release)) {
    NoteReferences(utf8, positions);
    return {};
  }
  if (!readers.general) return Fail(CXMLDoc::kMalformed, "left to the general reader");
  if (release && release->Released()) return Fail(CXMLDoc::kCannotOpen, "released");
  // A fragment parse keeps text outside the root, so that Convert can
  // reject it.
  constexpr unsigned kOptions = pugi::parse_cdata | pugi::parse_escapes |
                                pugi::parse_wconv_attribute | pugi::parse_eol |
                                pugi::parse_fragment;
  pugi::xml_document doc;
  const pugi::xml_parse_result parsed =
      inPlace ? doc.load_buffer_inplace(const_cast<char*>(utf8.data()), utf8.size(), kOptions,
                                        pugi::encoding_utf8)
              : doc.load_buffer(utf8.data(), utf8.size(), kOptions, pugi::encoding_utf8);
  if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
  if (parsed.status != pugi::status_ok)
    return FailAt(CXMLDoc::kMalformed, parsed.description(), parsed.offset);
  Outcome converted = Convert(doc, utf8, root, positions);
  if (converted.result == CXMLDoc::kOk) NoteReferences(utf8, positions);
  return converted;
}

// A file's text in pages of its own rather than on the heap: they come in
// one call instead of a fault each, are not cleared before the file is read
// into them, and go straight back to the system when dropped.
class FileText {
 public:
  FileText() noexcept = default;
  FileText(const FileText&) = delete;
  FileText& operator=(const FileText&) = delete;
  ~FileText() { Clear(); }

  char* data() noexcept { return m_data; }
  std::size_t size() const noexcept { return m_size; }
  std::size_t capacity() const noexcept { return m_capacity; }
  std::string_view view() const noexcept { return {m_data, m_size}; }

  // Room for `capacity` bytes, those held kept; std::bad_alloc without memory.
  void Reserve(std::size_t capacity) {
    if (capacity <= m_capacity) return;
    void* pages = m_data ? ::mremap(m_data, m_capacity, capacity, MREMAP_MAYMOVE)
                         : ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    m_data = static_cast<char*>(pages);
    m_capacity = capacity;
  }
  // The first `size` bytes (at most the room) are the text.
  void Resize(std::size_t size) noexcept { m_size = std::min(size, m_capacity); }
  void Clear() noexcept {
    if (m_data) ::munmap(m_data, m_capacity);
    m_data = nullptr;
    m_size = m_capacity = 0;
  }

 private:
  char* m_data = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
};

// Only regular files: a pipe or a device could block or never end. The
// check is made on the opened descriptor (a name checked first could be
// swapped before the open), which is opened non-blocking so that opening a
// pipe with no writer returns at once.
Outcome ReadFile(const std::string& path, bool follow, FileText& content) {
  const FileHandle file(path.c_str(), follow ? 0 : O_NOFOLLOW);
  struct stat info;
  if (file.fd() < 0 || ::fstat(file.fd(), &info) != 0)
    return Fail(CXMLDoc::kCannotOpen, std::strerror(errno));
  if (!S_ISREG(info.st_mode)) return Fail(CXMLDoc::kCannotOpen, "not a regular file");
  if (static_cast<std::uint64_t>(info.st_size) > CXMLDoc::kMaxBytes)
    return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  // Read straight into the text, with a byte of room past the size told
  // so that a file that grew shows without a copy.
  std::size_t size = 0;
  content.Reserve(static_cast<std::size_t>(info.st_size) + 1);
  for (;;) {
    if (size == content.capacity()) content.Reserve(std::min(size * 2, CXMLDoc::kMaxBytes + 1));
    const ssize_t got = ::read(file.fd(), content.data() + size, content.capacity() - size);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) return Fail(CXMLDoc::kCannotOpen, std::strerror(errno));
    if (got > 0) size += static_cast<std::size_t>(got);
    if (size > CXMLDoc::kMaxBytes)  // grew while read
      return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  }
  content.Resize(size);
  return {};
}

}  // namespace

int CXMLDoc::OpenDocMemory(std::string_view utf8) {
  m_root.Free();
  m_positions.reset();
  m_failure = {};
  std::shared_ptr<Positions> positions;
  if (m_keepPositions) positions = std::make_shared<Positions>();
  const Outcome outcome = Read(utf8, m_root, positions.get());
  if (outcome.result == kOk) {
    m_positions = std::move(positions);
    return kOk;
  }
  m_failure.message = outcome.message;
  if (outcome.placed) {
    PlaceCounter counter(utf8.starts_with("\xEF\xBB\xBF") ? utf8.substr(3) : utf8);
    counter.Place(outcome.offset, m_failure.line, m_failure.column);
  }
  return outcome.result;
}

int CXMLDoc::OpenDocMemory(std::u16string_view text) {
  return OpenDocMemory(std::string_view(ToUtf8(text)));
}

int CXMLDoc::OpenDocFile(const wchar* path, int, int flags) {
  m_root.Free();
  m_positions.reset();
  m_failure = {};
  if (!path) {
    m_failure.message = "no file name";
    return kCannotOpen;
  }
  const std::string name = ToUtf8(path);
  const bool follow = (flags & kNoFollow) == 0;
  FileText content;
  const Outcome read = ReadFile(name, follow, content);
  if (read.result != kOk) {
    m_failure.message = read.message;
    return read.result;
  }
  // Without positions the text is ours: the plain reader gives back what it
  // passed, the general one parses it in place, without a copy. A failure
  // is then read again, to be placed in the text as it was.
  if (!m_keepPositions) {
    PageRelease release(content.view());
    if (Read(content.view(), m_root, nullptr, true, &release).result == kOk) return kOk;
  }
  m_root.Free();
  if (!m_keepPositions) {
    content.Clear();
    const Outcome again = ReadFile(name, follow, content);
    if (again.result != kOk) {
      m_failure.message = again.message;
      return again.result;
    }
  }
  return OpenDocMemory(content.view());
}

std::vector<CXMLDoc::Reference> CXMLDoc::GetUnresolvedReferences() const {
  return m_positions ? m_positions->references : std::vector<Reference>();
}

bool CXMLDoc::GetPosition(const CXMLObject& element, unsigned int& line,
                          unsigned int& column) const {
  if (!m_positions) return false;
  const auto found = m_positions->places.find(Node::Of(element));
  if (found == m_positions->places.end()) return false;
  line = found->second.line;
  column = found->second.column;
  return true;
}

}  // namespace qdcore
