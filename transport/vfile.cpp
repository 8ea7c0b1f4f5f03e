// The virtual file table, memory files, and the tests of paths.
#include "transport/vfile.h"

#include "codec/text.h"
#include "codec/utf8.h"
#include "frame/channel.h"
#include "frame/settings.h"
#include "platform/platform.h"

#include <algorithm>
#include <atomic>
#include <cstring>

constexpr int32_t TableSize = 256; // entry 0 is never used
constexpr int32_t MemoryMark = 0x70000000;

// An entry is 0 (free), a file of the system, or MemoryMark and the index of a memory file. Any
// thread may look through all of them, so they are atomic.
static std::atomic<int32_t> FileTable[TableSize];

struct MemoryFile {
    const char* Pointer; // the host's
    uint32_t Left;       // bytes
};
static MemoryFile FileBuffer[MemoryFileCount];

static std::atomic<int32_t> FileError = 0;

// What waits to be written, by handle. A handle has one user at a time; the memory of one that never
// gathers is never touched.
struct WriteGather {
    int32_t Count;    // bytes that wait
    uint8_t IsActive; // 1 = writes are gathered
    uint8_t IsBroken; // 1 = the disk has refused some of them
    char Bytes[WriteGatherBytes];
};
static WriteGather Gathers[TableSize];

int32_t LastFileError()
{
    return FileError.load(std::memory_order_relaxed);
}

void SetLastFileError(int32_t error)
{
    FileError.store(error, std::memory_order_relaxed);
}

void ShowNotice(const char* text)
{
    osNotice(text);
}

static int32_t StoreInFreeEntry(int32_t value)
{
    for (int32_t handle = 1; handle < TableSize; handle++) {
        // Whoever gave the entry up has done with what is gathered beneath it. Operations without a
        // channel take entries beside the lock.
        int32_t none = 0;
        if (FileTable[handle].compare_exchange_strong(none, value, std::memory_order_acquire,
                                                      std::memory_order_relaxed))
            return handle;
    }
    return 0;
}

// What stands in the table for a handle; 0 for one that no file has.
static int32_t EntryOf(int32_t handle)
{
    if (handle < 1 || handle >= TableSize)
        return 0;
    return FileTable[handle].load(std::memory_order_relaxed);
}

static bool IsMemoryFile(int32_t value)
{
    return (value & MemoryMark) == MemoryMark;
}

// The handle for a new entry; 0, with the file closed again, when the table is full.
static int32_t TakeEntry(int32_t value)
{
    const bool isShared = ChannelCount.load(std::memory_order_relaxed) > 1;
    if (isShared)
        osLockEnter(OS_LOCK_FILES);
    const int32_t handle = StoreInFreeEntry(value);
    if (isShared)
        osLockLeave(OS_LOCK_FILES);
    if (handle == 0 && !IsMemoryFile(value))
        osFileClose(value);
    return handle;
}

// True if a char is not written in its shortest form (RFC 3629, 3): a separator, or the end of the
// name, could be hidden so from whoever looks at the bytes.
static bool HasOverlongForm(const char* name)
{
    for (; *name != 0; name++) {
        const uint8_t first = static_cast<uint8_t>(name[0]);
        const uint8_t second = static_cast<uint8_t>(name[1]);
        if (first == 0xC0 || first == 0xC1 || (first == 0xE0 && second < 0xA0))
            return true;
    }
    return false;
}

// Makes a file by its wide name.
static int32_t CreateWide(const uint16_t* name, int32_t mode)
{
    return mode == FILE_OF_PEER ? osFileCreatePlainWide(name) : osFileCreateWide(name);
}

// Opens, or creates in a mode, by the wide form of a UTF-8 name: a file of the system or a status.
static int32_t OpenWide(const char* name, bool create, int32_t mode)
{
    const size_t length = strlen(name);
    uint16_t* wide = static_cast<uint16_t*>(osAllocate((length + 2) * sizeof(uint16_t)));
    if (wide == nullptr)
        return RYN_ERR_CANNOT_OPEN_FILE;
    int32_t result = DecodeUtf8Text(name, wide);
    if (result > 0 && mode == FILE_OF_PEER && HasOverlongForm(name))
        result = RYN_ERR_BAD_UTF8;
    if (result > 0) {
        result = create ? CreateWide(wide, mode) : osFileOpenWide(wide);
        if (result < 0) {
            SetLastFileError(-result);
            result = create ? RYN_ERR_CANNOT_CREATE_FILE : RYN_ERR_CANNOT_OPEN_FILE;
        }
    }
    osFree(wide);
    return result;
}

// The index behind the '*' of a name: decimal digits up to the first other char, so none is 0.
static int32_t ReadFileIndex(const char* digits)
{
    int32_t index = 0;
    for (; *digits >= '0' && *digits <= '9'; digits++) {
        index = index * 10 + (*digits - '0');
        if (index >= MemoryFileCount)
            return RYN_ERR_INDEX_RANGE;
    }
    return index;
}

static int32_t OpenMemoryFile(const char* name, const char* separator)
{
    const int32_t index = ReadFileIndex(separator + 1);
    if (index < 0)
        return index;
    const int32_t value = MemoryMark + index;
    const ptrdiff_t length = separator - name;
    const int shown = static_cast<int>(std::min(length, ptrdiff_t{ FormatCapacity }));
    char notice[FormatCapacity];
    FormatText(notice, sizeof notice, "u_Open: Index=%d, FilePtr='%.*s', Handle=%08x", index, shown,
               name, static_cast<uint32_t>(value));
    ShowNotice(notice);
    return TakeEntry(value);
}

int32_t u_Open(const char* name, int32_t, bool utf8)
{
    SetLastFileError(0);
    if (utf8) {
        const int32_t wide = OpenWide(name, false, FILE_OF_HOST);
        return wide > 0 ? TakeEntry(wide) : wide;
    }
    if (const char* separator = FindChar(name, FileIndexChar); separator != nullptr)
        return OpenMemoryFile(name, separator);
    const int32_t file = osFileOpen(name);
    if (file > 0)
        return TakeEntry(file);
    SetLastFileError(-file);
    return RYN_ERR_CANNOT_OPEN_FILE;
}

int32_t u_Probe(const char* name)
{
    const int32_t handle = u_Open(name, 0, false);
    const int32_t entry = EntryOf(handle);
    if (IsMemoryFile(entry)) // its content is the host's and still to be read
        FileTable[handle].store(0, std::memory_order_relaxed);
    else
        u_Close(handle);
    return handle;
}

int32_t u_Create(const char* name, int32_t mode, bool utf8)
{
    SetLastFileError(0);
    if (utf8) {
        const int32_t wide = OpenWide(name, true, mode);
        return wide > 0 ? TakeEntry(wide) : wide;
    }
    const int32_t file = mode == FILE_OF_PEER ? osFileCreatePlain(name) : osFileCreate(name);
    if (file > 0)
        return TakeEntry(file);
    SetLastFileError(-file);
    return RYN_ERR_CANNOT_CREATE_FILE;
}

static int32_t ReadMemory(MemoryFile& file, void* buffer, int32_t count)
{
    if (file.Left == 0 || count <= 0)
        return 0;
    if (file.Pointer == nullptr)
        return RefuseNull(101);
    const uint32_t wanted = static_cast<uint32_t>(count);
    const uint32_t taken = wanted < file.Left ? wanted : file.Left;
    memcpy(buffer, file.Pointer, taken);
    file.Pointer += taken;
    file.Left -= taken;
    return static_cast<int32_t>(taken);
}

int32_t u_Read(int32_t handle, void* buffer, int32_t count)
{
    const int32_t entry = EntryOf(handle);
    if (entry == 0)
        return 0;
    if (IsMemoryFile(entry))
        return ReadMemory(FileBuffer[entry - MemoryMark], buffer, count);
    const int32_t result = osFileRead(entry, buffer, count);
    return result < 0 ? 0 : result;
}

static void WriteGathered(int32_t handle, int32_t file)
{
    WriteGather& gather = Gathers[handle];
    if (gather.Count == 0)
        return;
    if (osFileWrite(file, gather.Bytes, gather.Count) != gather.Count)
        gather.IsBroken = 1;
    gather.Count = 0;
}

static int32_t GatherBytes(int32_t handle, int32_t file, const void* bytes, int32_t count)
{
    WriteGather& gather = Gathers[handle];
    if (count > WriteGatherBytes - gather.Count)
        WriteGathered(handle, file);
    if (gather.IsBroken != 0) // no hole: the file ends where the disk did
        return 0;
    if (count > WriteGatherBytes) {
        const int32_t result = osFileWrite(file, bytes, count);
        return result < 0 ? 0 : result;
    }
    memcpy(gather.Bytes + gather.Count, bytes, static_cast<size_t>(count));
    gather.Count += count;
    return count;
}

int32_t u_Write(int32_t handle, const void* bytes, int32_t count)
{
    if (handle == 0)
        return 0;
    char notice[FormatCapacity];
    if (handle < 0 || handle >= TableSize) {
        FormatText(notice, sizeof notice, "u_Write: Virtual handle %d out of range [0,%d]", handle,
                   TableSize);
        ShowNotice(notice);
        return 0;
    }
    if (count < 0) {
        FormatText(notice, sizeof notice, "u_Write: Error, BufLen %d < 0", count);
        ShowNotice(notice);
        return 0;
    }
    const int32_t entry = EntryOf(handle);
    if (entry == 0 || IsMemoryFile(entry))
        return 0;
    if (Gathers[handle].IsActive != 0)
        return GatherBytes(handle, entry, bytes, count);
    const int32_t result = osFileWrite(entry, bytes, count);
    return result < 0 ? 0 : result;
}

void u_GatherWrites(int32_t handle)
{
    if (EntryOf(handle) != 0)
        Gathers[handle].IsActive = 1;
}

void u_Flush(int32_t handle)
{
    const int32_t entry = EntryOf(handle);
    if (entry != 0 && !IsMemoryFile(entry))
        WriteGathered(handle, entry);
}

void u_Close(int32_t handle)
{
    const int32_t entry = EntryOf(handle);
    if (entry == 0)
        return;
    if (IsMemoryFile(entry))
        SetMemoryFile(entry - MemoryMark, nullptr, 0);
    else {
        WriteGathered(handle, entry);
        Gathers[handle].IsActive = 0;
        Gathers[handle].IsBroken = 0;
        osFileClose(entry);
    }
    FileTable[handle].store(0, std::memory_order_release);
}

void SetMemoryFile(int32_t index, const void* pointer, uint32_t size)
{
    FileBuffer[index] = { static_cast<const char*>(pointer), size };
}

void ClearMemoryFiles()
{
    memset(FileBuffer, 0, sizeof FileBuffer);
}

static void NoteErrorFile(Channel* ch, const char* name)
{
    if (ch != nullptr)
        CopyField(ch->ErrorFileName, name);
}

int32_t TestFileExists(Channel* ch, const char* name)
{
    const int32_t handle = *name == 0 ? RYN_ERR_NO_FILENAME : u_Open(name, 32, false);
    if (handle < 0) {
        NoteErrorFile(ch, name);
        return 0;
    }
    u_Close(handle);
    NoteErrorFile(ch, "");
    return 1;
}

// Makes and removes a file of its own below the folder: true if that worked. A name that is taken,
// by a link too, is somebody else's, and the next one is tried.
static bool MakeProbeFile(const char* directory, int32_t attempt)
{
    constexpr int32_t FolderChars = 265;
    char path[FolderChars + 16];
    char name[16];
    FormatText(name, sizeof name, attempt == 0 ? "$$$$$$.TMP" : "$$$$$%d.TMP", attempt);
    char folder[FolderChars + 1];
    CopyField(folder, directory);
    JoinPath(path, folder, name, sizeof path - 1);
    const int32_t file = osFileCreateNew(path);
    if (file < 0) {
        SetLastFileError(-file);
        return false;
    }
    osFileClose(file);
    osFileDelete(path);
    return true;
}

int32_t TestDirWritable(Channel* ch, const char* directory)
{
    constexpr int32_t ProbeAttempts = 10;
    if (*directory == 0)
        return 0;
    for (int32_t attempt = 0; attempt < ProbeAttempts; attempt++) {
        if (MakeProbeFile(directory, attempt)) {
            SetLastFileError(0);
            NoteErrorFile(ch, "");
            return 1;
        }
    }
    NoteErrorFile(ch, directory);
    return 0;
}
