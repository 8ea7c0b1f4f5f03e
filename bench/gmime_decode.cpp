// The decoding by GMime; see gmime_decode.h. Of its streams the mapped file to read from and the
// plain descriptor to write to cost least.
#include "bench/gmime_decode.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

struct Target {
    std::string Folder;
    GMimeStream* Mail;
    bool IsRight;
};

void GmimePrepare()
{
    g_mime_init();
}

static GMimeStream* Create(const std::string& path)
{
    return g_mime_stream_fs_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600, nullptr);
}

static void WritePart(GMimeObject*, GMimeObject* object, gpointer data)
{
    if (!GMIME_IS_PART(object))
        return;
    Target& target = *static_cast<Target*>(data);
    GMimePart* part = GMIME_PART(object);
    GMimeDataWrapper* content = g_mime_part_get_content(part);
    const char* name = g_mime_part_get_filename(part);
    GMimeStream* out = target.Mail;
    if (name != nullptr)
        out = Create(target.Folder + "/" + name);
    if (out == nullptr || g_mime_data_wrapper_write_to_stream(content, out) < 0)
        target.IsRight = false;
    if (name != nullptr && out != nullptr) {
        g_mime_stream_flush(out);
        g_object_unref(out);
    }
}

static void WriteHead(GMimeMessage* message, GMimeStream* mail)
{
    const char* const names[] = { "Subject", "To", "Cc", "From", "Date" };
    std::string head;
    for (const char* name : names) {
        const char* value = g_mime_object_get_header(GMIME_OBJECT(message), name);
        if (value != nullptr)
            head += std::string(name) + ": " + value + "\r\n";
    }
    head += "\r\n";
    g_mime_stream_write(mail, head.data(), head.size());
}

// Takes the stream over.
static bool Decode(GMimeStream* source, const std::string& folder, const std::string& name)
{
    GMimeParser* parser = g_mime_parser_new_with_stream(source);
    GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
    g_object_unref(parser);
    Target target = { folder, Create(folder + "/" + name), message != nullptr };
    if (message != nullptr && target.Mail != nullptr) {
        WriteHead(message, target.Mail);
        g_mime_message_foreach(message, WritePart, &target);
        g_mime_stream_flush(target.Mail);
        g_object_unref(target.Mail);
    }
    if (message != nullptr)
        g_object_unref(message);
    g_object_unref(source);
    return target.IsRight && target.Mail != nullptr;
}

bool GmimeDecodeFile(const std::string& file, const std::string& folder, const std::string& name)
{
    const int descriptor = open(file.c_str(), O_RDONLY);
    if (descriptor < 0)
        return false;
    return Decode(g_mime_stream_mmap_new(descriptor, PROT_READ, MAP_PRIVATE), folder, name);
}

bool GmimeDecodeBytes(GByteArray* bytes, const std::string& folder, const std::string& name)
{
    GMimeStream* stream = g_mime_stream_mem_new();
    g_mime_stream_mem_set_byte_array(GMIME_STREAM_MEM(stream), bytes);
    return Decode(stream, folder, name);
}
