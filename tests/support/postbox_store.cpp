// The folder of messages behind the test mail server: two files a message.
#include "postbox.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

static std::string MessagePath(const char* folder, unsigned number, const char* ending)
{
    char name[32];
    snprintf(name, sizeof name, "/%04u.%s", number, ending);
    return std::string(folder) + name;
}

// --- taking ---

static bool WriteAndClose(int file, std::string_view bytes)
{
    bool written = true;
    while (written && !bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        written = count > 0;
        if (written)
            bytes.remove_prefix(static_cast<size_t>(count));
    }
    return close(file) == 0 && written;
}

static bool WriteNewFile(const std::string& path, std::string_view bytes)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    return file >= 0 && WriteAndClose(file, bytes);
}

bool StoreMessage(const char* folder, std::string_view envelope, std::string_view message)
{
    // The envelope claims the number, so that two servers may share a folder.
    unsigned number = 0;
    int file = -1;
    std::string envelopePath;
    while (file < 0 && number < 9999) {
        envelopePath = MessagePath(folder, ++number, "envelope");
        file = open(envelopePath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    }
    if (file < 0)
        return false;
    const std::string partPath = MessagePath(folder, number, "part");
    const std::string messagePath = MessagePath(folder, number, "eml");
    const bool stored = WriteAndClose(file, envelope) && WriteNewFile(partPath, message) &&
                        rename(partPath.c_str(), messagePath.c_str()) == 0;
    if (!stored) {
        unlink(partPath.c_str());
        unlink(envelopePath.c_str());
    }
    return stored;
}

// --- handing out ---

static std::string ReadWholeFile(const std::string& path)
{
    std::string bytes;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return bytes;
    char block[65536];
    ssize_t count;
    while ((count = read(file, block, sizeof block)) > 0)
        bytes.append(block, static_cast<size_t>(count));
    close(file);
    return bytes;
}

std::string ReadMessage(const char* folder, unsigned number)
{
    // A test may have put the file there with line ends of its own.
    std::string message;
    for (const char c : ReadWholeFile(MessagePath(folder, number, "eml"))) {
        if (c == '\n' && !message.ends_with('\r'))
            message += '\r';
        message += c;
    }
    if (!message.empty() && !message.ends_with('\n'))
        message += "\r\n";
    return message;
}

// Number of a message by its file's name, 0 for any other file.
static unsigned NumberOf(const char* name)
{
    unsigned number = 0;
    int length = 0;
    const bool isMessage =
        sscanf(name, "%4u.eml%n", &number, &length) == 1 && length > 0 && name[length] == 0;
    return isMessage ? number : 0;
}

// Number and FNV-1a hash of a message.
static std::string IdOf(unsigned number, std::string_view message)
{
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : message)
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    char id[32];
    snprintf(id, sizeof id, "%04u-%016llx", number, static_cast<unsigned long long>(hash));
    return id;
}

std::vector<StoredMessage> ListMessages(const char* folder)
{
    std::vector<unsigned> numbers;
    DIR* opened = opendir(folder);
    while (const dirent* entry = opened ? readdir(opened) : nullptr)
        if (const unsigned number = NumberOf(entry->d_name); number > 0)
            numbers.push_back(number);
    if (opened)
        closedir(opened);
    std::sort(numbers.begin(), numbers.end());
    std::vector<StoredMessage> messages;
    for (const unsigned number : numbers) {
        const std::string message = ReadMessage(folder, number);
        messages.push_back({ number, message.size(), IdOf(number, message), false, 0 });
    }
    return messages;
}

bool RemoveMessage(const char* folder, unsigned number)
{
    unlink(MessagePath(folder, number, "envelope").c_str());
    return unlink(MessagePath(folder, number, "eml").c_str()) == 0;
}
