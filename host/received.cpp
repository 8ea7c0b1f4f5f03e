// How this host wants messages to be received, and the summary of one.
#include "received.h"

#include "header_text.h"
#include "message_folder.h"
#include "ryn32.h"
#include "session.h"
#include "terminal_text.h"

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <vector>

// No name on a disk holds it: the library has made '_' of control chars.
constexpr char ListDelimiter = 1;
constexpr size_t ListSize = 5122; // chars that the library keeps of a list, and a zero

struct ParamRow {
    int32_t Code;
    uint32_t Value;
};

constexpr ParamRow ReceiveParams[] = {
    // A number in front keeps attachments of one name apart, and hides none behind a leading dot.
    { RYN_ATTACH_NUMBERING, 1 },
    { RYN_ATTACH_DELIMITER, ListDelimiter },
    // A text in Base64 is a file that can be read instead of a text that can't.
    { RYN_SAVE_UNNAMED_BASE64, 1 },
    // A message inside the message stays whole; decoded it would lose its header.
    { RYN_KEEP_RFC822, 1 },
    // Notes would name the folder as it is called until the message is whole.
    { RYN_NO_ATTACH_NOTE, 1 },
    // On, it would change the underscores in quoted-printable texts and files too.
    { RYN_UNDERSCORE_TO_SPACE, 0 },
    { RYN_RAW_PREFIX, RawPrefix },
};

void SetReceiveParams()
{
    for (const ParamRow& row : ReceiveParams)
        rynIntegerParam(Channel, row.Code, row.Value);
}

// --- files ---

static std::vector<std::string> ListOf(int32_t code)
{
    std::string list(ListSize + 1, '\0');
    const int32_t length = rynDebug(Channel, code, list.data(), static_cast<int32_t>(ListSize));
    list.resize(length > 0 ? static_cast<size_t>(length) : 0);
    std::vector<std::string> entries;
    for (size_t at = 0; !list.empty() && at <= list.size();) {
        const size_t end = std::min(list.find(ListDelimiter, at), list.size());
        entries.push_back(list.substr(at, end - at));
        at = end + 1;
    }
    return entries;
}

// "7-name" as the given number has it; the old name, if it can't be had.
static std::string Renumber(const std::string& folder, const std::string& name, size_t number)
{
    const size_t hyphen = name.find('-');
    if (hyphen == std::string::npos)
        return name;
    const std::string wanted = std::to_string(number) + name.substr(hyphen);
    std::error_code error;
    if (std::filesystem::exists(PathIn(folder, wanted), error))
        return name; // its own, or that of a part with two names
    std::filesystem::rename(PathIn(folder, name), PathIn(folder, wanted), error);
    return error ? name : wanted;
}

std::vector<ReceivedFile> TakeAttachments(const std::string& folder)
{
    const std::vector<std::string> names = ListOf(RYN_DEBUG_ATTACH_LIST);
    const std::vector<std::string> types = ListOf(RYN_DEBUG_TYPE_LIST);
    // The lists fall out of step when a part without a type comes first, or when one is full.
    const bool hasTypes = types.size() == names.size();
    std::vector<ReceivedFile> files;
    for (size_t i = 0; i < names.size(); ++i)
        files.push_back({ Renumber(folder, names[i], i + 1), hasTypes ? types[i] : "attachment" });
    return files;
}

// --- summary ---

static void PrintFile(const std::string& folder, const ReceivedFile& file)
{
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(PathIn(folder, file.Name), error);
    printf("    %-40s %10" PRIuMAX " bytes  %s\n", ForTerminal(file.Name).c_str(), error ? 0 : size,
           ForTerminal(file.Type).c_str());
}

void PrintReceived(const std::string& folder, const std::string& head,
                   const std::vector<ReceivedFile>& attachments)
{
    for (const char* name : { "From", "To", "Cc", "Date", "Subject" })
        if (const std::string value = ShownHeader(head, name); !value.empty())
            printf("    %-8s %s\n", (std::string(name) + ":").c_str(), value.c_str());
    PrintFile(folder, { TextFileName, "text" });
    for (const ReceivedFile& file : attachments)
        PrintFile(folder, file);
    const int32_t count = rynStatistics(Channel, RYN_STAT_ATTACH_COUNT);
    if (count > static_cast<int32_t>(attachments.size()))
        printf("    and %d more attachments\n", count - static_cast<int32_t>(attachments.size()));
    std::error_code error;
    if (std::filesystem::exists(PathIn(folder, RawFileName), error))
        PrintFile(folder, { RawFileName, "the message as it is" });
}
