// The record of one channel: everything that a conversation needs, made by rynAttach and destroyed
// by rynRelease. One flat record of plain fields, zero-filled at birth; it lives in memory block
// slot 0 of its channel. A text of n chars is [n + 1]; a pointer is null or points into a live
// memory block of the channel unless told otherwise.
#pragma once

#include "codec/base64.h"
#include "include/ryn32.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

constexpr size_t ScratchCapacity = 65537;
constexpr size_t CommandCapacity = 65537;
constexpr size_t ReplyCapacity = 16386;
constexpr int32_t ReplyReadCapacity = 8192; // what reads of server lines use of ReplyBuffer
constexpr size_t WindowCapacity = 16384;    // what the message window uses of its field
constexpr size_t FetchPathChars = 256;      // of folders, file names and the two joined
constexpr size_t AltBoundaryCount = 8;
constexpr size_t BoundaryChars = 256; // the two hyphens in front among them

// Values of SearchCursor that are no index.
constexpr int32_t SEARCH_AT_START = -1;
constexpr int32_t SEARCH_AT_END = -2;

// What of a reply that counts already, a refusal or an overlong one, is still to come.
enum ReplyRest : uint8_t {
    REST_NONE,
    REST_LINES,  // further lines, behind what the buffer has cut off the first
    REST_OF_LINE // what the buffer has cut off the last line
};

// A boundary of a nested multipart.
struct MimeBoundary {
    int32_t Length; // 0 = free
    char Text[BoundaryChars + 1];
};

// A header value that grows on the heap: every line of it ends in a single LF.
struct HeaderStore {
    char* Text;       // owned; null = nothing yet
    int32_t Capacity; // bytes allocated
    int32_t Used;     // without the terminating zero
};

struct Channel {
    // --- identity ---
    uint32_t LocalBindAddress; // host order, 0 = none
    int32_t ChannelNumber;
    char LocalHostName[64 + 1]; // name for HELO and EHLO; empty = worked out

    // --- work buffers; the first byte of the second and third is cleared by every rynDriver ---
    char ScratchBuffer[ScratchCapacity];    // where log lines are formatted
    char CommandBuffer[CommandCapacity];    // what a state sends
    char ReplyBuffer[ReplyCapacity];        // where server lines arrive
    char MessageWindow[WindowCapacity + 4]; // read window of the message text

    // --- texts of the session ---
    char LastReply[2048 + 1]; // head of the server's last reply
    char ServerName[256 + 1]; // name or dotted quad
    char FromAddress[256 + 1];
    char ReplyToAddress[256 + 1];
    char UserName[64 + 1];
    char Password[64 + 1]; // POP3 and IMAP
    char AuthPassword[2048 + 1];
    char AuthScratch[512 + 1]; // the decoded challenge, then the answer to it
    char AuthLines[2048 + 1];  // what the server's AUTH lines offer
    char LastRecipient[32 + 1];
    char ErrorFileName[128 + 1]; // path that the last failed operation met
    char ExtraLine[256 + 1];     // last line of each message text; empty = none
    char ListArguments[16 + 1];  // of the IMAP LIST
    char RawCommand[32 + 1];     // of rynCommand

    // --- what the last fetch saved; lists by AttachDelimiter ---
    char AttachList[5121 + 1];
    char TypeList[5121 + 1];
    char IdList[5121 + 1];

    // --- message being sent: texts in memory slots 1 to 9, written by the send operations ---
    char* ToList;
    char* CcList;
    char* BccList;
    char* SubjectText;
    const char* MessageText; // moves on as it is read; a fixed empty text if none was given
    char* InlineText;
    char* AltText;
    char* AttachmentText;
    char* ExtraHeaders;
    char* RecipientCursor;  // rest of the list in hand, behind the address in hand
    char* CurrentRecipient; // address in hand
    char* RecipientEnd;     // its delimiter, overwritten by 0 meanwhile; null = last of its list
    char* AttachBegPtr;     // list entry in hand
    char* AttachEndPtr;     // next entry; an empty text behind the last

    // --- recipients ---
    int32_t AcceptedRecipients; // in this send
    int32_t CcStarted;          // 1 = list walked, being walked or absent
    int32_t BccStarted;
    int32_t VerifyResult; // 1 or 0, of the last VRFY
    ReplyRest OpenReply;

    // --- connection ---
    int32_t VSock;       // -1 = none
    int32_t StunnelSlot; // -1 = no tunnel process
    uint16_t ServerPort; // of the connection under way
    uint16_t SmtpPort;   // starts at 25
    uint16_t Pop3Port;   // starts at 110
    uint16_t ImapPort;   // starts at 143
    char Protocol;       // 'S', 'P', 'I' or 0
    uint8_t TargetMode;  // 1 = writes to a target file
    uint8_t SourceMode;  // 1 = reads from a source file
    uint8_t TestConnectOnly;
    int32_t NonBlockingConnect;

    // --- driver: written by states and operations, read by rynDriver ---
    int32_t NextState;         // state of the next call; ST_IDLE = nothing to do
    int32_t ThisState;         // state being run; -1 between calls
    int32_t PrevState;         // state run before; starts at -2
    int32_t AfterConnectState; // entered when the connection stands
    uint32_t NotBeforeTick;    // ms tick; 0 = no restraint
    uint32_t DeadlineTick;     // ms tick; 0 = no deadline
    uint8_t WaitWritable;      // 1 = the socket must take data before a state is run
    uint8_t WaitsForPeer;      // 1 = the last state found nothing to read; RunDriver may pause
    int32_t AutoCallDriver;    // 1 = operations loop on the driver
    uint32_t DriverCalls;      // states run
    int32_t LastSockCode;      // socket status of the last failure, 0 = none
    uint32_t ReplyCode;        // number of the last reply

    // --- traffic of the message in hand, in bytes ---
    uint32_t MsgBytesRead;
    uint32_t AttachBytesRead;
    uint32_t MsgBytesSent;
    uint32_t AttachBytesSent;

    // --- virtual files, owned; 0 = none ---
    int32_t LogHandle;
    int32_t RcptTraceFile;
    int32_t AttachHandle; // the message text or attachment being read, or the one being saved
    int32_t AltHandle;    // the plain alternative being read

    // --- reading the message text ---
    int32_t MessageInMemory; // 1 = from MessageText, 0 = from AttachHandle
    int32_t WindowPos;       // next byte of MessageWindow
    int32_t WindowEnd;       // behind its last byte
    int32_t WindowAtEof;     // 1 = the source holds no more
    char PeekedChar;         // read ahead; 0 = none

    // --- shape of the message being sent ---
    int32_t MessageType; // 0 to 31
    uint8_t HtmlCharset;
    uint8_t IsHtml;
    uint8_t IsForward;
    uint8_t MixedOpen;        // 1 = the outer boundary is in force
    uint8_t InlinePending;    // 1 = AttachBegPtr walks InlineText
    uint8_t IsImage;          // of the entry in hand
    uint8_t AttachParamCount; // parameter sets that this send has
    uint8_t AttachParamIndex; // the next one to use
    int32_t ContentIdCount;   // number of the last Content-ID

    // --- settings of rynIntegerParam ---
    uint8_t UseEhlo;
    uint8_t UseApop;
    uint8_t AuthMethods;
    uint8_t IgnoreRcptRefusal;
    uint8_t SendXMailer;
    uint8_t SendXMailAgent;
    uint8_t MultipartKind;
    uint8_t NoRelatedPart;
    uint8_t FilenamePageCode;
    uint8_t QuoteAttachments;
    uint8_t DetectImages;
    uint8_t DetectPdf; // starts at 1, as the next; no parameter changes them
    uint8_t DetectWav;
    uint8_t DecodeState;
    uint8_t TagTextParts;
    uint8_t Rfc822Keep;
    uint8_t SkipAttachData;
    uint8_t RawPrefix;
    uint8_t NoExpunge;
    int32_t AttachNumbering;
    int32_t AttachNumberBase;
    int32_t SaveUnnamedBase64;
    int32_t AttCounter;

    // --- mailbox: written by the mailbox operations, then by the fetch states ---
    int32_t EmailCount;
    int32_t MessageNumber; // from 1; below 1 asks UIDL for a list
    int32_t MessageSize;
    int32_t MessageLines; // body lines that TOP asks for
    char* UserBuffer;     // the host's, or memory slot 10; null = none
    int32_t UserBufferSize;
    int32_t UserBufferUsed;
    int32_t ImapCount; // messages that SELECT reported
    int32_t ImapUidValidity;
    char ImapTag[16 + 1];   // of every command of the session
    char ImapOkTag[32 + 1]; // tag, a blank, "OK": what ends a message
    char ImapNoTag[32 + 1];
    uint8_t ImapOkLength;
    uint8_t ImapNoLength;
    uint8_t ImapFlags;          // bits to store, or read from the server
    char MailboxName[128 + 1];  // selected
    const char* SearchCriteria; // the host's; null = no search under way
    char* SearchTarget;         // the host's buffer; null = no search under way
    char* SearchBuffer;         // result of the last search, memory slot 11; null = none
    int32_t SearchSize;         // of the host's buffer, then the length of the result
    int32_t SearchCursor;       // index in the result where the walk goes on, or SEARCH_AT_ value

    // --- files of a fetch: virtual handles, owned; 0 = none. The attachment has AttachHandle ---
    char EmailName[FetchPathChars + 1];
    char EmailDir[FetchPathChars + 1];
    char EmailPath[FetchPathChars + 1];
    char AttachDir[FetchPathChars + 1];
    char AttachPath[FetchPathChars + 1];
    int32_t EmailHandle; // the message file
    int32_t RawFile;     // the raw copy
    uint32_t RawBytes;   // written to it
    uint32_t RawLines;   // offered to it

    // --- the line that ReadServerLine gave last ---
    uint8_t LineIsOpen;  // 1 = its end is still to come
    uint8_t LineIsPiece; // 1 = its beginning came before

    // --- decoder: cleared when a fetch starts ---
    int32_t TransferEncoding; // TE_ value of the body in hand
    uint8_t MimeSeen;         // 1 = the version line of MIME was there
    uint8_t HeadersDone;      // 1 = the head of a MIME message is over
    uint8_t PartInline;       // 1 = the part's text goes to the message file
    uint8_t TextContent;      // 1 = the message as a whole is text
    uint8_t Rfc822Seen;       // 1 = inside the headers of a nested message's part
    uint8_t Rfc822HasDisposition;
    uint8_t Rfc822Decoding;  // 1 = that message is to be decoded
    uint8_t RFC822WriteFlag; // 1 = headers of a nested message are passing by
    uint8_t UtfFilename;     // 1 = Filename is UTF-8
    Base64Carry Carry;
    char Filename[FetchPathChars + 1];
    char PartType[256 + 1];
    char PartId[256 + 1]; // Content-ID of the part, or "nul"
    int32_t AttachCount;  // attachments saved of this message
    int32_t AttachTotal;  // of all messages

    // --- boundaries: the two hyphens in front belong to them ---
    int32_t MainBoundaryLength; // 0 = none
    char MainBoundary[BoundaryChars + 1];
    MimeBoundary AltBoundary[AltBoundaryCount];
    int32_t BoundaryCount; // boundary lines met

    // --- header values of the message ---
    char HeaderDate[256 + 1];
    char HeaderContentType[256 + 1];
    HeaderStore SubjectStore;
    HeaderStore ToStore;
    HeaderStore CcStore;
};

// Channels attached; 0 = the library is not attached. Published last by rynAttach.
extern std::atomic<uint32_t> ChannelCount;
extern Channel* ChannelTable[RYN_MAX_CHANNELS];

// The two guards of every operation with a channel: 0, RYN_ERR_NOT_ATTACHED or
// RYN_ERR_CHANNEL_RANGE.
int32_t GuardChannel(uint32_t channel);

// Makes channel number index with its start values; 1 or RYN_ERR_NO_MEMORY.
int32_t CreateChannel(int32_t index);

// Closes the channel's socket, if it has one, and forgets it: the result of vsClose, or 999.
int32_t CloseChannelSocket(Channel& ch);

// Lets go of an attached source or target file and of the socket number that stood for it.
void DetachFiles(Channel& ch);

// Closes the message text and the alternative that a broken send left open.
void CloseTransferFiles(Channel& ch);
void CloseRecipientTrace(Channel& ch);
