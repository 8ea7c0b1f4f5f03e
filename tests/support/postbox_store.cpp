// The folder of messages behind the test mail server: two files a message.
#include "postbox.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

static std::string MessagePath(const char* folder, unsigned number, const char* ending)
{
    char name[32];
    snprintf(name, sizeof name, "/%04u.%s", number, ending);
    return std::string(folder) + name;
}

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
