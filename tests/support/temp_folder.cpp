// Folders and files by the standard library, so that the fault layer sees none of it.
#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

std::string TempFolderMake()
{
    std::error_code error;
    std::string path = std::filesystem::temp_directory_path(error).string() + "/ryn32-XXXXXX";
    if (mkdtemp(path.data()) == nullptr)
        ADD_FAILURE() << "can't make " << path;
    return path;
}

void TempFolderRemove(const std::string& path)
{
    std::error_code error;
    std::filesystem::remove_all(path, error);
    EXPECT_FALSE(error) << path << ": " << error.message();
}

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return "<no file>";
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteWholeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    EXPECT_TRUE(file.good()) << path;
}
