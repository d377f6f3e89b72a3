#pragma once
#include <cstdint>
#include <string>

// What a texture's name says about its pixels. The game knows a texture's use by the last part of
// its name ("brick_co.paa" a colour map, "brick_nohq.paa" a normal map, "brick_smdi.paa" a specular
// map): colour maps hold colours as painted (sRGB), so averaging and downsampling them happens in
// linear light; every other map holds values, which are averaged as they are. The texture index
// records the same distinction as a number.
class TextureSuffix {
 public:
  // The numbers the texture index stores after a texture's path.
  enum Code : uint32_t {
    DIFFUSE = 0,         // _co, _ca (thermal _ti_ca too), and names with no suffix the game knows
    DIFFUSE_LINEAR = 1,  // _sky, _lco, _lca
    DETAIL = 2,          // _detail, _dt, _cdt, _mco
    NORMAL = 3,          // _no, _nohq, _nof, _nofhq, _nofex, _nopx, _novhq, _ns, _nshq, _non
    MACRO = 7,           // _mc
    AMBIENT_SHADOW = 8,  // _as
    SPECULAR = 9,        // _sm, _smdi
    DETAIL_SPECULAR = 10,  // _dtsmdi
    MASK = 11,           // _mask
  };

  // The suffix of a file name or path (lower case, without the underscore; "" when none), and
  // what it means.
  explicit TextureSuffix(std::string const& name);
  std::string const& sfx_Text() const { return _text; }
  Code sfx_Code() const { return _code; }
  // Colours painted in sRGB: averaged and filtered in linear light.
  bool sfx_IsColour() const { return _code == DIFFUSE || _code == MACRO; }

 private:
  std::string _text;
  Code _code = DIFFUSE;
};
