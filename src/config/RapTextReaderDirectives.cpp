// The reader's directives (#include, #define, #ifdef ...) and the search for included files.
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstring>
#include <string>

#include "config/RapTextReaderImpl.h"
#include "core/BisMessage.h"
#include "io/BisFileIO.h"
#include "text/FileStringA.h"

namespace {
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v' || c == 0; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

std::string_view first_word(std::string_view s, std::string_view* rest = nullptr) {
  s = trim(s);
  size_t n = 0;
  while (n < s.size() && rap_is_name_char(static_cast<unsigned char>(s[n]))) ++n;
  if (rest) *rest = trim(s.substr(n));
  return s.substr(0, n);
}

bool is_regular(std::string const& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Walks `rel` below `base` one component at a time, taking a component whose case differs from
// the name on disk when no exact one exists. Returns the path found, or an empty string.
std::string find_ignoring_case(std::string const& base, std::string_view rel) {
  std::string at = base;  // "" stands for the root
  while (!rel.empty()) {
    size_t slash = rel.find('/');
    std::string_view part = rel.substr(0, slash);
    rel = slash == std::string_view::npos ? std::string_view() : rel.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    std::string exact = at + "/" + std::string(part);
    struct stat st;
    if (part == ".." || ::stat(exact.c_str(), &st) == 0) {
      at = std::move(exact);
      continue;
    }
    DIR* d = ::opendir(at.c_str());
    if (!d) return {};
    std::string match;
    while (dirent* e = ::readdir(d)) {
      if (std::strlen(e->d_name) == part.size() && strncasecmp(e->d_name, part.data(), part.size()) == 0) {
        match = e->d_name;
        break;
      }
    }
    ::closedir(d);
    if (match.empty()) return {};
    at += "/" + match;
  }
  return is_regular(at) ? at : std::string();
}

// Folds "a/./b" and "a/x/../b"; false when ".." climbs above the start of the name.
bool fold_dots(std::string& path) {
  bool absolute = !path.empty() && path[0] == '/';
  std::vector<std::string_view> parts;
  std::string_view p = path;
  size_t climbed = 0;
  while (!p.empty()) {
    size_t slash = p.find('/');
    std::string_view part = p.substr(0, slash);
    p = slash == std::string_view::npos ? std::string_view() : p.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
        continue;
      }
      if (absolute) return false;
      ++climbed;
      parts.push_back(part);
      continue;
    }
    parts.push_back(part);
  }
  std::string out = absolute ? "/" : "";
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out.push_back('/');
    out.append(parts[i]);
  }
  path = std::move(out);
  return true;
}
}  // namespace

int RapTextReader::Impl::warn_text(int status_if_error, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (r._io.io_get_warnings_are_errors()) {
    r._io.io_callbackerr("%s\r\n", text.c_str());
    return status_if_error;
  }
  r._io.io_callback("warning :In File %s: circa Line %d %s\r\n", r.rt_CurrentFile(), r.rt_CurrentLine(),
                    text.c_str());
  return 0;
}

// ===== files ====================================================================

int RapTextReader::Impl::push_file(std::string const& path, std::string const& shown) {
  int files = 0;
  for (Source const& s : stack) files += s.file ? 1 : 0;
  if (files >= kMaxIncludeDepth) {
    r._io.io_callbackerr("includes nested deeper than %d (a file that includes itself?): %s\r\n", kMaxIncludeDepth,
                         shown.c_str());
    return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
  }
  uint8_t* buf = nullptr;
  long long n = r._io.io_ReadFile(path.c_str(), buf);
  if (n < 0) return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
  uint64_t size = static_cast<uint64_t>(n);
  std::unique_ptr<char[]> owned(reinterpret_cast<char*>(buf));
  if (FileStringA::fs_RemoveBom(buf, size) >= 0) {
    (void)owned.release();
    owned.reset(reinterpret_cast<char*>(buf));
  }
  Source s;
  s.buf = std::move(owned);
  s.cur = s.line_begin = s.buf.get();
  s.end = s.cur + size;
  s.file = true;
  s.name = path;
  s.logical = logical_name(path, shown);
  size_t slash = path.rfind('/');
  if (slash != std::string::npos) s.folder = path.substr(0, slash + 1);
  input_bytes += size;
  r._included.push_back(path);
  stack.push_back(std::move(s));
  return 0;
}

std::string RapTextReader::Impl::logical_name(std::string const& path, std::string const& written) const {
  // A project-drive name says where the file sits in the game's tree; so does a path below an
  // include folder. Otherwise the name as written is all there is.
  std::string n = written;
  for (char& c : n)
    if (c == '\\') c = '/';
  for (std::string const& f : include_folders)
    if (path.size() > f.size() && path.compare(0, f.size(), f) == 0 && path[f.size()] == '/') {
      n = path.substr(f.size());
      break;
    }
  size_t i = n.find_first_not_of('/');
  return i == std::string::npos ? std::string() : n.substr(i);
}

void RapTextReader::Impl::pop_include() {
  // Tokens never straddle files: whatever expansions the included file left open end with it.
  while (!stack.empty() && !stack.back().file) stack.pop_back();
  if (stack.size() > 1) stack.pop_back();
}

int RapTextReader::Impl::resolve(std::string const& name_in, std::string& found, bool quiet) {
  std::string name = name_in;
  for (char& c : name)
    if (c == '\\') c = '/';
  if (name.size() >= 2 && name[1] == ':' && rap_is_name_start(static_cast<unsigned char>(name[0])))
    return RAP_STATUS + RAPMSG_DRIVE;
  // Candidate places, in order: each is a folder known to exist ("" for the path standing alone)
  // and the name below it.
  std::vector<std::pair<std::string, std::string>> places;
  std::string rel = name;
  bool rel_ok = fold_dots(rel);
  if (name[0] == '/') {
    // A project-drive name: below each include folder, then the working folder.
    if (!rel_ok) {
      if (!quiet) r._io.io_callbackerr("no include to backtrack\r\n");
      return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
    }
    for (std::string const& f : include_folders) places.emplace_back(f, rel.substr(1));
    places.emplace_back(".", rel.substr(1));
  } else {
    Source const* from = top_file();
    std::string joined = (from ? from->folder : std::string()) + name;
    if (!fold_dots(joined)) {
      if (!quiet) r._io.io_callbackerr("no include to backtrack\r\n");
      return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
    }
    places.emplace_back("", joined);
    // Written from the game's root rather than from the including file.
    if (rel_ok && rel.compare(0, 3, "../") != 0)
      for (std::string const& f : include_folders) places.emplace_back(f, rel);
  }
  for (auto const& [base, below] : places) {
    std::string path = base.empty() ? below : base + "/" + below;
    if (is_regular(path)) {
      found = base == "." ? below : path;
      return 0;
    }
  }
  // Sources written on a case-blind file system name their includes in any case.
  for (auto const& [base, below] : places) {
    std::string path;
    if (base.empty() && !below.empty() && below[0] == '/')
      path = find_ignoring_case("", std::string_view(below).substr(1));
    else
      path = find_ignoring_case(base.empty() ? std::string(".") : base, below);
    if (path.empty()) continue;
    if (path.compare(0, 2, "./") == 0) path.erase(0, 2);
    if (quiet) {
      found = path;
      return 0;
    }
    if (int w = warn_text(RAP_STATUS + RAPMSG_CANNOT_INCLUDE, "#include \"%s\" found as \"%s\" (the case differs)",
                          name_in.c_str(), path.c_str()))
      return w;
    found = path;
    return 0;
  }
  return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
}

int RapTextReader::Impl::include(std::string_view text) {
  text = trim(text);
  if (text.empty()) return RAP_STATUS + RAPMSG_UNEXPECTED_EOL;
  char close = text[0] == '"' ? '"' : text[0] == '<' ? '>' : 0;
  if (!close) return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
  size_t end = text.find(close, 1);
  if (end == std::string_view::npos) return RAP_STATUS + RAPMSG_MISMATCHED_QUOTES;
  std::string_view quoted = text.substr(1, end - 1);
  if (!trim(text.substr(end + 1)).empty()) return RAP_STATUS + RAPMSG_EXTRANEOUS;
  std::string_view name = trim(quoted);
  if (name.size() != quoted.size())
    if (int w = r.rt_Warning(RAPMSG_FILENAME_SPACES)) return w;
  if (name.empty()) return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
  std::string found;
  std::string n(name);
  if (int e = resolve(n, found)) {
    if (e == RAP_STATUS + RAPMSG_CANNOT_INCLUDE) {
      r._io.io_callbackerr("cannot find include \"%s\"\r\n", n.c_str());
      r._missing.push_back(n);
    }
    return e;
  }
  return push_file(found, n);
}

// ===== directives ===================================================================

int RapTextReader::Impl::read_directive_line(Source& s, std::string& out) {
  // The rest of the line, continuation slashes joining lines (the next line's indentation kept,
  // as the game keeps it), comments left out, quoted text kept whole (a URL's // is not a
  // comment). The line end itself stays for the lexer.
  out.clear();
  auto line_end = [&](char const* p) { return *p == '\n' || (*p == '\r' && p + 1 < s.end && p[1] == '\n'); };
  while (s.cur < s.end) {
    char c = *s.cur;
    if (line_end(s.cur)) break;  // CR LF and all stay: the line's end is the text's
    if (c == '\\') {
      char const* p = s.cur + 1;
      while (p < s.end && (*p == ' ' || *p == '\t' || *p == '\r')) ++p;
      if (p >= s.end) return RAP_STATUS + RAPMSG_CONTINUATION_AT_EOF;
      if (*p == '\n') {
        s.cur = p + 1;
        ++s.line;
        s.line_begin = s.cur;
        continue;
      }
    }
    if (c == '"') {
      char const* q = s.cur + 1;
      while (q < s.end && *q != '"' && *q != '\n') ++q;
      if (q < s.end && *q == '"') ++q;
      out.append(s.cur, static_cast<size_t>(q - s.cur));
      s.cur = q;
      continue;
    }
    if (c == '/' && s.cur + 1 < s.end && s.cur[1] == '/') {
      while (s.cur < s.end && !line_end(s.cur)) ++s.cur;
      break;
    }
    if (c == '/' && s.cur + 1 < s.end && s.cur[1] == '*') {
      s.cur += 2;
      if (int e = skip_block_comment(s)) return e;
      out.push_back(' ');
      continue;
    }
    out.push_back(c == '\r' || c == 0 ? ' ' : c);
    ++s.cur;
  }
  return 0;
}

int RapTextReader::Impl::directive(Source& s) {
  while (s.cur < s.end && (*s.cur == ' ' || *s.cur == '\t')) ++s.cur;
  char const* b = s.cur;
  while (s.cur < s.end && rap_is_name_char(static_cast<unsigned char>(*s.cur))) ++s.cur;
  std::string name(b, static_cast<size_t>(s.cur - b));
  std::string line;
  if (int e = read_directive_line(s, line)) return e;
  auto is = [&](char const* n) { return strcasecmp(name.c_str(), n) == 0; };
  std::string_view rest;
  if (is("ifdef") || is("ifndef")) {
    std::string_view label = first_word(line, &rest);
    if (label.empty()) return RAP_STATUS + RAPMSG_UNEXPECTED_EOL;
    ++if_depth;
    if (skip_depth) {
      ++skip_depth;
    } else {
      bool defined = r._defs->def_Find(label) != nullptr || is_builtin(label);
      if (defined != is("ifdef")) skip_depth = 1;
    }
    return 0;
  }
  if (is("if")) {
    // Inside a left-out block the condition is not even read: it may use what is not there.
    ++if_depth;
    if (skip_depth) {
      ++skip_depth;
      return 0;
    }
    bool truth = false;
    if (int e = condition(line, truth)) return e;
    if (!truth) skip_depth = 1;
    return 0;
  }
  if (is("elif")) {
    // Not a directive of the game's preprocessor: refused even in a left-out block, where
    // dropping it would silently change which branch is read.
    r._io.io_callbackerr("#elif is not known to the game: write #else with an #if inside it\r\n");
    return RAP_STATUS + RAPMSG_UNKNOWN_DIRECTIVE;
  }
  if (is("else")) {
    if (!if_depth) return RAP_STATUS + RAPMSG_ENDIF_WITHOUT_IF;
    if (!skip_depth) {
      skip_depth = 1;
    } else if (skip_depth == 1) {
      skip_depth = 0;
      if (r._echo) r._io.io_callback("#else\r\n");
    }
    return 0;
  }
  if (is("endif")) {
    if (!if_depth) return RAP_STATUS + RAPMSG_ENDIF_WITHOUT_IF;
    --if_depth;
    if (skip_depth && --skip_depth == 0 && r._echo) r._io.io_callback("#endif\r\n");
    return 0;
  }
  if (skip_depth) return 0;  // any other directive in a left-out block goes with its line
  if (is("define")) return r.rt_Define(line.c_str());
  if (is("undef")) {
    std::string_view label = first_word(line, &rest);
    if (label.empty()) return RAP_STATUS + RAPMSG_UNEXPECTED_EOL;
    if (!r._defs->def_Undefine(label)) return RAP_STATUS + RAPMSG_UNKNOWN_UNDEF;
    return rest.empty() ? 0 : RAP_STATUS + RAPMSG_EXTRANEOUS;
  }
  if (is("include")) return include(line);
  if (is("uninclude")) {
    int files = 0;
    for (Source const& x : stack) files += x.file ? 1 : 0;
    if (files < 2) return RAP_STATUS + RAPMSG_NO_UNINCLUDE;
    pop_include();
    return 0;
  }
  if (is("pragma")) {
    // Lines addressed to other build tools: nothing for a config.
    return warn_text(RAP_STATUS + RAPMSG_UNKNOWN_DIRECTIVE, "#pragma%s ignored", line.c_str());
  }
  return RAP_STATUS + RAPMSG_UNKNOWN_DIRECTIVE;
}
