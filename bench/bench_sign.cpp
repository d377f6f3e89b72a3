// Verifying a signed archive costs what reading it costs: one SHA-1 pass over the archive (its
// checksum), plus one over the files the signature version selects. A 200 MB archive of mixed
// files (scripts, configs and textures) is made in VENDRAK_BENCH_DIR (default /dev/shm), signed
// once with a fresh key, and verified for each version.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "pbo/ArchiveSigner.h"
#include "pbo/PboBuilder.h"

namespace fs = std::filesystem;

namespace {

void BM_VerifySignature(benchmark::State& state) {
  char const* env = std::getenv("VENDRAK_BENCH_DIR");
  fs::path dir = fs::path(env ? env : "/dev/shm") / ("vendrak_bench_sign_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::string archive = (dir / "big.pbo").string();
  pbotest::Builder b;
  b.prop("prefix", "z\\bench\\addons\\big");
  std::mt19937 random(1);
  std::string chunk(1 << 20, '\0');
  for (char& c : chunk) c = char('a' + random() % 26);
  char const* const kinds[] = {".sqf", ".bin", ".paa", ".p3d"};
  for (int i = 0; i < 200; ++i) b.file("data\\file" + std::to_string(i) + kinds[i % 4], chunk);
  pbotest::write_file(archive, b.seal(pbotest::Builder::SHA).build());

  ArchiveSigner signer;
  ArchiveKey key;
  ArchiveSignature sig;
  uint32_t version = uint32_t(state.range(0));
  if (signer.make_key("bench", 1024, key) || signer.sign(key, archive, version, sig)) {
    state.SkipWithError("cannot sign the archive");
    return;
  }
  for (auto _ : state)
    if (signer.verify(key, archive, sig) != 0) state.SkipWithError("the signature does not verify");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(archive)));
  fs::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_VerifySignature)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();
