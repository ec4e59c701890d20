// Drives a fuzz target without libFuzzer: every file of the corpus folder, the
// empty input, and a fixed number of seeded mutations of each, so that the
// ordinary test run meets inputs that the corpus does not hold.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned mutationsPerInput = 2000;

Bytes mutated(Bytes input, std::mt19937 &random) {
  auto pick = [&](std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
  };
  for (std::size_t changes = 1 + pick(4); changes > 0; --changes) {
    auto at = [&](std::size_t extra) {
      return input.begin() + static_cast<std::ptrdiff_t>(pick(input.size() + extra));
    };
    switch (input.empty() ? 1 : pick(4)) {
    case 0:
      *at(0) = static_cast<std::uint8_t>(pick(256));
      break;
    case 1:
      input.insert(at(1), static_cast<std::uint8_t>(pick(256)));
      break;
    case 2:
      input.erase(at(0));
      break;
    default:
      input.resize(pick(input.size()) + 1);
    }
  }
  return input;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS-FOLDER\n", argv[0]);
    return 2;
  }
  std::vector<std::filesystem::path> files;
  for (const auto &entry : std::filesystem::directory_iterator(argv[1]))
    files.push_back(entry.path());
  if (files.empty()) {
    std::fprintf(stderr, "the corpus %s is empty\n", argv[1]);
    return 1;
  }
  std::sort(files.begin(), files.end());
  std::mt19937 random(20260101);
  LLVMFuzzerTestOneInput(nullptr, 0);
  for (const auto &file : files) {
    std::ifstream stream(file, std::ios::binary);
    Bytes input{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(input.data(), input.size());
    for (unsigned count = 0; count < mutationsPerInput; ++count) {
      Bytes changed = mutated(input, random);
      LLVMFuzzerTestOneInput(changed.data(), changed.size());
    }
  }
  std::printf("%zu inputs, %u mutations of each\n", files.size(), mutationsPerInput);
  return 0;
}
