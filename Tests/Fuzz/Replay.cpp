// Runs a fuzz target over files that are there already, without a fuzzer: the corpus as a test.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; entry != end;
       entry.increment(error)) {
    if (entry->is_regular_file(error)) files.push_back(entry->path());
  }
  std::ranges::sort(files);
  return files;
}

bool replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file) return false;
  // Said before the input runs: a crash then names its file.
  std::printf("%s\n", path.filename().c_str());
  std::fflush(stdout);
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

/// Arguments: folders. Ends with 1 when one holds no file or a file can't be read: a corpus that
/// went missing is a failure, not a test without inputs.
int main(int count, char** arguments) {
  for (int index = 1; index < count; ++index) {
    const auto files = filesIn(arguments[index]);
    if (files.empty() || !std::ranges::all_of(files, replay)) {
      std::fprintf(stderr, "%s: nothing to read\n", arguments[index]);
      return 1;
    }
  }
  return count > 1 ? 0 : 1;
}
