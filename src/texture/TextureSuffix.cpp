#include "texture/TextureSuffix.h"

#include <cctype>

namespace {
struct Known {
  char const* suffix;
  TextureSuffix::Code code;
};
constexpr Known kKnown[] = {
    {"co", TextureSuffix::DIFFUSE},           {"ca", TextureSuffix::DIFFUSE},
    {"sky", TextureSuffix::DIFFUSE_LINEAR},   {"lco", TextureSuffix::DIFFUSE_LINEAR},
    {"lca", TextureSuffix::DIFFUSE_LINEAR},   {"detail", TextureSuffix::DETAIL},
    {"dt", TextureSuffix::DETAIL},            {"cdt", TextureSuffix::DETAIL},
    {"mco", TextureSuffix::DETAIL},           {"mc", TextureSuffix::MACRO},
    {"as", TextureSuffix::AMBIENT_SHADOW},    {"sm", TextureSuffix::SPECULAR},
    {"smdi", TextureSuffix::SPECULAR},        {"dtsmdi", TextureSuffix::DETAIL_SPECULAR},
    {"mask", TextureSuffix::MASK},            {"no", TextureSuffix::NORMAL},
    {"nohq", TextureSuffix::NORMAL},          {"nof", TextureSuffix::NORMAL},
    {"nofhq", TextureSuffix::NORMAL},         {"nofex", TextureSuffix::NORMAL},
    {"nopx", TextureSuffix::NORMAL},          {"novhq", TextureSuffix::NORMAL},
    {"ns", TextureSuffix::NORMAL},            {"nshq", TextureSuffix::NORMAL},
    {"non", TextureSuffix::NORMAL},
};
}  // namespace

TextureSuffix::TextureSuffix(std::string const& name) {
  size_t start = name.find_last_of("/\\");
  std::string base = name.substr(start == std::string::npos ? 0 : start + 1);
  size_t dot = base.rfind('.');
  if (dot != std::string::npos && dot > 0) base.resize(dot);
  for (char& c : base) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  size_t underscore = base.rfind('_');
  if (underscore == std::string::npos) return;
  _text = base.substr(underscore + 1);
  for (Known const& k : kKnown)
    if (_text == k.suffix) {
      _code = k.code;
      return;
    }
}
