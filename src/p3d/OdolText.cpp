// The readable text a binarised model yields: its model.cfg (skeleton, sections, animations) and
// the materials baked into its LODs as rvmat text.
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "p3d/Morvane.h"
#include "p3d/OdolModel.h"
#include "p3d/P3dCursor.h"

namespace {
constexpr double kDegrees = 180.0 / 3.14159265358979323846;

std::string num(float v) {
  GenString s;
  try {
    s.str_FloatToStr(v, false);
  } catch (char const*) {
    s.Format("%g", static_cast<double>(v));
  }
  return s.c_str();
}

// "%s;//rad %s": the value, then the same in degrees as a comment.
std::string with_degrees(float v) { return num(v) + ";//rad " + num(static_cast<float>(v * kDegrees)); }

float f32_at(uint8_t const* p, uint32_t i) { return p3d_lef(p + 4 * i); }
uint32_t u32_at(uint8_t const* p, uint32_t i) { return p3d_le32(p + 4 * i); }

char const* const kAnimTypes[] = {"rotation", "rotationX", "rotationY", "rotationZ", "translation",
                                  "translationX", "translationY", "translationZ", "direct", "hide"};

// A rotation or translation whose axis lies alike in every LOD was placed from the memory LOD;
// one whose axis moves from LOD to LOD was placed from each LOD's own points.
bool axis_from_memory(OdolAnimation const& a) {
  uint8_t const* first = nullptr;
  for (uint8_t const* axis : a.axes) {
    if (!axis) continue;
    if (!first)
      first = axis;
    else if (std::memcmp(first, axis, 24) != 0)
      return false;
  }
  return true;
}
}  // namespace

void odol_animation_text(GenString& t, OdolAnimation const& a, uint32_t version,
                         std::vector<std::pair<std::string_view, std::string_view>> const& bones) {
  t.str_Add("\t\t\tclass %.*s\r\n\t\t\t{\r\n", static_cast<int>(a.name.size()), a.name.data());
  if (a.type <= 9)
    t.str_Add("\t\t\t\ttype=\"%s\";\r\n", kAnimTypes[a.type]);
  else
    t.str_Add("\t\t\t\ttype=%d;\r\n//unknown", static_cast<int>(a.type));
  t.str_Add("\t\t\t\tsource=\"%.*s\";\r\n", static_cast<int>(a.source.size()), a.source.data());
  if (a.bone < bones.size()) {
    std::string_view sel = bones[a.bone].first;
    t.str_Add("\t\t\t\tselection=\"%.*s\";\r\n", static_cast<int>(sel.size()), sel.data());
    if (a.type < 8) t.str_Add("\t\t\t\taxis=\"%.*s_axis\";//*probably*\r\n", static_cast<int>(sel.size()), sel.data());
  }
  // The block: min and max value, min and max phase, then (in the 36-byte block) the period and
  // initial phase, the source address, then what the type needs.
  bool timed = a.block_size == 36;
  uint32_t at = timed ? 6 : 4;
  uint32_t address = u32_at(a.block, at);
  switch (address) {
    case 0: t.str_cat("//\t\t\t\tsourceAddress = clamp;// (default)\r\n"); break;
    case 1: t.str_cat("\t\t\t\tsourceAddress = loop;\r\n"); break;
    case 2: t.str_cat("\t\t\t\tsourceAddress = mirror;\r\n"); break;
    default: t.str_Add("\t\t\t\tsourceAddress = %d;//unknown\r\n", static_cast<int>(address)); break;
  }
  t.str_Add("\t\t\t\tminValue = %s\r\n", with_degrees(f32_at(a.block, 0)).c_str());
  t.str_Add("\t\t\t\tmaxValue = %s\r\n", with_degrees(f32_at(a.block, 1)).c_str());
  t.str_Add("//\t\t\t\tminPhase = %s\r\n", num(f32_at(a.block, 2)).c_str());
  t.str_Add("//\t\t\t\tmaxPhase = %s\r\n", num(f32_at(a.block, 3)).c_str());
  uint8_t const* extra = a.block + 4 * (at + 1);
  uint32_t room = (a.block_size - 4 * (at + 1)) / 4;
  if (a.type < 4 && room >= 2) {
    t.str_Add("\t\t\t\tangle0 = %s\r\n", with_degrees(f32_at(extra, 0)).c_str());
    t.str_Add("\t\t\t\tangle1 = %s\r\n", with_degrees(f32_at(extra, 1)).c_str());
  } else if (a.type < 8 && room >= 2) {
    t.str_Add("\t\t\t\toffset0 = %s;\r\n", num(f32_at(extra, 0)).c_str());
    t.str_Add("\t\t\t\toffset1 = %s;\r\n", num(f32_at(extra, 1)).c_str());
  } else if (a.type == 9 && room >= 1) {
    t.str_Add("\t\t\t\thideValue = %s;\r\n", num(f32_at(extra, 0)).c_str());
    float unhide = room >= 2 ? f32_at(extra, 1) : -1.0f;
    if (unhide == -1.0f)
      t.str_Add("//\t\t\t\tunHideValue = %s;//(default)\r\n", num(unhide).c_str());
    else
      t.str_Add("\t\t\t\tunHideValue = %s;\r\n", num(unhide).c_str());
  } else if (a.type == 8 && room >= 8) {
    XYZTriplet pos{f32_at(extra, 0), f32_at(extra, 1), f32_at(extra, 2)};
    XYZTriplet dir{f32_at(extra, 3), f32_at(extra, 4), f32_at(extra, 5)};
    GenString p, d;
    p.str_FloatToStr(pos);
    d.str_FloatToStr(dir);
    t.str_Add("/*'Office use only\t\t\tAxisPos[] = {%s};\r\n", p.c_str());
    t.str_Add("%s\t\t\t\tAxisDir[] = {%s};\r\n", "", d.c_str());
    t.str_Add("%s\t\t\t\tangle = %s;\r\n", "", num(f32_at(extra, 6)).c_str());
    t.str_Add("%s\t\t\t\taxisOffset = %s;*/\r\n", "", num(f32_at(extra, 7)).c_str());
  }
  // The period and initial phase still drove animations before the Arma 3 models (version 68);
  // later models keep the two words but the engine ignores them, so they show only when set.
  if (timed) {
    float period = f32_at(a.block, 4), phase = f32_at(a.block, 5);
    if (version < 68 || period != 0.0f || phase != 0.0f) {
      t.str_Add("\t\t\t\tanimPeriod = %s;\r\n", num(period).c_str());
      t.str_Add("\t\t\t\tinitPhase = %s;\r\n", num(phase).c_str());
    }
  }
  if (a.source == "user") t.str_Add("\t\t\t\tanimPeriod = %d;//Unknown\r\n", 0);
  if (a.type != 9) {
    if (a.type < 8 && !axis_from_memory(a))
      t.str_cat("\t\t\t\tmemory = 0;//(default assumed)\r\n");
    else
      t.str_cat("//\t\t\t\tmemory = true;//(default assumed)\r\n");
  }
  t.str_cat("\t\t\t};\r\n");
}

char const* Morvane::p3d_ExtractSkeleton() {
  OdolModel const* m = _odol.get();
  if (!m) return nullptr;
  std::string model = _io.io_GetOpenedFileName() ? _io.io_GetOpenedFileName() : "model";
  size_t slash = model.find_last_of("/\\");
  if (slash != std::string::npos) model = model.substr(slash + 1);
  if (size_t dot = model.rfind('.'); dot != std::string::npos) model = model.substr(0, dot);
  _io.io_callback("ExtractSkeleton for %s\r\n", model.c_str());

  GenString& t = _text;
  t.Clear();
  if (!m->skeleton().empty()) {
    std::string_view sk = m->skeleton();
    t.str_Add("class cfgSkeletons\r\n{\r\n\tclass %.*s\r\n\t{\r\n", static_cast<int>(sk.size()), sk.data());
    t.str_Add("\t\tskeletonInherit = \"\";\r\n\t\tisDiscrete = %d;\r\n", m->skeleton_discrete() ? 1 : 0);
    t.str_cat("\t\tSkeletonBones[]=\r\n\t\t{\r\n");
    bool first = true;
    for (auto const& [bone, parent] : m->bones()) {
      if (!first) t.str_cat(",\r\n");
      first = false;
      t.str_Add("\t\t\t\"%.*s\"\t,\"%.*s\"", static_cast<int>(bone.size()), bone.data(), static_cast<int>(parent.size()),
                parent.data());
    }
    t.str_cat("\r\n\t\t};\r\n\t};\r\n};\r\n");
  }
  t.str_Add(
      "class CfgModels\r\n{\r\n\tclass Default\r\n\t{\r\n\t\tsections[] = {};\r\n\t\tsectionsInherit=\"\";\r\n"
      "\t\tskeletonName = \"\";\r\n\t};\r\n\tclass %s:Default\r\n\t{\r\n",
      model.c_str());
  if (!m->skeleton().empty())
    t.str_Add("\t\tskeletonName=\"%.*s\";\r\n", static_cast<int>(m->skeleton().size()), m->skeleton().data());

  // Sections are the selections the engine keeps as separate parts; each name once.
  std::vector<std::string_view> sections;
  std::set<std::string> axes;
  for (uint32_t i = 0; i < m->lod_count(); ++i)
    for (OdolSelection const& s : m->lod(i)->selections) {
      if (s.sectional && std::find(sections.begin(), sections.end(), s.name) == sections.end())
        sections.push_back(s.name);
      // Components, proxies and starred helpers are never axes (binarised names are lower case).
      std::string name(s.name);
      if (strncasecmp(name.c_str(), "Component", 9) != 0 && strncasecmp(name.c_str(), "proxy:", 6) != 0 &&
          name.rfind('*', 0) != 0)
        axes.insert(name);
    }
  t.str_cat("\t\tsections[]=\r\n\t\t{\r\n");
  for (size_t i = 0; i < sections.size(); ++i)
    t.str_Add("\t\t\t\"%.*s\"%s", static_cast<int>(sections[i].size()), sections[i].data(),
              i + 1 < sections.size() ? ",\r\n" : "\r\n");
  t.str_cat("\t\t};\r\n/*<potential axis>\r\n");
  for (std::string const& a : axes) t.str_Add("%s\r\n", a.c_str());
  t.str_cat("</potential axis>*/\r\n\t\tclass Animations\r\n\t\t{\r\n");
  for (OdolAnimation const& a : m->animations()) odol_animation_text(t, a, m->version(), m->bones());
  t.str_cat("\t\t};//Animations\r\n\t};//modelclass\r\n};//CfgModels\r\n");
  return t.c_str();
}

namespace {
struct NamedId {
  uint32_t id;
  char const* name;
};
// Pixel shaders by id: the name, and how many texture stages the shader samples (stage 0, the
// face's own texture, included), where that is settled; 0 leaves the material unchecked.
struct PixelShader {
  char const* name;
  uint32_t stages;
};
constexpr PixelShader kPixelShaders[159] = {
    {"Normal", 1}, {"NormalDXTA", 1}, {"NormalMap", 2}, {"NormalMapThrough", 2}, {"NormalMapSpecularDIMap", 3},
    {"NormalMapDiffuse", 3}, {"Detail", 2}, {"", 0}, {"Water", 0}, {"WaterSimple", 0}, {"White", 1}, {"", 0},
    {"AlphaShadow", 1}, {"AlphaNoShadow", 1}, {"", 0}, {"DetailMacroAS", 4}, {"NormalMapMacroAS", 4},
    {"NormalMapDiffuseMacroAS", 5}, {"NormalMapSpecularMap", 3}, {"NormalMapDetailSpecularMap", 4},
    {"NormalMapMacroASSpecularMap", 5}, {"NormalMapDetailMacroASSpecularMap", 6}, {"NormalMapSpecularDIMap", 3},
    {"NormalMapDetailSpecularDIMap", 4}, {"NormalMapMacroASSpecularDIMap", 5},
    {"NormalMapDetailMacroASSpecularDIMap", 6}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"Glass", 0},
    {"", 0}, {"NormalMapSpecularThrough", 3}, {"Grass", 0}, {"NormalMapThroughSimple", 2}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"Sprite", 0}, {"", 0},
    {"", 0}, {"", 0}, {"Super", 8}, {"Multi", 0}, {"", 0}, {"", 0}, {"", 0}, {"Tree", 0}, {"", 0}, {"", 0},
    {"Skin", 0}, {"CalmWater", 0}, {"", 0}, {"", 0}, {"TreeAdv", 0}, {"", 0}, {"TreeAdvTrunk", 0}, {"", 0}, {"", 0},
    {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"unknown toh type", 0}, {"", 0},
    {"", 0}, {"", 0}, {"SuperExt", 0}, {"SuperHair", 0}, {"", 0}, {"", 0}, {"Refract", 0}, {"SpriteRefract", 0},
    {"", 0}, {"SuperAToC", 8}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"TreeAdvTrans", 0}, {"", 0}, {"Collimator", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0},
    {"", 0}};
constexpr NamedId kVertexShaders[] = {
    {0, "Basic"}, {1, "NormalMap"}, {2, "NormalMapDiffuse"}, {3, "Grass"}, {7, "Water"}, {8, "WaterSimple"},
    {9, "Sprite"}, {11, "NormalMapThrough"}, {14, "BasicAS"}, {15, "NormalMapAS"}, {17, "Glass"},
    {18, "NormalMapSpecularThrough"}, {19, "NormalMapThroughNoFade"}, {20, "NormalMapSpecularThroughNoFade"},
    {23, "Super"}, {24, "Multi"}, {25, "Tree"}, {26, "TreeNoFade"}, {29, "Skin"}, {30, "CalmWater"}, {31, "TreeAdv"},
    {32, "TreeAdvTrunk"}, {38, "SpriteOnSurface"}, {39, "TreeAdvModNormals"}, {42, "BasicFade"},
    {44, "TreeAdvNoFade"}};
constexpr NamedId kRenderFlags[] = {{0x1, "AlwaysInShadow"}, {0x2, "NoZWrite"},        {0x10, "NoColorWrite"},
                                    {0x20, "NoAlphaWrite"},  {0x40, "AddBlend"},       {0x80, "AlphaTest"},
                                    {0x100, "AlphaTest64"},  {0x200, "AlphaTest128"},  {0x400, "Road"},
                                    {0x800, "NoTIWrite"},    {0x1000, "NoReceiveShadow"}, {0x2000, "NoLodBlend"}};

template <size_t N>
char const* find_name(NamedId const (&table)[N], uint32_t id) {
  for (NamedId const& n : table)
    if (n.id == id) return n.name;
  return nullptr;
}

void shader_line(GenString& t, char const* label, char const* name, uint32_t id, bool mark_default) {
  if (name)
    t.str_Add("%s=%s;//%d%s\r\n", label, name, static_cast<int>(id), mark_default && id == 0 ? " (default)" : "");
  else
    t.str_Add("%s=%d;//unknown\r\n", label, static_cast<int>(id));
}

struct Stage {
  uint32_t filter = 3;
  std::string_view texture;
  uint32_t transform = 0;
  bool world_env = false;
};

}  // namespace

// One embedded material as rvmat text.
void odol_material_text(GenString& t, std::string_view name, uint8_t const* data, uint8_t const* end, BisFileIO& io) {
  P3dCursor c(data, end);
  uint32_t mv = c.u32();
  t.str_cat("/////////////////////////\r\n/////SEPARATE FILE///////\r\n");
  t.str_Add("//class %.*s//%s\r\n//{\r\n", static_cast<int>(name.size()), name.data(), "rvmat");
  t.str_Add("//Type: %u (%s)\r\n", mv, mv == 10 ? "Arma2/VBS2" : mv == 11 ? "Arma3/VBS2" : "Arma1");
  float colour[6][4];
  for (auto& rgba : colour)
    for (float& v : rgba) v = c.f32();
  float power = c.f32();
  uint32_t pixel = c.u32(), vertex = c.u32(), light = c.u32(), fog = c.u32();
  int arma1 = mv == 3 ? c.u8() : 1;
  std::string_view surface = mv >= 6 ? c.asciiz() : std::string_view();
  uint32_t flags = 0, flag_words = 1;
  if (mv >= 4) {
    flag_words = c.u32();
    flags = c.u32();
  }
  // What the engine's material loader accepts: nine main-light kinds, five fog modes, one word
  // of render flags, and OFP-era materials with their flag byte set.
  int n = static_cast<int>(name.size());
  if (flag_words != 1) io.io_callbackerr("unknown material data %d\r\n", static_cast<int>(flag_words));
  if (light > 8) io.io_callbackerr("unknown material 'mostly1' %d\r\n", static_cast<int>(light));
  if (fog > 4) io.io_callbackerr("unknown material index %d\r\n", static_cast<int>(fog));
  if (arma1 != 1) io.io_callbackerr("arma1 bool not=1  %d\r\n", arma1);
  t.str_Add("//Mostly1=%d;\r\n//AnIndex=%d;\r\n//Arma1 flag= %d;\r\n", static_cast<int>(light), static_cast<int>(fog),
            arma1);
  if (!surface.empty()) t.str_Add("surfaceInfo = %.*s;\r\n", static_cast<int>(surface.size()), surface.data());
  // Stored as emissive, ambient, diffuse, forced diffuse, specular, second specular.
  static constexpr struct {
    char const* label;
    int index;
  } kColours[] = {{"Ambient", 1}, {"Diffuse", 2}, {"Emmisive", 0}, {"ForcedDiffuse", 3}, {"Specular", 4}, {"//Specular2", 5}};
  for (auto const& k : kColours) {
    float const* v = colour[k.index];
    t.str_Add("%s[]={%g,%g,%g,%g};\r\n", k.label, static_cast<double>(v[0]), static_cast<double>(v[1]),
              static_cast<double>(v[2]), static_cast<double>(v[3]));
  }
  t.str_Add("SpecularPower=%g;\r\n", static_cast<double>(power));
  PixelShader const* shader = pixel < std::size(kPixelShaders) && *kPixelShaders[pixel].name ? &kPixelShaders[pixel] : nullptr;
  char const* ps = shader ? shader->name : nullptr;
  char const* vs = find_name(kVertexShaders, vertex);
  if (!ps) io.io_callbackerr("%.*s: Unknown pixelshader id=0x%08X\r\n", n, name.data(), pixel);
  if (!vs) io.io_callbackerr("%.*s: Unknown vertexshader id=0x%08X\r\n", n, name.data(), vertex);
  if (flags & ~0x3FF3u) io.io_callbackerr("%.*s: Unknown Render flag=0x%08X\r\n", n, name.data(), flags & ~0x3FF3u);
  shader_line(t, "PixelShaderId", ps, pixel, true);
  shader_line(t, "VertexShaderId", vs, vertex, false);
  t.str_cat("renderFlags[] = {");
  for (NamedId const& f : kRenderFlags)
    if (flags & f.id) t.str_Add("%s,", f.name);
  t.str_cat("};\r\n");
  if (flags & ~0x3FF3u) t.str_Add("//some unknown renderflags %04X\r\n", flags & ~0x3FF3u);

  uint32_t stages = mv > 6 ? c.u32() : 0;
  uint32_t transforms = mv > 8 ? c.u32() : stages;
  c.require_records(stages, 5);
  c.require_records(transforms, 52);
  auto read_stage = [&] {
    Stage s;
    if (mv >= 5) s.filter = c.u32();
    s.texture = c.asciiz();
    if (mv >= 8) s.transform = c.u32();
    if (mv >= 11) s.world_env = c.u8() != 0;
    return s;
  };
  std::vector<Stage> list;
  std::vector<uint8_t const*> matrices;
  for (uint32_t i = 0; i < stages; ++i) {
    if (mv < 8) {
      matrices.push_back(c.take(52));
      list.push_back(read_stage());
      list.back().transform = i;
    } else {
      list.push_back(read_stage());
    }
  }
  if (mv >= 8)
    for (uint32_t i = 0; i < transforms; ++i) matrices.push_back(c.take(52));
  bool ti = mv >= 10;
  if (ti) list.push_back(read_stage());
  // A material with fewer stages than its shader samples draws with whatever the engine binds there.
  if (shader && shader->stages && mv > 6 && stages < shader->stages)
    io.io_callbackerr("%.*s: %s samples %d texture stages, the material has %d\r\n", n, name.data(), shader->name,
                      static_cast<int>(shader->stages), static_cast<int>(stages));

  for (size_t i = 0; i < list.size(); ++i) {
    Stage const& s = list[i];
    if (s.texture.empty()) continue;
    bool is_ti = ti && i + 1 == list.size();
    if (is_ti)
      t.str_cat("class stageTI\r\n{\r\n");
    else
      t.str_Add("class stage%d\r\n{\r\n", static_cast<int>(i));
    if (s.world_env) t.str_cat("\tuseWorldEnvMap=true;\r\n");
    t.str_Add("\ttexture=\"%.*s\";\r\n", static_cast<int>(s.texture.size()), s.texture.data());
    if (!is_ti) {
      switch (s.filter) {
        case 0: t.str_cat("\tFilter=Point;\r\n"); break;
        case 1: t.str_cat("\tFilter=Linear;\r\n"); break;
        case 2: t.str_cat("\tFilter=TriLinear;\r\n"); break;
        case 3: break;
        default:
          io.io_callbackerr("%s\r\n", "filter in baked in rvmat is bad value");
          t.str_Add("\tFilter=Unknown (%d);\r\n", static_cast<int>(s.filter));
          break;
      }
      uint8_t const* m = s.transform < matrices.size() ? matrices[s.transform] : nullptr;
      uint32_t source = m ? p3d_le32(m) : 1;
      if (source == 0)
        t.str_cat("\tuvSource=None;\r\n");
      else if (source == 1)
        t.str_cat("\tuvSource=Tex;\r\n");
      else
        t.str_Add("\tuvSource=Tex%d;\r\n", static_cast<int>(source));
      // Material files write the plain mapping with a zero third row as often as with a unit one.
      static constexpr float kIdentity[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
      static constexpr float kFlat[12] = {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
      if (m && std::memcmp(m + 4, kIdentity, sizeof kIdentity) != 0 && std::memcmp(m + 4, kFlat, sizeof kFlat) != 0) {
        t.str_Add("\tclass uvTransform//(TransformIndex %d)\r\n\t{\r\n", static_cast<int>(s.transform));
        static char const* const kRows[] = {"\t\taside[] =\t{", "\t\tup[] =\t{", "\t\tdir[] =\t{", "\t\tpos[] =\t{"};
        for (int r = 0; r < 4; ++r)
          t.str_Add("%s%9.4f,%9.4f,%9.4f};\r\n", kRows[r], static_cast<double>(f32_at(m + 4, 3 * r)),
                    static_cast<double>(f32_at(m + 4, 3 * r + 1)), static_cast<double>(f32_at(m + 4, 3 * r + 2)));
        t.str_cat("\t};\r\n");
      }
    }
    t.str_cat("};\r\n");
  }
  t.str_Add("//};end class %.*s\r\n", static_cast<int>(name.size()), name.data());
}

char const* Morvane::p3d_ExtractRvmats() {
  OdolModel const* m = _odol.get();
  if (!m) return nullptr;
  _io.io_callback("ExtractRvmats from %s\r\n", _io.io_GetOpenedFileName() ? _io.io_GetOpenedFileName() : "buffer");
  _text.Clear();
  uint8_t const* end = _io.io_GetRawData() + _io.io_GetFileSize();
  std::set<std::string_view> done;
  try {
    for (uint32_t i = 0; i < m->lod_count(); ++i) {
      OdolLod const* lod = m->lod(i);
      for (size_t k = 0; k < lod->materials.size(); ++k)
        if (done.insert(lod->materials[k]).second)
          odol_material_text(_text, lod->materials[k], lod->material_data[k], end, _io);
    }
  } catch (...) {
    return nullptr;  // the materials were checked while reading; this cannot happen on an open model
  }
  return _text.c_str();
}
