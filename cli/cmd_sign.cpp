// vendrak keygen, sign, verify: the key pairs and signature files servers check archives with.
#include <dirent.h>
#include <algorithm>
#include <iterator>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "TextOut.h"
#include "pbo/ArchiveSigner.h"

namespace fs = std::filesystem;

namespace {

std::string describe(int code) { return std::string(ArchiveSigner::ErrorString(code)) + " (" + std::to_string(code) + ")"; }

// Writes `bytes` safely to `target`; a private key is made readable by its owner only before a
// byte of it is written.
int write_bytes(std::string const& target, std::vector<uint8_t> const& bytes, bool force, bool secret) {
  OutputFile out(target, force);
  if (int r = out.open()) return r;
  if (secret) ::chmod(out.path(), 0600);
  std::ofstream f(out.path(), std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<char const*>(bytes.data()), std::streamsize(bytes.size()));
  f.close();
  if (!f) {
    cli_error(target, "cannot write to file");
    return 6;
  }
  return out.commit();
}

int read_key_file(std::string const& path, ArchiveKey& key) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(path, bytes)) return r;
  if (int r = ArchiveSigner::parse_key(bytes.data(), bytes.size(), key)) {
    cli_error(path, describe(r));
    return r;
  }
  return 0;
}

}  // namespace

int cli_sign_archive(std::string const& key_file, std::string const& archive, unsigned version, bool force) {
  ArchiveKey key;
  if (int r = read_key_file(key_file, key)) return r;
  if (!key.is_private()) {
    cli_error(key_file, "a public key cannot sign; give the .biprivatekey");
    return SIGN_BAD_KEY;
  }
  ArchiveSigner signer;
  ArchiveSignature sig;
  if (int r = signer.sign(key, archive, version, sig)) {
    cli_error(archive, describe(r));
    return r;
  }
  return write_bytes(archive + "." + key.authority + ".bisign", ArchiveSigner::signature_bytes(sig), force, false);
}

namespace {

// ---- keygen -------------------------------------------------------------------------------------
struct KeygenOptions {
  std::string name, dir = ".";
  unsigned bits = 1024;
  bool force = false;
};

int run_keygen(KeygenOptions const& o) {
  if (o.bits != 1024)
    cli_print_stderr("vendrak: warning: every key servers are known to accept is 1024 bits; %u bits is unproven\n",
                     o.bits);
  ArchiveSigner signer;
  ArchiveKey key;
  if (int r = signer.make_key(o.name, o.bits, key)) {
    cli_error(o.name, describe(r));
    return r;
  }
  std::string stem = (fs::path(o.dir) / o.name).string();
  if (int r = write_bytes(stem + ".biprivatekey", ArchiveSigner::key_bytes(key, true), o.force, true)) return r;
  if (int r = write_bytes(stem + ".bikey", ArchiveSigner::key_bytes(key, false), o.force, false)) return r;
  cli_print_stdout("%s.bikey\n%s.biprivatekey\n", stem.c_str(), stem.c_str());
  return 0;
}

// ---- sign ---------------------------------------------------------------------------------------
struct SignOptions {
  std::string key;
  std::vector<std::string> archives;
  unsigned version = 3;
  bool force = false;
};

int run_sign(SignOptions const& o) {
  ArchiveKey key;
  if (int r = read_key_file(o.key, key)) return r;
  if (!key.is_private()) {
    cli_error(o.key, "a public key cannot sign; give the .biprivatekey");
    return SIGN_BAD_KEY;
  }
  int worst = 0;
  for (auto const& archive : o.archives) {
    int r = cli_check_input(archive);
    if (!r) r = cli_sign_archive(o.key, archive, o.version, o.force);
    if (!r) cli_print_stdout("%s signed\n", archive.c_str());
    if (r && !worst) worst = r;
  }
  return worst;
}

// ---- verify -------------------------------------------------------------------------------------
struct VerifyOptions {
  std::vector<std::string> archives, keys;
  std::string key_dir;
  bool json = false;
};

struct Verdict {
  std::string archive, signature, authority;
  unsigned version = 0;
  int code = 0;
};

// The signature files beside an archive: "<archive file name>.<authority>.bisign".
std::vector<std::string> signatures_of(std::string const& archive) {
  std::vector<std::string> found;
  fs::path a(archive);
  fs::path dir = a.parent_path().empty() ? fs::path(".") : a.parent_path();
  std::string lead = a.filename().string() + ".";
  std::error_code ec;
  for (auto const& e : fs::directory_iterator(dir, ec)) {
    std::string n = e.path().filename().string();
    if (n.size() > lead.size() + 7 && n.compare(0, lead.size(), lead) == 0 && n.compare(n.size() - 7, 7, ".bisign") == 0)
      found.push_back(e.path().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

int cli_verify_archive(std::string const& archive, std::vector<ArchiveKey> const& trusted, std::string& signature,
                       std::string& authority, unsigned& version) {
  ArchiveSigner signer;
  int code = SIGN_NO_SIGNATURE;
  for (auto const& path : signatures_of(archive)) {
    std::vector<unsigned char> bytes;
    ArchiveSignature sig;
    signature = path;
    std::ifstream in(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (int r = ArchiveSigner::parse_signature(bytes.data(), bytes.size(), sig)) {
      code = r;
      continue;
    }
    authority = sig.key.authority;
    version = sig.version;
    code = SIGN_UNKNOWN_AUTHORITY;
    for (auto const& key : trusted)
      if (key.authority == sig.key.authority) code = signer.verify(key, archive, sig);
    if (code == 0) return 0;
  }
  return code;
}

int cli_read_trusted_keys(std::vector<std::string> const& files, std::string const& folder,
                          std::vector<ArchiveKey>& trusted) {
  std::vector<std::string> key_files = files;
  if (!folder.empty()) {
    std::error_code ec;
    for (auto const& e : fs::directory_iterator(folder, ec))
      if (e.path().extension() == ".bikey") key_files.push_back(e.path().string());
    if (ec) {
      cli_error(folder, ec.message());
      return 3;
    }
  }
  for (auto const& k : key_files) {
    ArchiveKey key;
    if (int r = read_key_file(k, key)) return r;
    trusted.push_back(std::move(key));
  }
  if (trusted.empty()) {
    cli_error(folder.empty() ? "--key" : folder, "no trusted key (.bikey) to verify with");
    return SIGN_UNKNOWN_AUTHORITY;
  }
  return 0;
}

namespace {

int run_verify(VerifyOptions const& o) {
  if (o.keys.empty() && o.key_dir.empty()) {
    std::fprintf(stderr, "vendrak: verify needs the trusted keys: --key BIKEY or --keys DIR (see 'vendrak verify --help')\n");
    return kExitUsage;
  }
  std::vector<ArchiveKey> trusted;
  if (int r = cli_read_trusted_keys(o.keys, o.key_dir, trusted)) return r;
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  int worst = 0;
  for (auto const& archive : o.archives) {
    Verdict v{archive, {}, {}, 0, SIGN_NOT_AN_ARCHIVE};
    if (!cli_check_input(archive)) v.code = cli_verify_archive(archive, trusted, v.signature, v.authority, v.version);
    if (v.code && !worst) worst = v.code;
    if (o.json) {
      all.push_back({{"archive", v.archive},
                     {"signature", v.signature.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(v.signature)},
                     {"authority", v.authority},
                     {"version", v.version},
                     {"ok", v.code == 0},
                     {"code", v.code},
                     {"reason", v.code ? ArchiveSigner::ErrorString(v.code) : ""}});
    } else if (v.code) {
      cli_error(v.signature.empty() ? archive : v.signature, describe(v.code));
    } else {
      cli_print_stdout("%s: signed by %s (version %u): ok\n", archive.c_str(), v.authority.c_str(), v.version);
    }
  }
  if (o.json) cli_print_stdout("%s\n", json_text(all).c_str());
  return worst;
}

CommandRegistrar keygen_command(
    {"keygen", "Make a key pair for signing archives (NAME.bikey and NAME.biprivatekey)", [](CLI::App& sub) {
       auto o = std::make_shared<KeygenOptions>();
       sub.add_option("NAME", o->name, "The authority's name, stored in the keys and every signature")->required();
       sub.add_option("-o,--out", o->dir, "The folder the two key files go to; default: .");
       sub.add_option("--bits", o->bits, "Key length; servers are known to accept 1024")
           ->check(CLI::IsMember({1024u, 2048u, 4096u}))
           ->default_str("1024");
       sub.add_flag("-f,--force", o->force, "Replace existing key files");
       return std::function<int()>([o] { return run_keygen(*o); });
     }});

CommandRegistrar sign_command(
    {"sign", "Sign archives: ARCHIVE.<authority>.bisign beside each", [](CLI::App& sub) {
       auto o = std::make_shared<SignOptions>();
       sub.add_option("PRIVATEKEY", o->key, "The private key (.biprivatekey)")->required();
       sub.add_option("ARCHIVE", o->archives, "The archives to sign")->required();
       sub.add_option("--version", o->version, "Signature version")->check(CLI::IsMember({2u, 3u}))->default_str("3");
       sub.add_flag("-f,--force", o->force, "Replace existing signature files");
       return std::function<int()>([o] { return run_sign(*o); });
     }});

CommandRegistrar verify_command(
    {"verify", "Check archives' signatures against trusted keys, as a server does", [](CLI::App& sub) {
       auto o = std::make_shared<VerifyOptions>();
       sub.add_option("ARCHIVE", o->archives, "The archives to check")->required();
       auto key = sub.add_option("--key", o->keys, "A trusted public key (.bikey), repeatable")->allow_extra_args(false);
       auto dir = sub.add_option("--keys", o->key_dir, "A folder of trusted public keys");
       key->excludes(dir);
       sub.add_flag("--json", o->json, "One object per archive");
       return std::function<int()>([o] { return run_verify(*o); });
     }});

}  // namespace

namespace {

// A key or signature file starts with the authority's name and the key blob's header.
bool looks_like_key(unsigned char const* head, size_t n, std::string const&) {
  size_t name = 0;
  while (name < n && head[name]) ++name;
  size_t at = name + 1 + 4;
  if (name == 0 || at + 12 > n) return false;
  bool blob = (head[at] == 6 || head[at] == 7) && head[at + 1] == 2 && head[at + 2] == 0 && head[at + 3] == 0 &&
              head[at + 4] == 0 && head[at + 5] == 0x24 && head[at + 6] == 0 && head[at + 7] == 0;
  return blob && (std::memcmp(head + at + 8, "RSA1", 4) == 0 || std::memcmp(head + at + 8, "RSA2", 4) == 0);
}

int run_key_info(std::string const& path, bool json) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(path, bytes)) return r;
  ArchiveKey key;
  ArchiveSignature sig;
  std::string kind;
  if (ArchiveSigner::parse_key(bytes.data(), bytes.size(), key) == 0) {
    kind = key.is_private() ? "private key" : "public key";
  } else if (ArchiveSigner::parse_signature(bytes.data(), bytes.size(), sig) == 0) {
    kind = "signature";
    key = sig.key;
  } else {
    cli_error(path, "not a key or signature file: " + describe(SIGN_BAD_KEY));
    return SIGN_BAD_KEY;
  }
  // A private key's numbers are never printed.
  if (json) {
    nlohmann::ordered_json j = {{"file", path}, {"kind", kind}, {"authority", key.authority}, {"bits", key.bits},
                                {"exponent", key.exponent}};
    if (kind == "signature") j["version"] = sig.version;
    cli_print_stdout("%s\n", json_text(j).c_str());
  } else {
    cli_print_stdout("%s: archive-signing %s of authority %s, %u bits, exponent %u", path.c_str(), kind.c_str(),
                     key.authority.c_str(), key.bits, key.exponent);
    if (kind == "signature") cli_print_stdout(", version %u", sig.version);
    cli_print_stdout("\n");
  }
  return 0;
}

InfoRegistrar key_info({"archive-signing key or signature", looks_like_key, run_key_info});

}  // namespace
