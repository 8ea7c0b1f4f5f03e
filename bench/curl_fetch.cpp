// The fetch by libcurl; see curl_fetch.h.
#include "bench/curl_fetch.h"

void CurlPrepare()
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

static size_t Keep(char* bytes, size_t size, size_t count, void* data)
{
    g_byte_array_append(static_cast<GByteArray*>(data), reinterpret_cast<const guint8*>(bytes),
                        static_cast<guint>(size * count));
    return size * count;
}

CURL* CurlOpen()
{
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_USERNAME, "user");
    curl_easy_setopt(curl, CURLOPT_PASSWORD, "secret");
    curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, static_cast<long>(CURL_MAX_READ_SIZE));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Keep);
    return curl;
}

void CurlClose(CURL* curl)
{
    curl_easy_cleanup(curl);
}

std::string Pop3Address(uint16_t port, size_t number)
{
    return "pop3://127.0.0.1:" + std::to_string(port) + "/" + std::to_string(number);
}

std::string ImapAddress(uint16_t port, size_t number)
{
    return "imap://127.0.0.1:" + std::to_string(port) +
           "/INBOX/;MAILINDEX=" + std::to_string(number);
}

bool CurlFetch(CURL* curl, const std::string& address, GByteArray* target)
{
    g_byte_array_set_size(target, 0);
    curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, target);
    return curl_easy_perform(curl) == CURLE_OK;
}
