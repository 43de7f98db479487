// Hands each file that is named to the fuzz target, as libFuzzer's own main does.
#include <fstream>
#include <iostream>
#include <iterator>

#include "fuzz/target.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) return 1;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::cerr << argc - 1 << " files replayed\n";
  return argc > 1 ? 0 : 1;
}
