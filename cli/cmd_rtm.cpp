// vendrak rtm info FILE [--skeleton S] [--json]
// vendrak rtm unbin IN OUT [--skeleton S] [-f]
// vendrak rtm bin IN OUT --skeleton S [--version 3|4|5] [-f]
// vendrak rtm pose FILE --frame N [--skeleton S] [--json]
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "anim/KinterNew.h"
#include "core/BisDLL.h"

namespace {
struct RtmOptions {
  std::string in, out, skeleton;
  bool force = false, json = false;
  int version = 5;
  long long frame = -1;
};

int fail(std::string const& path, int r) {
  cli_error(path, std::string(KinterNew::ErrorString(r)) + " (" + std::to_string(r) + ")");
  return r;
}

// Opens the animation; progress goes to standard output unless that carries JSON.
int open_rtm(KinterNew* k, RtmOptions const& o, bool quiet) {
  if (int r = cli_check_input(o.in)) return r;
  if (!o.skeleton.empty())
    if (int r = cli_check_input(o.skeleton)) return r;
  k->rtm_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = k->rtm_Open(o.in.c_str(), quiet ? cli_print_stderr : cli_print_stdout,
                      o.skeleton.empty() ? nullptr : o.skeleton.c_str());
  return r ? fail(o.in, r) : 0;
}

nlohmann::ordered_json transform_json(XYZTransform const& t) {
  return nlohmann::ordered_json::array({t.aside.x, t.aside.y, t.aside.z, t.up.x, t.up.y, t.up.z, t.dir.x, t.dir.y,
                                        t.dir.z, t.pos.x, t.pos.y, t.pos.z});
}

// A footstep-like marker: id 0 and no value; anything else is listed as an event with its value.
bool is_sound(RTM_Event const& e) { return e.id == 0 && e.value.empty(); }

int run_info(RtmOptions const& o) {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  if (int r = open_rtm(k, o, o.json)) return r;
  XYZTriplet const* d = k->rtm_GetVertex();
  unsigned const frames = k->rtm_GetFrameCount(), bones = k->rtm_GetBoneCount(), sounds = k->rtm_GetSoundCount();
  if (o.json) {
    nlohmann::ordered_json j;
    j["path"] = o.in;
    j["kind"] = KinterNew::rtm_KindStr(k->rtm_GetKind());
    j["version"] = k->rtm_GetKind();
    j["displacement"] = {d->x, d->y, d->z};
    j["frames"] = frames;
    if (frames) j["duration"] = {k->rtm_GetFrameTime(0), k->rtm_GetFrameTime(frames - 1)};
    if (k->rtm_HasSkeleton()) j["skeleton"] = k->rtm_GetSkeletonName();
    auto& list = j["bones"] = nlohmann::ordered_json::array();
    for (unsigned b = 0; b < bones; ++b) {
      nlohmann::ordered_json e;
      e["name"] = k->rtm_GetBoneName(b);
      if (k->rtm_HasSkeleton()) e["parent"] = k->rtm_GetBoneParentName(b);
      list.push_back(e);
    }
    auto& sl = j["sounds"] = nlohmann::ordered_json::array();
    auto& el = j["events"] = nlohmann::ordered_json::array();
    for (unsigned s = 0; s < sounds; ++s) {
      RTM_Event const* e = k->rtm_GetEvent(s);
      if (is_sound(*e)) sl.push_back({{"name", e->name}, {"time", e->time}});
      el.push_back({{"time", e->time}, {"name", e->name}, {"value", e->value}, {"id", e->id}});
    }
    cli_print_stdout("%s\n", json_text(j).c_str());
    return 0;
  }
  cli_print_stdout("%s: RTM %s, %u frames, %u bones, %u events\n", o.in.c_str(), KinterNew::rtm_KindStr(k->rtm_GetKind()),
              frames, bones, sounds);
  cli_print_stdout("displacement: %g %g %g\n", d->x, d->y, d->z);
  if (frames) cli_print_stdout("frame times: %g to %g\n", k->rtm_GetFrameTime(0), k->rtm_GetFrameTime(frames - 1));
  if (k->rtm_HasSkeleton()) cli_print_stdout("skeleton: %s\n", k->rtm_GetSkeletonName());
  for (unsigned b = 0; b < bones; ++b) {
    char const* parent = k->rtm_GetBoneParentName(b);
    if (k->rtm_HasSkeleton() && *parent)
      cli_print_stdout("  bone %u %s (parent %s)\n", b, k->rtm_GetBoneName(b), parent);
    else
      cli_print_stdout("  bone %u %s\n", b, k->rtm_GetBoneName(b));
  }
  for (unsigned s = 0; s < sounds; ++s) {
    RTM_Event const* e = k->rtm_GetEvent(s);
    if (is_sound(*e))
      cli_print_stdout("  sound %s at %g\n", e->name.c_str(), e->time);
    else
      cli_print_stdout("  event %s = %s at %g (id %d)\n", e->name.c_str(), e->value.c_str(), e->time, e->id);
  }
  return 0;
}

int run_write(RtmOptions const& o, int kind) {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  bool const to_stdout = o.out == "-";
  if (int r = open_rtm(k, o, to_stdout)) return r;
  if (to_stdout) k->rtm_GetIO()->io_SetStdioCallBack(cli_print_stderr);
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = k->rtm_Create(out.path(), kind)) return fail(o.out, r);
  return out.commit();
}

int run_pose(RtmOptions const& o) {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  if (int r = open_rtm(k, o, o.json)) return r;
  if (o.frame < 0 || o.frame >= static_cast<long long>(k->rtm_GetFrameCount())) {
    cli_error(o.in, "frame " + std::to_string(o.frame) + " is outside 0.." +
                        std::to_string(static_cast<long long>(k->rtm_GetFrameCount()) - 1) + " (" +
                        std::to_string(RTMERR_FRAME) + ")");
    return RTMERR_FRAME;
  }
  unsigned const f = static_cast<unsigned>(o.frame);
  nlohmann::ordered_json j;
  if (o.json) {
    j["path"] = o.in;
    j["frame"] = f;
    j["time"] = k->rtm_GetFrameTime(f);
    j["bones"] = nlohmann::ordered_json::array();
  } else {
    cli_print_stdout("frame %u at %g\n", f, k->rtm_GetFrameTime(f));
  }
  for (unsigned b = 0; b < k->rtm_GetBoneCount(); ++b) {
    XYZTransform const& t = *k->rtm_GetTransform(f, b);
    if (o.json) {
      j["bones"].push_back({{"name", k->rtm_GetBoneName(b)}, {"transform", transform_json(t)}});
      continue;
    }
    cli_print_stdout("%-24s %9.6f %9.6f %9.6f  %9.6f %9.6f %9.6f  %9.6f %9.6f %9.6f  %9.6f %9.6f %9.6f\n",
                k->rtm_GetBoneName(b), t.aside.x, t.aside.y, t.aside.z, t.up.x, t.up.y, t.up.z, t.dir.x, t.dir.y,
                t.dir.z, t.pos.x, t.pos.y, t.pos.z);
  }
  if (o.json) cli_print_stdout("%s\n", json_text(j).c_str());
  return 0;
}

bool looks_like_rtm(unsigned char const* head, size_t n, std::string const&) {
  return KinterNew::rtm_TypeOfBuffer(head, n) != KinterNew::KIND_FAULTY;
}

InfoRegistrar rtm_info_handler({"RTM animation", looks_like_rtm, [](std::string const& path, bool json) {
                                  RtmOptions o;
                                  o.in = path;
                                  o.json = json;
                                  return run_info(o);
                                }});

// The options every rtm command shares: the animation, the skeleton, and for writers the output
// and -f; a flag --json for the listings.
std::shared_ptr<RtmOptions> add_common(CLI::App& cmd, bool writes, bool skeleton_required) {
  auto o = std::make_shared<RtmOptions>();
  cmd.add_option(writes ? "IN" : "FILE", o->in, "The animation (.rtm)")->required();
  if (writes) {
    cmd.add_option("OUT", o->out, "The animation to write (- for standard output)")->required();
    cmd.add_flag("-f,--force", o->force, "Replace an existing output file that differs");
  } else {
    cmd.add_flag("--json", o->json, "Print it as one JSON object");
  }
  auto* skeleton = cmd.add_option("--skeleton", o->skeleton,
                                  "The skeleton: a model.cfg (its first skeleton holding every bone is used) or a "
                                  "binarised .p3d");
  if (skeleton_required) skeleton->required();
  return o;
}

CommandRegistrar info_command({"rtm info", "Describe an animation: kind, displacement, frames, bones, sounds and events",
                               [](CLI::App& cmd) -> std::function<int()> {
                                 auto o = add_common(cmd, false, false);
                                 return [o] { return run_info(*o); };
                               }});

CommandRegistrar unbin_command({"rtm unbin", "Write an animation in the editable form",
                                [](CLI::App& cmd) -> std::function<int()> {
                                  auto o = add_common(cmd, true, false);
                                  return [o] { return run_write(*o, KinterNew::KIND_TEXT); };
                                }});

CommandRegistrar bin_command({"rtm bin", "Write an animation binarised, with the parents of a skeleton",
                              [](CLI::App& cmd) -> std::function<int()> {
                                auto o = add_common(cmd, true, true);
                                cmd.add_option("--version", o->version, "Binarised version: 3, 4 (sounds and events) or 5 (sounds and events, LZO)")
                                    ->check(CLI::IsMember({3, 4, 5}));
                                return [o] { return run_write(*o, o->version); };
                              }});

CommandRegistrar pose_command({"rtm pose", "Print every bone's transform in one frame, combined with its parents'",
                               [](CLI::App& cmd) -> std::function<int()> {
                                 auto o = add_common(cmd, false, false);
                                 cmd.add_option("--frame", o->frame, "The frame, from 0")->required();
                                 return [o] { return run_pose(*o); };
                               }});
}  // namespace
