#pragma once
// Builders of small animations and files for the animation tests.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "anim/RTM_Key.h"

using RtmBytes = std::vector<uint8_t>;

struct RtmWriter {
  RtmBytes b;
  RtmWriter& raw(void const* p, size_t n) {
    auto const* c = static_cast<uint8_t const*>(p);
    b.insert(b.end(), c, c + n);
    return *this;
  }
  RtmWriter& u8(uint8_t v) { return raw(&v, 1); }
  RtmWriter& u32(uint32_t v) { return raw(&v, 4); }
  RtmWriter& f32(float v) { return raw(&v, 4); }
  RtmWriter& sz(std::string const& s) { return raw(s.c_str(), s.size() + 1); }
  RtmWriter& field32(std::string const& s) {
    char f[32] = {};
    std::memcpy(f, s.data(), s.size() < 32 ? s.size() : 32);
    return raw(f, 32);
  }
  RtmWriter& key(RTM_Key const& k) {
    uint8_t s[RTM_Key::kSize];
    k.rk_Store(s);
    return raw(s, sizeof s);
  }
};

// A binarised head up to the bone names: signature, version, the byte 1, a zero displacement, the
// counts and (version 4 and later) the empty list before the sounds when `sounds` is true.
inline RtmWriter bmtr_head(uint32_t version, uint32_t frames, std::vector<std::string> const& bones) {
  RtmWriter w;
  w.raw("BMTR", 4).u32(version).u8(1).f32(0).f32(0).f32(0).u32(frames).u32(0).u32(uint32_t(bones.size()));
  w.u32(uint32_t(bones.size()));
  for (auto const& n : bones) w.sz(n);
  return w;
}

// An editable animation whose every bone has the same transform in every frame.
inline RtmBytes rtm_text(std::vector<std::string> const& bones, std::vector<XYZTransform> const& per_bone,
                         uint32_t frames) {
  RtmWriter w;
  w.raw("RTM_0101", 8).f32(0).f32(0).f32(0).u32(frames).u32(uint32_t(bones.size()));
  for (auto const& n : bones) w.field32(n);
  for (uint32_t f = 0; f < frames; ++f) {
    w.f32(float(f));
    for (size_t b = 0; b < bones.size(); ++b) w.field32(bones[b]).raw(&per_bone[b], sizeof(XYZTransform));
  }
  return w.b;
}

// An editable animation with a block of events before it: time, name, value for each.
struct RtmEventSpec {
  float time;
  std::string name, value;
};
inline RtmBytes rtm_events(std::vector<RtmEventSpec> const& events, RtmBytes const& text) {
  RtmWriter w;
  w.raw("RTM_MDAT", 8).u32(0).u32(uint32_t(events.size()));
  for (auto const& e : events)
    w.f32(e.time).u8(uint8_t(e.name.size())).raw(e.name.data(), e.name.size()).u8(uint8_t(e.value.size())).raw(e.value.data(), e.value.size());
  return w.raw(text.data(), text.size()).b;
}

// Test cases may run at once in separate processes: every name carries the process id.
inline std::string rtm_tmp(std::string const& name) {
  return ::testing::TempDir() + "rtm_" + std::to_string(getpid()) + "_" + name;
}

inline std::string rtm_write(std::string const& name, std::string const& text) {
  std::string p = rtm_tmp(name);
  std::ofstream(p, std::ios::binary) << text;
  return p;
}

inline RtmBytes rtm_read(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return RtmBytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline float rtm_max_diff(XYZTransform const& a, XYZTransform const& b, bool position) {
  float const* x = &a.aside.x;
  float const* y = &b.aside.x;
  float m = 0;
  for (int i = position ? 9 : 0; i < (position ? 12 : 9); ++i) m = std::max(m, std::fabs(x[i] - y[i]));
  return m;
}
