// Runs a target on every file of a folder, for compilers and builds without a fuzzer.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  int count = 0;
  for (const auto& file : std::filesystem::directory_iterator(argv[argc - 1])) {
    std::cout << ++count << ' ' << file.path() << std::endl;  // before it can end the process
    std::ifstream stream(file.path(), std::ios::binary);
    const std::vector<std::uint8_t> input(std::istreambuf_iterator<char>(stream), {});
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return count > 0 ? 0 : 1;
}
