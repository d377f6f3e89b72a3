#pragma once
// Reading config text to its end with every message captured.
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "config/RapTextReader.h"
#include "io/BisFileIO.h"

inline std::string& reader_messages() {
  static std::string text;
  return text;
}
inline bool reader_capture(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  char buf[4096];
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  reader_messages() += buf;
  return true;
}

struct ReadResult {
  int status = 0;          // the status that ended the reading (RAP_STATUS + RAPMSG_EOF when whole)
  std::string tokens;      // the tokens joined by single blanks; strings in quotes, line ends as "$"
  std::string messages;    // what went to either callback
  std::string place;       // rt_Decorate of the final status
  bool not_binarisable = false;
};

struct ReaderFixture {
  BisFileIO io;
  RapTextReader reader{io};
  ReaderFixture() {
    io.io_SetStdioCallBack(reader_capture);
    io.io_SetErrCallBack(reader_capture);
    reader_messages().clear();
  }

  ReadResult drain(int first_status, int mode = 0, size_t max_tokens = 0) {
    ReadResult out;
    int s = first_status;
    size_t n = 0;
    while (s == 0 && (s = reader.rt_NextToken(mode)) == 0) {
      if (!out.tokens.empty()) out.tokens += ' ';
      switch (reader.rt_TokenKind()) {
        case RapTextReader::TK_STRING: out.tokens += '"' + std::string(reader.rt_Token()) + '"'; break;
        case RapTextReader::TK_EOL: out.tokens += '$'; break;
        default: out.tokens += reader.rt_Token(); break;
      }
      if (max_tokens && ++n >= max_tokens) break;
    }
    out.status = s;
    out.messages = reader_messages();
    out.place = reader.rt_Decorate(s).c_str();
    out.not_binarisable = reader.rt_NotBinarisable();
    return out;
  }

  ReadResult read(std::string const& text, int mode = 0) {
    return drain(reader.rt_OpenText(text.data(), text.size(), "test.cpp"), mode);
  }
  ReadResult read_file(std::string const& path, std::vector<std::string> const& folders = {}) {
    reader.rt_ClearIncludeFolders();
    for (auto const& f : folders) reader.rt_AddIncludeFolder(f.c_str());
    return drain(reader.rt_OpenFile(path.c_str()));
  }
};

constexpr int kReadWhole = RAP_STATUS + RAPMSG_EOF;
