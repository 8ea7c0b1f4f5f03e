// The mailboxes that the test mail server shows by IMAP: folders of messages, with what the protocol
// wants to be remembered of them.
#include "postbox.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

namespace fs = std::filesystem;

constexpr char Inbox[] = "INBOX";

struct KnownMessage {
    std::string Id;
    unsigned Uid;
    unsigned Flags; // sum of Flag
};

struct KnownMailbox {
    std::string Folder;
    std::vector<KnownMessage> Messages; // by their uids
    unsigned NextUid;
};

static std::vector<KnownMailbox>& Known()
{
    static std::vector<KnownMailbox> known;
    return known;
}

static KnownMailbox& KnownOf(const std::string& folder)
{
    for (KnownMailbox& mailbox : Known())
        if (mailbox.Folder == folder)
            return mailbox;
    return Known().emplace_back(KnownMailbox{ folder, {}, 1 });
}

// --- folders ---

// Names are plain, so that none leads out of the server's folder.
static bool IsPlainName(std::string_view name)
{
    constexpr std::string_view extra = " -_.&+,"; // '&' begins letters of other alphabets
    constexpr size_t mostChars = 64;
    if (name.empty() || name.size() > mostChars || name[0] == '.')
        return false;
    return std::all_of(name.begin(), name.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               extra.find(c) != std::string_view::npos;
    });
}

std::string FolderOfMailbox(const char* root, std::string_view name)
{
    if (EqualNoCase(name, Inbox))
        return root;
    return IsPlainName(name) ? std::string(root) + "/" + std::string(name) : "";
}

bool MailboxExists(const std::string& folder)
{
    std::error_code error;
    return !folder.empty() && fs::is_directory(folder, error);
}

std::vector<std::string> ListMailboxes(const char* root)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(root, error))
        if (const std::string name = entry.path().filename().string();
            entry.is_directory(error) && IsPlainName(name))
            names.push_back(name);
    std::sort(names.begin(), names.end());
    names.insert(names.begin(), Inbox);
    return names;
}

bool CreateMailbox(const std::string& folder)
{
    std::error_code error;
    return fs::create_directory(folder, error); // false also if it is there
}

bool RenameMailbox(const std::string& folder, const std::string& newFolder)
{
    std::error_code error;
    if (fs::exists(newFolder, error))
        return false;
    fs::rename(folder, newFolder, error);
    if (!error)
        KnownOf(folder).Folder = newFolder;
    return !error;
}

bool RemoveMailbox(const std::string& folder)
{
    std::error_code error;
    std::erase_if(Known(), [&](const KnownMailbox& mailbox) { return mailbox.Folder == folder; });
    fs::remove_all(folder, error);
    return !error;
}

// --- messages ---

std::vector<StoredMessage> ListByUid(const std::string& folder)
{
    KnownMailbox& mailbox = KnownOf(folder);
    std::vector<StoredMessage> found = ListMessages(folder.c_str());
    std::vector<KnownMessage> still;
    for (const KnownMessage& known : mailbox.Messages)
        for (StoredMessage& message : found)
            if (message.Id == known.Id) {
                message.Uid = known.Uid;
                still.push_back(known);
            }
    for (StoredMessage& message : found)
        if (message.Uid == 0) {
            message.Uid = mailbox.NextUid++;
            still.push_back({ message.Id, message.Uid, 0 });
        }
    mailbox.Messages = still;
    std::sort(found.begin(), found.end(),
              [](const StoredMessage& a, const StoredMessage& b) { return a.Uid < b.Uid; });
    return found;
}

unsigned NextUid(const std::string& folder)
{
    return KnownOf(folder).NextUid;
}

// Another server would give other uids.
unsigned UidValidity()
{
    static const auto began = static_cast<unsigned>(time(nullptr) & 0x7FFFFFFF);
    return began;
}

unsigned* FlagsOf(const std::string& folder, unsigned uid)
{
    for (KnownMessage& message : KnownOf(folder).Messages)
        if (message.Uid == uid)
            return &message.Flags;
    return nullptr;
}
