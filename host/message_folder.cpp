// Makes, names and removes the folders of fetched messages.
#include "message_folder.h"

#include "message_text.h"
#include "ryn32.h"
#include "session.h"
#include "system.h"
#include "terminal_text.h"

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

constexpr char PartEnding[] = ".part";
// The library keeps 256 chars of a path, and cuts an attachment's name to what is left of them.
constexpr size_t IntoLimit = 150;
constexpr unsigned MostFolders = 999999;

static bool CannotUse(const std::string& folder, const char* why)
{
    fprintf(stderr, "rynmail: the folder '%s' can't be used: %s\n", ForTerminal(folder).c_str(),
            why);
    return false;
}

static bool CannotUse(const std::string& folder, const std::error_code& error)
{
    return CannotUse(folder, error.message().c_str());
}

std::string PathIn(const std::string& folder, const std::string& name)
{
    return folder + "/" + name;
}

ExitCode PrepareInto(const char* typed, std::string& intoOut)
{
    intoOut = typed;
    while (intoOut.size() > 1 && intoOut.ends_with('/'))
        intoOut.pop_back();
    // '\' separates folders in a path of the library.
    if (intoOut.empty() || intoOut.size() > IntoLimit || intoOut.find('\\') != std::string::npos ||
        HasControlChar(intoOut))
        return WrongUse(
            "--into takes a folder of at most 150 chars, without '\\' and control chars");
    std::error_code error;
    fs::create_directories(intoOut, error);
    if (error)
        return CannotUse(intoOut, error), EXIT_LOCAL_FILE;
    if (rynStringParam(Channel, RYN_TEST_PATH, intoOut.c_str()) < 0)
        return CannotUse(intoOut, "no file can be made in it"), EXIT_LOCAL_FILE;
    return EXIT_DONE;
}

static std::string NumberedPath(const std::string& into, unsigned number)
{
    char name[16];
    snprintf(name, sizeof name, "%04u", number);
    return PathIn(into, name);
}

bool ClaimFolder(const std::string& into, std::string& folderOut)
{
    std::error_code error;
    for (unsigned number = 1; number <= MostFolders; ++number) {
        const std::string path = NumberedPath(into, number);
        folderOut = path + PartEnding;
        if (fs::exists(fs::symlink_status(path, error)))
            continue;
        if (fs::create_directory(folderOut, error)) { // false also if somebody has it already
            fs::permissions(folderOut, fs::perms::owner_all, error); // letters are private
            return true;
        }
        if (error)
            return CannotUse(folderOut, error);
    }
    return CannotUse(into, "it is full");
}

bool CommitFolder(const std::string& into, std::string& folder)
{
    std::error_code error;
    for (unsigned number = 1; number <= MostFolders; ++number) {
        const std::string path = NumberedPath(into, number);
        if (fs::exists(fs::symlink_status(path, error)))
            continue;
        fs::rename(folder, path, error);
        if (!error) {
            folder = path;
            return true;
        }
        // Somebody else may have made it in between: then the next number is tried.
        if (!fs::exists(fs::symlink_status(path, error)))
            break;
    }
    return CannotUse(folder, "it can't be renamed");
}

void LeaveUnfinished(const std::string& folder)
{
    std::error_code error;
    bool isEmpty = true;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        isEmpty = isEmpty && entry.file_size(error) == 0;
    if (isEmpty)
        return RemoveFolder(folder);
    fprintf(stderr, "rynmail: what came of it is in %s\n", ForTerminal(folder).c_str());
}

bool HasRoomFor(const std::string& folder, uint64_t bytes)
{
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    return error || space.available >= bytes;
}
