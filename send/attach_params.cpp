// The parameter sets of attachments and rynAttachmentParams.
#include "send/attach_params.h"

#include "include/ryn32.h"

#include <cstring>

constexpr int32_t MostSets = 4;
constexpr size_t ParamBytes = 512; // the lines of one kind, with their terminators

// The lines of one kind, one behind the other, each ended by a zero.
struct ParamRecord {
    size_t Used;
    size_t Offsets[MostSets];
    char Text[ParamBytes];
};

static ParamRecord Records[AttachParamKinds];
static uint8_t SetCount;

void ClearAttachParams()
{
    memset(Records, 0, sizeof Records);
    SetCount = 0;
}

uint8_t AttachSetCount()
{
    return SetCount;
}

const char* GetAttachParam(AttachParamKind kind, int32_t set)
{
    if (set < 0 || set >= SetCount)
        return nullptr;
    const char* line = Records[kind].Text + Records[kind].Offsets[set];
    return *line == 0 ? nullptr : line;
}

// A set is added as a whole or not at all.
int32_t rynAttachmentParams(const char* contentType, const char* transferEncoding,
                            const char* disposition, const char* extraLine)
{
    if (contentType == nullptr) {
        ClearAttachParams();
        return 1;
    }
    const char* const lines[AttachParamKinds] = { contentType, transferEncoding, disposition,
                                                  extraLine };
    size_t sizes[AttachParamKinds];
    if (SetCount == MostSets)
        return 0;
    for (int32_t kind = 0; kind < AttachParamKinds; kind++) {
        sizes[kind] = lines[kind] == nullptr ? 1 : strnlen(lines[kind], ParamBytes) + 1;
        if (Records[kind].Used + sizes[kind] > ParamBytes)
            return 0;
    }
    for (int32_t kind = 0; kind < AttachParamKinds; kind++) {
        ParamRecord& record = Records[kind];
        record.Offsets[SetCount] = record.Used;
        if (lines[kind] != nullptr)
            memcpy(record.Text + record.Used, lines[kind], sizes[kind]);
        record.Used += sizes[kind]; // an absent line is the zero that stands there
    }
    SetCount++;
    return 1;
}
