// Virtual files: all file access goes through small positive numbers, 1 to 255, that index one
// table; 0 means no file, everywhere. A name that ends in '*' and a digit from 0 to 7 opens a block
// of the host's memory for reading.
#pragma once

#include <cstdint>

struct Channel;

constexpr char FileIndexChar = '*';
constexpr int32_t MemoryFileCount = 8;

// Opens for reading; mode is kept for the callers' words and not looked at, utf8 opens the name by
// its wide form and knows no memory files. The handle; 0: the table is full;
// RYN_ERR_CANNOT_OPEN_FILE, RYN_ERR_INDEX_RANGE, RYN_ERR_BAD_UTF8.
int32_t u_Open(const char* name, int32_t mode, bool utf8);

// Values of u_Create's mode.
constexpr int32_t FILE_OF_HOST = 0;
constexpr int32_t FILE_OF_PEER = 1; // a message has named it: neither a link nor a device is opened

// Tells what u_Open would for a name, without a trace: 0 or above if it can be opened.
int32_t u_Probe(const char* name);

// Makes a new empty file for writing: as u_Open, with RYN_ERR_CANNOT_CREATE_FILE.
int32_t u_Create(const char* name, int32_t mode, bool utf8);

// Bytes read; 0 at the end, on failure and for handle 0; RYN_ERR_NULL_POINTER for a memory file
// whose memory is null.
int32_t u_Read(int32_t handle, void* buffer, int32_t count);

// Bytes written; 0 on failure and for handle 0.
int32_t u_Write(int32_t handle, const void* bytes, int32_t count);

// From here on what is written to the file waits beneath its handle, up to WriteGatherBytes, for
// u_Flush or u_Close. Once the disk has refused any of it a later u_Write answers 0; a refusal of the
// last of it is not told.
constexpr int32_t WriteGatherBytes = 32768;
void u_GatherWrites(int32_t handle);
void u_Flush(int32_t handle);

// Closes a file; a memory file's content is forgotten. Handle 0 is ignored.
void u_Close(int32_t handle);

// The content of memory file index, 0 to 7: the host's memory and the bytes left to read in it.
void SetMemoryFile(int32_t index, const void* pointer, uint32_t size);
void ClearMemoryFiles();

// The system's error number of the last failed open or create; 0 after a good one.
int32_t LastFileError();
void SetLastFileError(int32_t error);

// 1 if a file can be opened, else 0 with its name in the channel's ErrorFileName; the channel may be
// null.
int32_t TestFileExists(Channel* ch, const char* name);

// 1 if a file can be made in that folder, else 0 with the folder in the channel's ErrorFileName.
// Never touches a file that it did not make.
int32_t TestDirWritable(Channel* ch, const char* directory);

// Shows a text to whoever runs the program; never waits.
void ShowNotice(const char* text);
