// Runs a target on every line of a file, an input in hexadecimal, where there is no fuzzer.
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::ifstream lines(argv[argc - 1]);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    std::cout << line << std::endl;  // before it can end the process
    std::vector<std::uint8_t> input;
    for (std::size_t i = 0; i < line.size(); i += 2)
      input.push_back(static_cast<std::uint8_t>(std::stoul(line.substr(i, 2), nullptr, 16)));
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return count > 0 ? 0 : 1;
}
