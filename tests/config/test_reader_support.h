#pragma once
// Reading config text to its end with every message captured (g_msgs).
#include <string>
#include <vector>

#include "config/RapTextReader.h"
#include "io/BisFileIO.h"
#include "io/BisFileIO_test_util.h"

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
    io.io_SetStdioCallBack(capture_msg);
    io.io_SetErrCallBack(capture_msg);
    g_msgs.clear();
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
    out.messages = g_msgs;
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
