// rynMakeXOAuth2: the text that a host gives as the password for XOAUTH2.
#include "frame/settings.h"
#include "include/ryn32.h"

#include <cstring>

static char* Append(char* place, const char* text)
{
    const size_t length = strlen(text);
    memcpy(place, text, length); // NOLINT(bugprone-not-null-terminated-result): more follows
    return place + length;
}

int32_t rynMakeXOAuth2(const char* user, const char* token, char* buffer)
{
    constexpr char Separator = 1;
    if (user == nullptr)
        return RefuseNull(101);
    if (token == nullptr)
        return RefuseNull(102);
    if (buffer == nullptr)
        return RefuseNull(103);
    char* place = Append(buffer, "user=");
    place = Append(place, user);
    *place++ = Separator;
    place = Append(place, "auth=Bearer ");
    place = Append(place, token);
    *place++ = Separator;
    *place++ = Separator;
    *place = 0;
    return static_cast<int32_t>(place - buffer);
}
