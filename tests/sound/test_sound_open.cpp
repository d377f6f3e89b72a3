// Opening sounds: the real files, the report, and hostile headers.
#include <gtest/gtest.h>
#include <vorbis/vorbisfile.h>

#include <regex>

#include "SoundFixture.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

using namespace soundtest;
using namespace std::string_literals;

namespace {
// Every sound of the corpus opens, with the channels and rate its manifest line gives ("1 ch; 22050
// Hz" for Ogg files, "ch 1 rate 48000" for WSS0 files).
TEST_F(SoundTest, EveryCorpusSoundOpensWithItsRealFormat) {
  SKIP_WITHOUT_CORPUS();
  std::ifstream manifest(corpus() / "MANIFEST.tsv");
  std::regex const ogg(R"((\d) ch; (\d+) Hz)"), wss(R"(ch (\d) rate (\d+))");
  int files = 0;
  for (std::string line; std::getline(manifest, line);) {
    std::string name = line.substr(0, line.find('\t'));
    if (name.rfind("ogg/", 0) != 0 && name.rfind("wss/", 0) != 0) continue;
    ++files;
    ASSERT_EQ(open_file(corpus() / name), 0) << name << "\n" << g_errs;
    EXPECT_GT(tool->wss_GetPlayTime(), 0.01) << name;
    std::smatch m;
    if (!std::regex_search(line, m, ogg) && !std::regex_search(line, m, wss)) continue;  // the RIFF one
    EXPECT_EQ(tool->wss_GetFormat().channels, std::stoi(m[1])) << name;
    EXPECT_EQ(tool->wss_GetFormat().samples_per_sec, std::stoul(m[2])) << name;
  }
  EXPECT_EQ(files, 17);
  ASSERT_EQ(open_file(corpus() / "wss/cwrce_synthetic_click_riff.wss"), 0);
  EXPECT_EQ(tool->wss_GetSoundType(), BisSound::SOUND_WAV);
  // The byte-compressed file ends near silence, as a wrong data start or step table would not.
  ASSERT_EQ(open_file(corpus() / "wss/epochfork_dog_qq_1_comp8.wss"), 0);
  EXPECT_LT(std::abs(pcm().back()), 2000);
}

TEST_F(SoundTest, SoundsInsideCorpusArchivesOpen) {
  SKIP_WITHOUT_CORPUS();
  int sounds = 0;
  for (auto const& e : fs::directory_iterator(corpus() / "pbo")) {
    BisDLL archives;
    Vendrak* pbo = archives.dll_GetVendrak();
    if (pbo->pbo_Open(e.path().c_str(), nullptr, Vendrak::OPEN_NO_REPORT) != 0) continue;
    for (pbo_entry* en = pbo->pbo_GetFirstEntry(); en; en = en->GetNext()) {
      std::string name = en->pbe_GetName().c_str();
      std::string ext = name.size() > 4 ? name.substr(name.size() - 4) : "";
      for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      if (ext != ".ogg" && ext != ".wss" && ext != ".wav") continue;
      int size = 0;
      uint8_t const* data = pbo->pbo_ReadEntryData(en, &size, 0);
      ASSERT_TRUE(data) << name;
      EXPECT_EQ(tool->wss_Open(data, static_cast<uint64_t>(size), capture_msg, 0, name.c_str()), 0)
          << e.path() << " ! " << name << "\n" << g_errs;
      EXPECT_GT(tool->wss_GetPlayTime(), 0) << name;
      pbo->pbo_FreeData(en);
      ++sounds;
    }
  }
  EXPECT_GE(sounds, 20);
}

TEST_F(SoundTest, OggDecodesExactlyAsTheVorbisLibraryDoes) {
  SKIP_WITHOUT_CORPUS();
  for (char const* f : {"ogg/jim_ATM_airdrop_vent.ogg", "ogg/rebal_cough_3.ogg"}) {
    fs::path p = corpus() / f;
    OggVorbis_File vf;
    ASSERT_EQ(ov_fopen(p.c_str(), &vf), 0);
    std::string want;
    char buf[4096];
    int link;
    for (long n; (n = ov_read(&vf, buf, sizeof buf, 0, 2, 1, &link)) != 0;)
      if (n > 0) want.append(buf, static_cast<size_t>(n));
    EXPECT_EQ(static_cast<int64_t>(want.size()), ov_pcm_total(&vf, -1) * ov_info(&vf, -1)->channels * 2);
    ov_clear(&vf);
    ASSERT_EQ(open_file(p), 0);
    EXPECT_TRUE(want == std::string(reinterpret_cast<char const*>(tool->wss_GetData()), tool->wss_GetDataSize()))
        << f;
  }
}

TEST_F(SoundTest, ReportOfAPlainWss) {
  std::string data = samples16(std::vector<int>(22050, 5));
  ASSERT_EQ(open(wss(Fmt::pcm(2, 22050, 16), 0, data)), 0);
  EXPECT_EQ(g_msgs,
            "WSS Stereo UnCompressed\r\n"
            "SamplesPerSec 22050\r\n"
            "BytesperSec   88200\r\n"
            "BlockAlign    4\r\n"
            "BitsPerSample 16\r\n"
            "Playtime:     0.50 Seconds\r\n"
            "Audio data:   44100 bytes\r\n"
            "Filesize:     44126 bytes\r\n");
  g_msgs.clear();
  ASSERT_EQ(open(wss(Fmt::pcm(1, 11025, 16), 4, std::string(11025, '\x77'))), 0);
  EXPECT_NE(g_msgs.find("WSS Mono Nibble Compressed\r\n"), std::string::npos);
  EXPECT_NE(g_msgs.find("Playtime:     2.00 Seconds\r\nAudio data:   11025 bytes (compressed)\r\n"),
            std::string::npos);
  EXPECT_EQ(tool->wss_GetDataSize(), 44100u);
}

TEST_F(SoundTest, HostileHeadersEndWithTheirCodes) {
  auto fmt = [](auto change) {
    Fmt f = Fmt::pcm(1, 22050, 16);
    change(f);
    return f;
  };
  std::string two = samples16({1, 2});
  std::string riff_head = "RIFF\x24\0\0\0WAVEfmt "s;
  struct Case {
    char const* what;
    std::string bytes;
    int code;
  } const cases[] = {
      {"zero channels", wss(fmt([](Fmt& f) { f.channels = 0; }), 0, two), 12},
      {"three channels", wss(Fmt::pcm(3, 22050, 16), 0, samples16({1, 2, 3})), 12},
      {"format tag 2", wss(fmt([](Fmt& f) { f.tag = 2; }), 0, two), 11},
      {"compression 5", wss(Fmt::pcm(1, 22050, 16), 5, two), 10},
      {"compression 9", wss(Fmt::pcm(1, 22050, 16), 9, two), 10},
      {"block align 0", wss(fmt([](Fmt& f) { f.align = 0; }), 0, two), 13},
      {"block align not the frame", wss(fmt([](Fmt& f) { f.align = 4; }), 0, two), 13},
      {"bytes per second not align x rate", wss(fmt([](Fmt& f) { f.bytes_per_sec = 44101; }), 0, two), 13},
      {"rate 0", wss(fmt([](Fmt& f) { f.rate = 0, f.bytes_per_sec = 0; }), 0, two), 11},
      {"rate 4 billion", wss(fmt([](Fmt& f) { f.rate = 4000000000u, f.align = 1, f.bits = 8, f.bytes_per_sec = 4000000000u; }), 0, two), 11},
      {"12 bits", wss(fmt([](Fmt& f) { f.bits = 12; }), 0, two), 11},
      {"compressed 8 bit", wss(Fmt::pcm(1, 22050, 8), 8, two), 18},
      {"odd data bytes", wss(Fmt::pcm(1, 22050, 16), 0, "abc"), 15},
      {"data not whole frames", wss(Fmt::pcm(2, 22050, 16), 0, "abcdef"), 14},
      {"byte-compressed stereo half a frame", wss(Fmt::pcm(2, 22050, 16), 8, "abc"), 14},
      {"wss head cut short", std::string("WSS0\0\0\0\0\1\0", 10), 1},
      {"unknown signature", "ABCDEFGHIJKLMNOPQRSTUVWXYZ", 11},
      {"empty", "", 11},
      {"not a vorbis stream", "OggS" + std::string(100, '\0'), 19},
      {"riff but not wave", "RIFF\4\0\0\0WAVX"s, 11},
      {"data chunk beyond the file", riff_head + "\x10\0\0\0"s + Fmt().bytes() + "data\x10\0\0\0ab"s, 1},
      {"fmt chunk of 20 bytes", riff_head + "\x14\0\0\0"s + Fmt().bytes() + "\0\0\0\0data\2\0\0\0ab"s, 11},
      {"fmt chunk of 14 bytes", riff_head + "\x0e\0\0\0"s + Fmt().bytes().substr(0, 14) + "data\2\0\0\0ab"s, 1},
      {"no data chunk", riff_head + "\x10\0\0\0"s + Fmt().bytes(), 11},
      {"fmt chunk size beyond the file", riff_head + "\xff\xff\xff\x0f"s, 11},
  };
  for (auto const& c : cases) {
    ASSERT_EQ(open(wss(Fmt::pcm(1, 8000, 16), 0, two)), 0);
    EXPECT_EQ(open(c.bytes), c.code) << c.what;
    // What failed half way is gone: nothing is written as if it were a whole sound.
    EXPECT_EQ(tool->wss_Create(out("h.wav").c_str(), BisSound::KIND_WAV), 3) << c.what;
  }
  EXPECT_EQ(BisSound::ErrorString(-12), std::string("Sonmar: UNKNOWN_CHANNELS"));
  EXPECT_EQ(BisSound::ErrorString(3), std::string("invalid file"));
}

TEST_F(SoundTest, WaveChunkWalk) {
  std::string data = samples16({100, -100, 7});
  std::string fmt18 = Fmt::pcm(1, 8000, 16).bytes() + "\x05\0"s;
  std::string w = "RIFF\0\0\0\0WAVE"s + "LIST\3\0\0\0abc\0"s + "fmt \x12\0\0\0"s + fmt18 + "data\6\0\0\0"s + data;
  ASSERT_EQ(open(w), 0);
  EXPECT_EQ(pcm(), (std::vector<int>{100, -100, 7}));
  EXPECT_EQ(tool->wss_GetFormat().extra_size, 5);
  EXPECT_EQ(tool->wss_GetSoundType(), BisSound::SOUND_WAV);
  EXPECT_NE(g_msgs.find("riff format overall size doesn't match actual data size\r\n"), std::string::npos);
}
}  // namespace
