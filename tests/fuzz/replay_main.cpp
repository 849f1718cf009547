// The plain main of a fuzz harness outside libFuzzer: runs the harness once
// on every file of the directories (or the files) named on the command line,
// so every build replays the corpora that libFuzzer grew.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path p(argv[i]);
    if (fs::is_directory(p)) {
      for (const auto& e : fs::directory_iterator(p))
        if (e.is_regular_file()) inputs.push_back(e.path());
    } else {
      inputs.push_back(p);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  for (const fs::path& p : inputs) {
    std::ifstream f(p, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
    // A fresh copy of exactly the input's size, so ASan sees reads past its end.
    std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
  }
  std::printf("replayed %zu inputs\n", inputs.size());
  return 0;
}
