// Runs a fuzz target over the files of folders, in place of libFuzzer. A name that is shown last is
// that of the input that did not come to its end.
//
// usage: TARGET FOLDER...

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace {

std::vector<std::filesystem::path> filesIn(const std::string& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const std::filesystem::path& file) {
  std::cout << file.filename().string() << std::endl;
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(stream), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (int at = 1; at < argc; ++at) {
    for (const auto& file : filesIn(argv[at])) {
      replay(file);
      ++count;
    }
  }
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  std::cout << count << " inputs in " << passed.count() << " s\n";
  return count == 0 ? 1 : 0;
}
