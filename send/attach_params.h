// The parameter sets of attachments: up to four sets of a Content-Type line, an encoding line, a
// disposition line and an extra line, given by the host for the whole process. Set n belongs to entry
// n of a send, counted over inline images and attachments together.
#pragma once

#include <cstdint>

enum AttachParamKind : int32_t {
    ATTACH_TYPE,
    ATTACH_ENCODING,
    ATTACH_DISPOSITION,
    ATTACH_EXTRA,
    AttachParamKinds
};

// Forgets all sets.
void ClearAttachParams();

// Sets given, 0 to 4.
uint8_t AttachSetCount();

// A line of a set; null for an absent one.
const char* GetAttachParam(AttachParamKind kind, int32_t set);
