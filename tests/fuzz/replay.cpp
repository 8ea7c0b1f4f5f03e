// Runs a fuzz target over every file of the folders named on the command line: what the fuzzer has
// once found stays found, in builds without a fuzzer too.
#include "tests/fuzz/fuzz_input.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

static std::vector<std::string> FilesBelow(const char* folder)
{
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.is_regular_file(error))
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

static void Replay(const std::string& path)
{
    fprintf(stderr, "%s\n", path.c_str()); // the last one named is the one that broke
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv)
{
    int count = 0;
    for (int i = 1; i < argc; i++) {
        for (const std::string& path : FilesBelow(argv[i])) {
            Replay(path);
            ++count;
        }
    }
    fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
