// The growing texts behind Subject, To and Cc.
#include "decode/header_store.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "platform/platform.h"

#include <cstring>

constexpr int32_t StoreStep = 1024;
constexpr int32_t StoreBound = 1024 * 1024; // bytes that one header may take

// Room for needed bytes, and half as much again so that a long header is not copied for each of its
// lines: false without memory.
static bool GrowStore(HeaderStore& store, int32_t needed)
{
    const int32_t wanted = needed + store.Used / 2;
    const int32_t capacity = (wanted + StoreStep - 1) / StoreStep * StoreStep;
    char* text = static_cast<char*>(osAllocate(static_cast<size_t>(capacity)));
    if (text == nullptr)
        return false;
    if (store.Text != nullptr)
        memcpy(text, store.Text, static_cast<size_t>(store.Used));
    osFree(store.Text);
    store.Text = text;
    store.Capacity = capacity;
    return true;
}

int32_t AppendHeaderStore(HeaderStore& store, const char* line)
{
    const int32_t length = TextLength(line);
    const int32_t needed = store.Used + length + 1;
    if (needed > StoreBound || (needed > store.Capacity && !GrowStore(store, needed)))
        return length;
    memcpy(store.Text + store.Used, line, static_cast<size_t>(length) + 1);
    store.Used += length;
    if (store.Used >= 2 && memcmp(store.Text + store.Used - 2, "\r\n", 2) == 0) {
        memcpy(store.Text + store.Used - 2, "\n", 2);
        store.Used--;
    }
    return length;
}

void EmptyHeaderStores(Channel& ch)
{
    for (HeaderStore* store : { &ch.SubjectStore, &ch.ToStore, &ch.CcStore }) {
        store->Used = 0;
        if (store->Text != nullptr)
            store->Text[0] = 0;
    }
}

void FreeHeaderStores(Channel& ch)
{
    for (HeaderStore* store : { &ch.SubjectStore, &ch.ToStore, &ch.CcStore }) {
        osFree(store->Text);
        *store = {};
    }
}
