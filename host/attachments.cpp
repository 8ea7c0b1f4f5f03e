// Takes the files of a message and writes them down as the library wants to have them. In a list of
// the library a path may hold anything but '\', which separates folders, and '*', which marks a
// file in memory; a shown name neither of these, nor ':', behind which the library looks for the
// name.
#include "attachments.h"

#include "message_text.h"
#include "ryn32.h"
#include "session.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

// Neither of the two can stand in a path or a name that was taken.
constexpr char FileDelimiter = 1;
constexpr char NameSeparator = 2;
// The library encodes a name as one word of at most 255 chars: of UTF-8 in Base64 that is this many
// bytes. The quoted form would leave blanks, '_' and '"' as they are, which no reader gets right.
constexpr size_t NameLimit = 180;
constexpr uint32_t NamesAsTheyAre = 0;
constexpr uint32_t NamesInBase64 = 30; // page code of rynMakeSubject

static bool Refuse(const std::string& path, const char* why)
{
    fprintf(stderr, "rynmail: the file '%s' can't be sent: %s\n", path.c_str(), why);
    return false;
}

static bool Holds(const std::string& text, const char* chars)
{
    for (const char c : text)
        if ((c & 0xE0) == 0 || c == 0x7F || strchr(chars, c))
            return true;
    return false;
}

static bool IsFile(const std::string& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

static bool ExaminePath(AttachedFile& file)
{
    if (Holds(file.Path, "\\*"))
        return Refuse(file.Path, "its path holds '\\', '*' or a control char; rename or link it");
    FILE* opened = fopen(file.Path.c_str(), "rb");
    if (!opened)
        return Refuse(file.Path, strerror(errno));
    fclose(opened);
    if (!IsFile(file.Path))
        return Refuse(file.Path, "it is a folder or a device");
    std::error_code error;
    file.Size = std::filesystem::file_size(file.Path, error);
    return !error || Refuse(file.Path, "its size is not known");
}

static bool ExamineName(const AttachedFile& file)
{
    if (file.Name.empty() || Holds(file.Name, "\\/:"))
        return Refuse(file.Path,
                      "a name to show can't be empty or hold '/', '\\', ':' or a control "
                      "char; give another one with FILE=NAME");
    if (file.Name.size() > NameLimit)
        return Refuse(file.Path, "a name to show may have 180 bytes at most; give another one with "
                                 "FILE=NAME");
    return ExamineText(file.Name).IsUtf8 ||
           Refuse(file.Path, "its name is no UTF-8; give another one with FILE=NAME");
}

bool TakeFile(const char* typed, AttachedFile& fileOut)
{
    fileOut.Path = typed;
    const size_t equals = fileOut.Path.rfind('=');
    if (equals == std::string::npos || IsFile(fileOut.Path)) {
        fileOut.Name = fileOut.Path.substr(fileOut.Path.rfind('/') + 1);
    } else {
        fileOut.Name = fileOut.Path.substr(equals + 1);
        fileOut.Path.erase(equals);
    }
    return ExaminePath(fileOut) && ExamineName(fileOut);
}

bool TakeImage(const char* typed, AttachedFile& fileOut)
{
    if (!TakeFile(typed, fileOut))
        return false;
    constexpr size_t endingChars = 4;
    std::string ending;
    if (fileOut.Name.size() > endingChars)
        ending = fileOut.Name.substr(fileOut.Name.size() - endingChars);
    for (char& c : ending)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (const char* known : { ".gif", ".bmp", ".tif", ".jpg", ".png" })
        if (ending == known)
            return true;
    return Refuse(fileOut.Path, "the name of an image to show has to end in .gif, .bmp, .tif, .jpg "
                                "or .png; give such a name with FILE=NAME");
}

bool TakeMessageFile(const char* path, AttachedFile& fileOut)
{
    fileOut.Path = path;
    fileOut.Name = "message.eml";
    return ExaminePath(fileOut);
}

std::string FileList(const std::vector<AttachedFile>& files)
{
    std::string list;
    for (const AttachedFile& file : files) {
        if (!list.empty())
            list += FileDelimiter;
        list.append(file.Path).append(1, NameSeparator).append(file.Name);
    }
    return list;
}

// Can a name stand between quotes in a header line as it is?
static bool IsPlainName(const std::string& name)
{
    for (const char c : name)
        if ((c & 0x80) || strchr("\"*", c)) // what follows a '*' would not be shown
            return false;
    return true;
}

void SetFileParams(const std::vector<AttachedFile>& files)
{
    uint32_t pageCode = NamesAsTheyAre;
    for (const AttachedFile& file : files)
        if (!IsPlainName(file.Name))
            pageCode = NamesInBase64;
    rynIntegerParam(Channel, RYN_ATTACH_DELIMITER, FileDelimiter);
    rynIntegerParam(Channel, RYN_NAME_SEPARATOR, NameSeparator);
    rynIntegerParam(Channel, RYN_FILENAME_PAGE_CODE, pageCode);
}
