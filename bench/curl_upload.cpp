// The upload by libcurl; see curl_upload.h.
#include "bench/curl_upload.h"

#include "include/ryn32.h"

#include <cstdio>
#include <cstring>
#include <curl/curl.h>
#include <string>

static constexpr size_t LineBytes = 57;
static constexpr size_t LineChars = 78; // with CR LF

struct Upload {
    FILE* File;
    std::string Rest; // made and not yet taken
    bool IsOver;
};

static const char Head[] = "From: <a@x.example>\r\nTo: <b@y.example>\r\nSubject: bench\r\n"
                           "MIME-Version: 1.0\r\n"
                           "Content-Type: multipart/mixed; boundary=\"B\"\r\n\r\n--B\r\n"
                           "Content-Type: application/octet-stream; name=\"a.bin\"\r\n"
                           "Content-Transfer-Encoding: base64\r\n\r\n";

// Encodes as many whole lines as the buffer of libcurl takes straight into it.
static size_t Read(char* buffer, size_t size, size_t count, void* data)
{
    Upload& upload = *static_cast<Upload*>(data);
    const size_t room = size * count;
    if (!upload.Rest.empty()) {
        const size_t taken = upload.Rest.size() < room ? upload.Rest.size() : room;
        memcpy(buffer, upload.Rest.data(), taken);
        upload.Rest.erase(0, taken);
        return taken;
    }
    static char bytes[1 << 16];
    const size_t lines = (room - 1) / LineChars;
    const size_t wanted =
        lines * LineBytes < sizeof bytes ? lines * LineBytes : sizeof bytes / 57 * 57;
    const size_t got = fread(bytes, 1, wanted, upload.File);
    if (got > 0)
        return static_cast<size_t>(rynEncodeBuffer(bytes, buffer, static_cast<int32_t>(got)));
    if (upload.IsOver)
        return 0;
    upload.IsOver = true;
    static const char end[] = "\r\n--B--\r\n";
    memcpy(buffer, end, sizeof end - 1);
    return sizeof end - 1;
}

bool CurlSendAttachment(uint16_t port, const char* file)
{
    Upload upload = { fopen(file, "rb"), Head, false };
    CURL* curl = curl_easy_init();
    curl_slist* to = curl_slist_append(nullptr, "<b@y.example>");
    const std::string url = "smtp://127.0.0.1:" + std::to_string(port) + "/x.example";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<a@x.example>");
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, to);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, Read);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    const CURLcode result = curl_easy_perform(curl);
    curl_slist_free_all(to);
    curl_easy_cleanup(curl);
    fclose(upload.File);
    return result == CURLE_OK;
}
