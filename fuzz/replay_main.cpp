// The ordinary program around a fuzz target: it feeds every file of the
// folders (or the files) it is given to the target, one after the other,
// so that the corpus the fuzzers kept runs as a test in every build. A
// broken property or a sanitizer report ends it with a failure; the name of
// the input being replayed is printed first, to be found again.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fs = std::filesystem;

static std::vector<uint8_t> read_all(const fs::path &p) {
  std::ifstream f(p, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

int main(int argc, char **argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    fs::path p(argv[i]);
    std::error_code ec;
    if (fs::is_directory(p, ec)) {
      for (const auto &e : fs::directory_iterator(p))
        if (e.is_regular_file()) inputs.push_back(e.path());
    } else if (fs::is_regular_file(p, ec)) {
      inputs.push_back(p);
    } else {
      std::fprintf(stderr, "no such corpus: %s\n", argv[i]);
      return 2;
    }
  }
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) {
    std::fprintf(stderr, "the corpus is empty\n");
    return 2;
  }
  // The empty input is always a case of its own.
  LLVMFuzzerTestOneInput(nullptr, 0);
  for (const fs::path &p : inputs) {
    std::fprintf(stderr, "replaying %s\n", p.filename().string().c_str());
    std::vector<uint8_t> bytes = read_all(p);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
