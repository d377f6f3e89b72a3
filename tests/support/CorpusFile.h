// Where a real file of the corpus lies. Files the tool once refused are kept apart in refused/
// until they read; a test of such a file finds it in either place, so it keeps running whether
// or not the file has been moved to its format's folder yet.
#pragma once

#include <cstdlib>
#include <filesystem>

inline std::filesystem::path corpus_root() {
  char const* env = std::getenv("VENDRAK_CORPUS");
  return env && *env ? std::filesystem::path(env) : std::filesystem::path(VENDRAK_CORPUS);
}

// FOLDER/NAME under the corpus, or refused/FOLDER/NAME when only that exists.
inline std::filesystem::path corpus_file(char const* folder, char const* name) {
  std::filesystem::path root = corpus_root(), home = root / folder / name;
  if (std::filesystem::exists(home)) return home;
  std::filesystem::path refused = root / "refused" / folder / name;
  return std::filesystem::exists(refused) ? refused : home;
}
