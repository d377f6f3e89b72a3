// Writing sounds back: round trips, Ogg Vorbis, resampling and lip-sync text.
#include <gtest/gtest.h>
#include <vorbis/vorbisfile.h>

#include "SoundFixture.h"

using namespace soundtest;

namespace {
TEST_F(SoundTest, PlainPcmSurvivesWavToWssToWav) {
  struct Case {
    Fmt fmt;
    std::string data;
  } const cases[] = {
      {Fmt::pcm(1, 22050, 16), samples16(sine(1001, 1, 300, 22050, 30000))},
      {Fmt::pcm(2, 44100, 16), samples16(sine(500, 2, 1000, 44100, 32767))},
      {Fmt::pcm(1, 8000, 8), std::string("\x01\x80\xff", 3)},  // an odd size takes a pad byte
      {Fmt::pcm(1, 48000, 24), std::string("\x01\x02\x03\xff\xfe\xfd", 6)},
  };
  for (auto const& c : cases) {
    std::string original = wav(c.fmt, c.data);
    ASSERT_EQ(open(original), 0);
    ASSERT_EQ(tool->wss_Create(out("a.wss").c_str(), BisSound::KIND_WSS), 0);
    EXPECT_EQ(get_file(out("a.wss")), wss(c.fmt, 0, c.data));
    ASSERT_EQ(open_file(out("a.wss")), 0);
    ASSERT_EQ(tool->wss_Create(out("b.wav").c_str(), BisSound::KIND_WAV), 0);
    EXPECT_EQ(get_file(out("b.wav")), original) << c.fmt.bits << " bits";
  }
}

// Compressed files written by the tool reopen as the same sound, near the original samples; an
// odd sample count gains one sample in the nibble form.
TEST_F(SoundTest, CompressedWssReopensNearTheOriginal) {
  std::vector<int> v = sine(2999, 1, 440, 44100, 20000);
  for (int kind : {BisSound::KIND_WSS_NIBBLE, BisSound::KIND_WSS_BYTE}) {
    ASSERT_EQ(open(wss(Fmt::pcm(1, 44100, 16), 0, samples16(v))), 0);
    ASSERT_EQ(tool->wss_Create(out("c.wss").c_str(), kind), 0);
    ASSERT_EQ(open_file(out("c.wss")), 0);
    EXPECT_EQ(tool->wss_GetCompression(), static_cast<uint32_t>(kind));
    std::vector<int> back = pcm();
    ASSERT_EQ(back.size(), v.size() + (kind == 4));
    for (size_t i = 0; i < v.size(); ++i) ASSERT_NEAR(back[i], v[i], 700) << kind << " at " << i;
  }
  ASSERT_EQ(open(wss(Fmt::pcm(1, 8000, 8), 0, "ab")), 0);
  EXPECT_EQ(tool->wss_Create(out("d.wss").c_str(), BisSound::KIND_WSS_BYTE), 18);
  EXPECT_EQ(tool->wss_Create((dir / "missing" / "e.wav").c_str(), BisSound::KIND_WAV), 3);
  BisDLL other;  // nothing open
  EXPECT_EQ(other.dll_GetSonmar()->wss_Create(out("c.wav").c_str(), BisSound::KIND_WAV), 3);
}

TEST_F(SoundTest, OggWeWriteDecodesToTheInputsLength) {
  struct Case {
    int channels;
    uint32_t rate;
    size_t frames;
  } const cases[] = {{2, 44100, 1000}, {1, 22050, 5000}, {1, 8000, 1}, {2, 48000, 3 * 1024 + 7}};
  for (auto const& c : cases) {
    std::vector<int> v = sine(c.frames, c.channels, 440, c.rate, 10000);
    ASSERT_EQ(open(wav(Fmt::pcm(static_cast<uint32_t>(c.channels), c.rate, 16), samples16(v))), 0);
    ASSERT_EQ(tool->wss_Create(out("s.ogg").c_str(), BisSound::KIND_OGG), 0);
    OggVorbis_File vf;
    ASSERT_EQ(ov_fopen(out("s.ogg").c_str(), &vf), 0);
    EXPECT_EQ(ov_pcm_total(&vf, -1), static_cast<int64_t>(c.frames));
    EXPECT_EQ(ov_info(&vf, -1)->channels, c.channels);
    EXPECT_EQ(ov_info(&vf, -1)->rate, c.rate);
    vorbis_comment* vc = ov_comment(&vf, -1);
    ASSERT_EQ(vc->comments, 1);
    EXPECT_STREQ(vc->user_comments[0], "Ostrel_=s.ogg");
    ov_clear(&vf);
    // ... and reads back through the tool to the same length.
    ASSERT_EQ(open_file(out("s.ogg")), 0);
    EXPECT_EQ(pcm().size(), v.size());
  }
  tool->wss_SetOggTitle("radio.ogg");
  ASSERT_EQ(tool->wss_Create(out("t.ogg").c_str(), BisSound::KIND_OGG), 0);
  EXPECT_NE(get_file(out("t.ogg")).find("Ostrel_=radio.ogg"), std::string::npos);
}

TEST_F(SoundTest, OggThatVorbisRefusesLeavesNoFile) {
  ASSERT_EQ(open(wav(Fmt::pcm(1, 1000000, 16), samples16({1, 2, 3}))), 0);
  EXPECT_EQ(tool->wss_Create(out("x.ogg").c_str(), BisSound::KIND_OGG), 19);
  EXPECT_FALSE(fs::exists(out("x.ogg")));
}

TEST_F(SoundTest, ResampleKeepsTheToneAndTheLength) {
  for (uint32_t channels : {1u, 2u}) {
    ASSERT_EQ(open(wav(Fmt::pcm(channels, 44100, 16), samples16(sine(44100, channels, 1000, 44100, 16000)))), 0);
    ASSERT_EQ(tool->wss_Resample(out("r.wav").c_str(), 22050, BisSound::KIND_WAV), 0);
    ASSERT_EQ(open_file(out("r.wav")), 0);
    EXPECT_EQ(tool->wss_GetFormat().samples_per_sec, 22050u);
    EXPECT_EQ(tool->wss_GetFormat().bytes_per_sec, 22050u * 2 * channels);
    std::vector<int> v = pcm();
    EXPECT_NEAR(static_cast<double>(v.size()), 22050.0 * channels, 2 * channels);
    // Away from the edges the result is the same sine at the new rate.
    std::vector<int> want = sine(v.size() / channels, static_cast<int>(channels), 1000, 22050, 16000);
    int worst = 0;
    for (size_t i = 1000; i + 1000 < v.size(); ++i) worst = std::max(worst, std::abs(v[i] - want[i]));
    EXPECT_LT(worst, 40) << channels;
  }
  EXPECT_EQ(tool->wss_Resample(out("r.wav").c_str(), 0, BisSound::KIND_WAV), 3);
  EXPECT_EQ(tool->wss_Resample(out("r.wav").c_str(), 22050 * 300, BisSound::KIND_WAV), 3);
}

TEST_F(SoundTest, LipSyncFollowsTheLoudnessOfEachWindow) {
  // Windows of 320 samples at 8000 Hz: two silent, two loud, one at a quarter, one silent.
  std::vector<int> v(640, 0);
  for (int amplitude : {20000, 20000, 5000}) {
    std::vector<int> tone = sine(320, 1, 500, 8000, amplitude);
    v.insert(v.end(), tone.begin(), tone.end());
  }
  v.resize(v.size() + 320, 0);
  ASSERT_EQ(open(wav(Fmt::pcm(1, 8000, 16), samples16(v))), 0);
  ASSERT_EQ(tool->wss_CreateLip(out("a.lip").c_str(), 0.1f), 0);
  EXPECT_EQ(get_file(out("a.lip")),
            "frame = 0.040\r\n"
            "0.000, 0\r\n"
            "0.080, 7\r\n"
            "0.160, 2\r\n"
            "0.200, 0\r\n"
            "0.240, -1\r\n");
  ASSERT_EQ(open(wav(Fmt::pcm(1, 8000, 16), samples16(std::vector<int>(100, 0)))), 0);
  EXPECT_EQ(tool->wss_CreateLip(out("b.lip").c_str(), 0.1f), 16);
  ASSERT_EQ(open(wav(Fmt::pcm(2, 8000, 16), samples16({1, 2}))), 0);
  EXPECT_EQ(tool->wss_CreateLip(out("b.lip").c_str(), 0.1f), 17);
}
}  // namespace
