/* ryn32.h: the whole public face of RYN32, a client-side e-mail engine with a flat C interface.
 *
 * A host attaches once, opens numbered channels to mail servers, sends messages through them and
 * releases the library at the end. A channel is one conversation with settings, log and socket of
 * its own. All work is done inside the host's calls: the library starts no thread, and loading it
 * does nothing.
 *
 * Driving. In automatic driving, the start value, an operation loops until its work is over and
 * returns the outcome. In manual driving (RYN_AUTO_CALL_DRIVER 0) it returns 0 at once, and the
 * host calls rynDriver until the answer is 0 or negative. Where an operation says "Manual", that is
 * what changes for it; where it says nothing, it works the same in both.
 *
 * Results. Negative: a status, below. Zero and above: success, a count or a handle.
 *
 * Guards. Every operation with a channel argument answers RYN_ERR_NOT_ATTACHED before rynAttach and
 * RYN_ERR_CHANNEL_RANGE for a channel that was not attached, before it looks at anything else,
 * unless told otherwise. "The two guards" below means these two.
 *
 * Texts are 8-bit and zero-terminated. A text that an operation stores is copied: the host's own
 * may go as soon as the call returns. Where a capacity is told as n chars, a longer text is cut
 * to n.
 *
 * Threads. A channel belongs to one thread at a time; different channels may run on different
 * threads at once. Settings marked "process" hold for all channels and are set while none runs.
 * rynAttach and rynRelease are called while no other call is under way.
 *
 * Safety. Addresses, commands and header texts go out as given: a host that takes them from
 * outside runs rynVerifyFormat on addresses and removes line ends first. In lists of files the
 * delimiters (';' '|' '*' from the start) and '"' have a meaning of their own: a name from outside must
 * hold none of them, or others are chosen by rynIntegerParam.
 */
#ifndef RYN32_H
#define RYN32_H

#include <stdint.h>

#if defined(__GNUC__)
#define RYN_API __attribute__((visibility("default")))
#else
#define RYN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The most channels that one process can attach, numbered from 0. */
#define RYN_MAX_CHANNELS 65

/* What rynDriver answers when it ran no state: the time isn't ripe, or the socket is full. */
#define DRIVER_NOT_YET 9999

/* --- Statuses. Each has a text, shown here, that rynErrorText gives and rynSetErrorText replaces;
 * "..." stands for the name of a file. Those below -10000 are the network's own errors. ----------- */

/* clang-format off */

#define RYN_CANNOT_COMPLY             (0) /* Cannot comply. */
#define RYN_ERR_SOCK_CLOSED           (-1) /* vSock has been closed. */
#define RYN_ERR_DIR_PROTECTED         (-6) /* Directory is protected by Windows */
#define RYN_ERR_INVALID_SOCKET        (-7) /* Invalid socket. */
#define RYN_ERR_TIMED_OUT             (-8) /* vSock timed out. */
#define RYN_ERR_NO_SOCKADDR           (-9) /* No available sockaddr structures. */
#define RYN_ERR_NO_HOST_NAME          (-12) /* No host name. */
#define RYN_ERR_CANNOT_CREATE_SOCKET  (-18) /* Cannot create socket. */
#define RYN_ERR_INDEX_RANGE           (-20) /* Index value out of range. */
#define RYN_ERR_EMPTY_ARGUMENT        (-21) /* Unexpected empty string. */
#define RYN_ERR_RESPONSE_OVERFLOW     (-31) /* Response buffer has overflowed. */
#define RYN_ERR_BAD_ADDRESS_CHAR      (-32) /* Bad character in email address. */
#define RYN_ERR_CANNOT_ACCESS_LIBRARY (-34) /* Cannot access DLL. */
#define RYN_ERR_CANNOT_OPEN_FILE      (-35) /* Cannot open file ... */
#define RYN_ERR_CONNECT_FAILED        (-36) /* Error attempting to connect. */
#define RYN_ERR_EMPTY_STRING          (-37) /* Unexpected empty string. */
#define RYN_ERR_FROM_IS_NULL          (-38) /* Required 'From:' argument is NULL. */
#define RYN_ERR_MISSING_AT            (-39) /* Missing '@' character in email address. */
#define RYN_ERR_MISSING_FROM          (-40) /* Missing FROM email address. */
#define RYN_ERR_MISSING_LEFT_ANGLE    (-41) /* Missing '<' delimiter in email address. */
#define RYN_ERR_MISSING_RIGHT_ANGLE   (-43) /* Missing '>' terminating email address. */
#define RYN_ERR_NOT_CONNECTED         (-44) /* Not connected to server */
#define RYN_ERR_NO_RECIPIENT          (-45) /* Must have at least one recipient. */
#define RYN_ERR_SERVER_NOT_FOUND      (-46) /* Cannot find SMTP/POP3 server. */
#define RYN_ERR_NULL_POINTER          (-47) /* Unexpected NULL pointer. */
#define RYN_ERR_PASSWORD_TOO_LONG     (-48) /* Password too large (max 2048 chars). */
#define RYN_ERR_SMTP_REPLY            (-49) /* SMTP returned error. */
#define RYN_ERR_NO_SERVER             (-50) /* SMTP/POP3 server not specified. */
#define RYN_ERR_SOCK_READ             (-51) /* vSock read error. */
#define RYN_ERR_SOCK_WRITE            (-52) /* vSock write error. */
#define RYN_ERR_TOO_MANY_AT           (-53) /* Too many '@' symbols in email address. */
#define RYN_ERR_NO_MEMORY             (-55) /* Cannot allocate memory. */
#define RYN_ERR_BAD_SERVER_NAME       (-56) /* Illegal chars in server name. */
#define RYN_ERR_NO_APOP_TIMESTAMP     (-57) /* APOP timestamp missing. */
#define RYN_ERR_SMTP_ONLY             (-58) /* SMTP function ONLY. */
#define RYN_ERR_POP3_ONLY             (-59) /* POP3 function ONLY. */
#define RYN_ERR_OBSOLETE_PARAM        (-60) /* Parameter is obsolete. */
#define RYN_ERR_NO_USER               (-61) /* USER name not specified. */
#define RYN_ERR_NO_PASSWORD           (-62) /* PASSWORD not specified. */
#define RYN_ERR_POP3_REPLY            (-63) /* POP3 returned error. */
#define RYN_ERR_NO_SUCH_MESSAGE       (-64) /* No such message number. */
#define RYN_ERR_NO_FILENAME           (-65) /* Missing filename. */
#define RYN_ERR_NO_EMAIL_PATH         (-66) /* Missing email path. */
#define RYN_ERR_CANNOT_CREATE_FILE    (-67) /* Cannot create file ... */
#define RYN_ERR_NULL_BUFFER           (-68) /* Buffer is NULL. */
#define RYN_ERR_BUFFER_TOO_SMALL      (-69) /* Buffer too small. */
#define RYN_ERR_NO_ATTACH_PATH        (-70) /* Missing path for attachments. */
#define RYN_ERR_NOT_ATTACHED          (-71) /* Must call rynAttach first. */
#define RYN_ERR_ALREADY_ATTACHED      (-72) /* Already attached (call rynAttach once). */
#define RYN_ERR_CHANNEL_RANGE         (-73) /* Channel out of range. */
#define RYN_ERR_NO_SUCH_FILE          (-75) /* No such file. */
#define RYN_ERR_PATH_NOT_ALLOWED      (-76) /* Filename only - path not allowed. */
#define RYN_ERR_NO_SUCH_PATH          (-77) /* No such path. */
#define RYN_ERR_IMAP_REPLY            (-78) /* IMAP returned error. */
#define RYN_ERR_IMAP_ONLY             (-79) /* IMAP function ONLY. */
#define RYN_ERR_POP3_OR_IMAP_ONLY     (-80) /* POP3 or IMAP function ONLY. */
#define RYN_ERR_IMAP_FLAG             (-81) /* IMAP flag error. */
#define RYN_ERR_IMAP_SEARCH           (-82) /* IMAP search error. */
#define RYN_ERR_BUFFER_OVERFLOW       (-83) /* Buffer overflow. */
#define RYN_ERR_PROXY_START           (-84) /* Could not start proxy server. */
#define RYN_ERR_PROXY_NOT_CONFIGURED  (-85) /* Proxy server not configured (rynSetProxySSL). */
#define RYN_ERR_NO_SUCH_OPTION        (-86) /* No such option. */
#define RYN_ERR_SYSTEM_HEADER         (-87) /* User not allowed to set system headers. */
#define RYN_ERR_NO_SUCH_PAGE_CODE     (-88) /* No such page code. */
#define RYN_ERR_NO_SUCH_VSOCK         (-89) /* No such (virtual) socket. */
#define RYN_ERR_INTERNAL              (-99) /* Internal RYN error. */
#define RYN_ERR_SIMULATED             (-100) /* Simulated error. */
#define RYN_WSAEINTR                  (-10004) /* Interrupted system call. */
#define RYN_WSAEBADF                  (-10009) /* Bad file number. */
#define RYN_WSAEACCES                 (-10013) /* Access denied. */
#define RYN_WSAEFAULT                 (-10014) /* Bad address. */
#define RYN_WSAEINVAL                 (-10022) /* Invalid argument. */
#define RYN_WSAEMFILE                 (-10024) /* Too many open files. */
#define RYN_WSAEWOULDBLOCK            (-10035) /* Would block socket in non-blocking mode. */
#define RYN_WSAEINPROGRESS            (-10036) /* Blocking call already in progress. */
#define RYN_WSAEALREADY               (-10037) /* Operation already completed. */
#define RYN_WSAENOTSOCK               (-10038) /* Not a valid socket. */
#define RYN_WSAEDESTADDRREQ           (-10039) /* Destination address required. */
#define RYN_WSAEMSGSIZE               (-10040) /* Message too big for buffer. */
#define RYN_WSAEPROTOTYPE             (-10041) /* Protocol mismatch. */
#define RYN_WSAENOPROTOOPT            (-10042) /* Protocol option invalid. */
#define RYN_WSAEPROTONOSUPPORT        (-10043) /* Protocol not supported. */
#define RYN_WSAESOCKTNOSUPPORT        (-10044) /* vSock type not supported. */
#define RYN_WSAEOPNOTSUPP             (-10045) /* vSock operation not supported. */
#define RYN_WSAEAFNOSUPPORT           (-10047) /* vSock address family not supported. */
#define RYN_WSAEADDRINUSE             (-10048) /* vSock address already in use. */
#define RYN_WSAEADDRNOTAVAIL          (-10049) /* vSock address not available. */
#define RYN_WSAENETDOWN               (-10050) /* Network error. */
#define RYN_WSAENETUNREACH            (-10051) /* Cannot reach network. */
#define RYN_WSAENETRESET              (-10052) /* Connection dropped. */
#define RYN_WSAECONNABORTED           (-10053) /* Connection timed-out or aborted. */
#define RYN_WSAECONNRESET             (-10054) /* Connection reset by remote host. */
#define RYN_WSAENOBUFS                (-10055) /* Out of buffer space. */
#define RYN_WSAEISCONN                (-10056) /* vSock already connected. */
#define RYN_WSAENOTCONN               (-10057) /* vSock not connected. */
#define RYN_WSAESHUTDOWN              (-10058) /* vSock functionality shut down. */
#define RYN_WSAETIMEDOUT              (-10060) /* Timed-out attempting to connect. */
#define RYN_WSAECONNREFUSED           (-10061) /* Connection refused by remote host. */
#define RYN_WSAEHOSTDOWN              (-10064) /* Host is down. */
#define RYN_WSAEHOSTUNREACH           (-10065) /* No route to host. */
#define RYN_WSASYSNOTREADY            (-10091) /* Network not yet ready. */
#define RYN_WSAVERNOTSUPPORTED        (-10092) /* WINSOCK doesn't support requested version. */
#define RYN_WSANOTINITIALISED         (-10093) /* vSocks not initialized. Call WSAStartup. */
#define RYN_WSAHOST_NOT_FOUND         (-11001) /* Host does not exist. */
#define RYN_WSATRY_AGAIN              (-11002) /* Host not found. Try again. */
#define RYN_WSANO_RECOVERY            (-11003) /* Non-recoverable error has occurred. */
#define RYN_WSANO_DATA                (-11004) /* No data is available. */

/* A name that is no UTF-8; has no text. */
#define RYN_ERR_BAD_UTF8 (-90)

/* --- Codes of rynIntegerParam. "channel": holds for the named channel until rynRelease.
 * "process": holds for all channels until the process ends. The start value stands in brackets.
 * Flags: 0 off, anything else on. Times are milliseconds. A setting of 8 or 16 bits takes the low
 * part of the value. -------------------------------------------------------------------------- */

#define RYN_COMMAND_GAP                1    /* process [25 and 0]: pause behind a command, and behind a line of message data, ms, cut at 536870911 (6 days) */
#define RYN_REPLY_TIMEOUT              2    /* process [30000, 60000, 60000, plus 2000 a channel at each rynAttach]: the waits for a reply, in message data and in a fetch, ms; all three get the value, cut at 536870911 (6 days) */
#define RYN_CONNECT_TIMEOUT            3    /* process [30000]: wait for a connection to stand */
#define RYN_MESSAGE_TYPE               8    /* channel [0]: type of the message text, low 5 bits; see rynSendEmail */
#define RYN_AUTO_CALL_DRIVER           9    /* channel [1]: low bit: 1 automatic driving, 0 manual driving */
#define RYN_ATTACH_NUMBERING           10   /* channel [0]: not 0: numbers in front of the names of saved attachments; above 0 the first of them, below 0 goes on */
#define RYN_POLL_DELAY                 13   /* process [100]: pause between two looks at a silent socket; sockets take it over at rynAttach */
#define RYN_SAVE_UNNAMED_BASE64        14   /* channel [0]: save Base64 parts that have no name */
#define RYN_SMTP_PORT                  15   /* channel [25]: 16 bits */
#define RYN_POP3_PORT                  16   /* channel [110]: 16 bits */
#define RYN_MAX_LINE_LENGTH            17   /* process [1000, folding from 900]: longest folded or quoted body line; folding at a blank then begins 25 chars before */
#define RYN_BLOCKING_CONNECT           18   /* channel [on]: 0 connects without blocking, any other value blocking */
#define RYN_KEEP_RAW_CHARS             19   /* process [0]: send the bytes of a message text as they are */
#define RYN_NO_ATTACH_NOTE             21   /* process [0]: no note about saved attachments in the message file */
#define RYN_NO_TO_HEADER               22   /* process [0]: no To line */
#define RYN_RECIPIENT_DELIMITER        23   /* process [';']: 8 bits; separates addresses */
#define RYN_INERT_24                   24   /* process: stored, without effect */
#define RYN_ATTACH_DELIMITER           25   /* process [';']: 8 bits; separates files */
#define RYN_NAME_SEPARATOR             26   /* process ['|']: 8 bits; between a file and its shown name */
#define RYN_DETECT_IMAGES              27   /* channel [1]: give images a media type of their own */
#define RYN_DECODE_MODE                28   /* channel [0]: 1 fetches without decoding, to a raw copy: set RYN_RAW_PREFIX too, see rynGetEmailFile */
#define RYN_USE_EHLO                   29   /* channel [0]: greet with EHLO and not with HELO */
#define RYN_USE_APOP                   30   /* channel [0]: log in to POP3 by APOP */
#define RYN_ATTACH_COUNTER             31   /* channel [0]: above 0: saved attachments are named by this running number */
#define RYN_IGNORE_RCPT_REFUSAL        32   /* channel [0]: a recipient that the server refuses ends the list: those behind it are not tried, and the message goes to those accepted before it, to nobody if it is the first. A refusal with a word like "relay" fails all the same */
#define RYN_TAG_TEXT_PARTS             33   /* channel [0]: mark text parts in the message file */
#define RYN_INDIRECTION_CHAR           34   /* process ['@']: 8 bits; a message text that begins with it names a file; 0: none does */
#define RYN_HTML_CHARSET               35   /* channel [0]: charset of an HTML text of message type 2; see rynSendHTML */
#define RYN_NO_HEADER_COPY             36   /* process [0]: no header lines in the message file */
#define RYN_KEEP_RFC822                37   /* channel [0]: keep nested messages as they are */
#define RYN_IMAP_PORT                  38   /* channel [143]: 16 bits */
#define RYN_EXPUNGE_ON_CLOSE           39   /* channel [on]: remove deleted IMAP mail at rynClose */
#define RYN_SKIP_ATTACH_DATA           40   /* channel [0]: attachments are made and listed, but stay empty */
#define RYN_IMAP_PARTIAL               41   /* process [0]: fetch IMAP mail in parts */
#define RYN_FILENAME_PAGE_CODE         42   /* channel [0]: page code (see rynMakeSubject) for the names of attachments; 15 also opens the file by its UTF-8 name */
#define RYN_SHOW_SECRETS               43   /* process [0]: show passwords in the log; the part that concerns sent lines works only while the channel has no socket */
#define RYN_QUOTE_ATTACHMENTS          60   /* channel [0]: attachments in 0 Base64; 1 quoted-printable, inline; other quoted-printable. Not 0, it quotes the message text too, and zero bytes of a file end its lines */
#define RYN_AUTH_METHODS               62   /* channel [7]: sum of 1 CRAM-MD5, 2 LOGIN, 4 PLAIN, 8 XOAUTH2 */
#define RYN_MAILER_HEADER              64   /* channel [1]: odd: an X-Mailer line; even: an X-Mail-Agent line */
#define RYN_COMMAS_IN_ADDRESS_HEADERS  67   /* process [1]: commas instead of the delimiter in To and CC lines */
#define RYN_MULTIPART_KIND             68   /* channel [0]: 2 multipart/alternative, 3 multipart/related, other multipart/mixed */
#define RYN_RAW_PREFIX                 70   /* channel [0]: not 0: a raw copy is kept, its name being this char and the message file's */
#define RYN_CONNECT_ATTEMPTS           75   /* process [3]: 1 to 20; other values are ignored, with the result 1 all the same */
#define RYN_UNDERSCORE_TO_SPACE        76   /* process [1]: underscores become blanks in all quoted-printable, bodies and attachments too; the result is the count of those so far */
#define RYN_INERT_1000                 1000 /* process: stored, without effect */
#define RYN_INERT_1002                 1002 /* process: stores 1, without effect */
#define RYN_BOTH_MAILER_HEADERS        1003 /* channel: both mailer lines or none */
#define RYN_WRITE_HEADERS              1004 /* channel and process [1]: 0 drops Date, From, To, the mailer lines and the empty line behind the head; other brings them back, with both mailer lines */
#define RYN_INERT_1005                 1005 /* process: stored, without effect */
#define RYN_IMAP_TRACE                 1006 /* process [0]: exactly 1 logs the parsing of IMAP answers */
#define RYN_DRIVER_DELAY               1008 /* process [0]: low 8 bits; sleep at the head of each rynDriver */
#define RYN_NO_RELATED_PART            1010 /* channel [0]: no multipart/related level in HTML messages */
#define RYN_ZONE_TRACE                 1011 /* process [0]: log how the zone of the Date line was found */
#define RYN_IMAP_PARTIAL_ALIAS         1012 /* the same as 41 */
#define RYN_FILENAME_PAGE_CODE_ALIAS   1013 /* the same as 42 */

/* --- Codes of rynStringParam. Capacities are in chars; what the operation returns for each code
 * stands with it, "stored" for the number of chars stored. A code marked "not empty" refuses an
 * empty text with RYN_ERR_EMPTY_ARGUMENT. ------------------------------------------------------- */

#define RYN_LOG_FILE                   20   /* channel: opens a new log file of that name; empty closes it. The handle, 0, or -1. Secrets that are sent show as stars, but for lines of 256 chars and over and what stands behind the first line end of a secret in several lines: long passwords and tokens show there */
#define RYN_WRITE_LINES_FILE           41   /* channel, not empty: writes what rynGetEmailLines kept to a new file. Bytes written */
#define RYN_REPLY_TO                   50   /* channel, 256, not empty: Reply-To of the next messages. Stored */
#define RYN_EXTRA_HEADERS              51   /* channel: header lines of the host's own, of which the first 1023 chars go out, line ends included; empty removes them (result 0). 1 to 4 on success, 0: no memory; RYN_ERR_SYSTEM_HEADER for a text that begins with X-Mailer: or X-Mail-Agent:; other control chars and 8-bit chars become '_' */
#define RYN_LOG_TEXT                   52   /* channel, not empty: a line for the log. The handle of the log, 0 if there is none */
#define RYN_FROM                       53   /* channel, 256, not empty: sender of the next messages, not checked. Stored */
#define RYN_CONTENT_TYPE_LINE          54   /* process, 256, not empty: the whole Content-Type line for message type 9. Stored */
#define RYN_TRANSFER_ENCODING_LINE     55   /* process, 256, not empty: the whole line in place of quoted-printable's. Stored */
#define RYN_ADD_EXTRA_HEADER           56   /* channel, not empty: one more header line, up to 16384 chars in all, of which only the first 1023 go out. As RYN_EXTRA_HEADERS */
#define RYN_AUTH_PASSWORD              57   /* channel, 2048, not empty: RYN_ERR_PASSWORD_TOO_LONG above that. Never in the log. Stored */
#define RYN_AUTH_USER                  58   /* channel, 64, not empty: user name of the login. Stored */
#define RYN_INERT_TEXT_61              61   /* without effect. 0 */
#define RYN_HEADER_PREFIX              63   /* process, 64 ["RYN:"], not empty: stands in front of the type line by which RYN_TAG_TEXT_PARTS marks a part. Stored; 0 and unchanged while the channel holds an alternative text */
#define RYN_ZONE_STRING                65   /* process, 32: zone of the Date line; empty: worked out. Stored */
#define RYN_INERT_TEXT_66              66   /* without effect. 0 */
#define RYN_ZONE_STRING_ALIAS          69   /* the same as 65 */
#define RYN_LIST_ARGUMENTS             71   /* channel, 16: arguments of the IMAP LIST. Stored */
#define RYN_EXTRA_LINE                 72   /* channel, 256: last line of every message text; empty: none. Goes out as it stands: a lone dot would end the message. Stored */
#define RYN_LOCAL_ADDRESS              73   /* channel: local address to connect from, a dotted quad. The address as a number, below 0 from 128.0.0.0 on: no status */
#define RYN_LOCAL_HOST_NAME            74   /* channel, 64: the name in HELO and EHLO; "*": the computer's; empty: RYN_ERR_NULL_POINTER. Stored */
#define RYN_RCPT_TRACE_FILE            77   /* channel: opens the recipient trace NAME_c.log, c being the channel; empty closes it. The handle, 0, or a status */
#define RYN_TEST_PATH                  2001 /* 1 if a file can be made in that folder, else RYN_ERR_NO_SUCH_PATH */

/* --- Codes of rynStatistics. ------------------------------------------------------------------- */

#define RYN_STAT_DRIVER_CALLS          2    /* states run on this channel */
#define RYN_STAT_REPLY_CODE            3    /* number of the last reply */
#define RYN_STAT_SOCK_CODE             4    /* socket status of the last failure, 0 = none */
#define RYN_STAT_MSG_BYTES_IN          10   /* bytes of message text read for sending; of lines for the message file */
#define RYN_STAT_ATTACH_BYTES_IN       11   /* bytes of attachments read for sending; of lines that were decoded */
#define RYN_STAT_BYTES_IN              12   /* both */
#define RYN_STAT_MSG_BYTES_OUT         13   /* bytes of message text sent */
#define RYN_STAT_ATTACH_BYTES_OUT      14   /* bytes of attachments sent */
#define RYN_STAT_BYTES_OUT             15   /* both */
#define RYN_STAT_VERSION               16   /* 0x0841 for 8.4.1 */
#define RYN_STAT_EMAIL_COUNT           17   /* messages on the server */
#define RYN_STAT_MESSAGE_SIZE          18   /* size of the message asked for */
#define RYN_STAT_BUFFER_USED           19   /* bytes in the host's buffer */
#define RYN_STAT_SOCKET_STATE          20   /* 1: data can be sent; 0: not now; RYN_ERR_CONNECT_FAILED: the connect has failed, there is no socket, or a file takes the place of a server */
#define RYN_STAT_ATTACH_COUNT          22   /* attachments of the last message */
#define RYN_STAT_VERIFY_RESULT         24   /* outcome of rynVerifyUser */
#define RYN_STAT_BUILD                 26   /* build number */
#define RYN_STAT_VSOCK                 27   /* the channel's socket number, -1 = none */
#define RYN_STAT_ACCEPTED_RECIPIENTS   30   /* recipients that the server accepted in the last send */
#define RYN_STAT_UID_VALIDITY          34   /* of the IMAP mailbox */
#define RYN_STAT_CID                   35   /* number of this build's owner */
/* With channel 0 these are answered without any guard. */
#define RYN_STAT_BLOCKS_ALLOCATED      1002 /* memory blocks made since the process began */
#define RYN_STAT_BLOCKS_FREED          1003 /* memory blocks freed since the process began */
#define RYN_STAT_BYTES_ALLOCATED       1004 /* their bytes, with 3 for each block */
#define RYN_STAT_LAST_FREED_SIZE       1005 /* of the block freed last */
#define RYN_STAT_NULL_SITE             1006 /* which check last met a null pointer */
#define RYN_STAT_EMPTY_SITE            1007 /* which check last met an empty text */

/* --- Codes of rynDebug. ------------------------------------------------------------------------ */

#define RYN_DEBUG_DATE                 (-12) /* the Date line of this moment; result 0 */
#define RYN_DEBUG_LAST_REPLY           23    /* the server's last reply; the result leaves its last CR LF out, the buffer holds it */
#define RYN_DEBUG_SERVER_ADDRESS       25    /* dotted quad of the server; 0 and an empty text for a size below 17; RYN_ERR_NO_SUCH_VSOCK: no connection */
#define RYN_DEBUG_LOCAL_ADDRESS        28    /* dotted quad of this end; as RYN_DEBUG_SERVER_ADDRESS */
#define RYN_DEBUG_ATTACH_LIST          29    /* names of saved attachments */
#define RYN_DEBUG_LAST_RECIPIENT       30    /* the last address accepted, its first 32 chars */
#define RYN_DEBUG_AUTH_LINES           31    /* what the server offers for AUTH */
#define RYN_DEBUG_TYPE_LIST            32    /* media types of saved attachments */
#define RYN_DEBUG_ID_LIST              33    /* Content-IDs of saved attachments */
#define RYN_DEBUG_WINDOWS_ERROR        36    /* the system's text for its last file error */
#define RYN_DEBUG_EMAIL_LINES          40    /* what rynGetEmailLines kept; RYN_ERR_NULL_POINTER: nothing */
/* clang-format on */

/* --- Codes of rynGetHeader --------------------------------------------------------------------- */

#define RYN_HEADER_DATE 1     /* 256 chars */
#define RYN_HEADER_FROM 2     /* 256 chars, its folds joined; encoded words as they came */
#define RYN_HEADER_REPLY_TO 3 /* 256 chars, its first line */
#define RYN_HEADER_SUBJECT                                                                         \
    4 /* encoded words rewritten; one line for each of its lines, LF between them */
#define RYN_HEADER_TO 5           /* likewise */
#define RYN_HEADER_CC 6           /* likewise */
#define RYN_HEADER_CONTENT_TYPE 7 /* 256 chars, of the message as a whole */

/* --- Numbers of the IMAP operations ------------------------------------------------------------ */

/* flags of a message */
#define RYN_FLAG_SEEN 1     /* the message has been read */
#define RYN_FLAG_ANSWERED 2 /* it has been answered */
#define RYN_FLAG_FLAGGED 4  /* it is marked for attention */
#define RYN_FLAG_DELETED 8  /* it goes at the next expunge */
#define RYN_FLAG_DRAFT 16   /* it is not finished */
#define RYN_FLAG_RECENT 32  /* can be read, never written */

/* what rynImapFlags does */
#define RYN_FLAGS_READ 1   /* tells flags */
#define RYN_FLAGS_ADD 2    /* sets flags */
#define RYN_FLAGS_REMOVE 3 /* clears flags */

/* what rynImapMsgNumber tells */
#define RYN_SEARCH_COUNT 1 /* how many numbers */
#define RYN_SEARCH_FIRST 2 /* the first number */
#define RYN_SEARCH_NEXT 3  /* the next number */

/* --- Lifecycle --------------------------------------------------------------------------------- */

/* rynAttach: makes the channels and readies the library.
 *   channels  how many, at most RYN_MAX_CHANNELS; 0 attaches nothing
 * Returns  999
 * Errors   RYN_ERR_ALREADY_ATTACHED, RYN_ERR_CHANNEL_RANGE, RYN_ERR_NO_MEMORY, a network status
 * Note     each call adds 2000 ms per channel to the three waits of RYN_REPLY_TIMEOUT */
RYN_API int32_t rynAttach(uint32_t channels);

/* rynRelease: closes every connection and log and gives everything back. Process settings stay.
 * Returns  1, also when nothing was attached */
RYN_API int32_t rynRelease(void);

/* rynClose: ends the conversation (QUIT), closes the socket and frees the texts of the last message.
 *   channel  number of an attached channel
 * Returns  1 if a target or source file was closed; otherwise 0, also when there was no connection.
 *          Manual: 0 at once; when rynDriver gives 0 the farewell is over and the socket still
 *          open, until rynAbort or rynRelease
 * Errors   the two guards; what the driver reports of the farewell, with the socket closed all
 *          the same
 * Note     closing a socket takes 500 ms. Extra headers are dropped, and the Subject, To and Cc values
 *          of rynGetHeader; other settings stay */
RYN_API int32_t rynClose(uint32_t channel);

/* rynAbort: drops the connection without a word to the server. What was waiting to be driven is
 * forgotten, and the channel is in automatic driving afterwards.
 *   channel  number of an attached channel
 * Returns  1
 * Errors   the two guards */
RYN_API int32_t rynAbort(uint32_t channel);

/* rynIsConnected: tells whether the channel's connection can be used at this moment.
 *   channel  number of an attached channel
 * Returns  1: yes, data that came before the server closed included. 0: the server has closed, or
 *          can't take data now. 2: the channel writes to a target file
 * Errors   RYN_ERR_NO_SUCH_VSOCK: there is no connection; the two guards */
RYN_API int32_t rynIsConnected(uint32_t channel);

/* rynDriver: runs one step of the work of a channel; the host of manual driving calls it in a loop.
 *   channel  number of an attached channel
 * Returns  0: all is done. DRIVER_NOT_YET: nothing could be done yet, call again (the call has
 *          slept 10 or 100 ms). Other positive: the number of the next step, call again; a step that
 *          waits for the server repeats, most of them without sleeping, so a host that has other
 *          work does it then. Looking up a name, connecting and sending may block; reading a
 *          greeting takes 200 ms, and the wait for the last reply to a message up to 1 s a call. A
 *          step that fetches a message waits for a line as long as a line may take, and up to 4 times
 *          that for the rest of it or the folds of a header; one that has begun to read a reply, as
 *          long as a reply may take
 * Errors   the operation has failed and is over. RYN_ERR_TIMED_OUT, RYN_ERR_SERVER_NOT_FOUND,
 *          RYN_ERR_CONNECT_FAILED, RYN_ERR_CANNOT_CREATE_SOCKET, RYN_ERR_SOCK_WRITE,
 *          RYN_ERR_SOCK_READ: a command to a mailbox could not be sent; RYN_ERR_SMTP_REPLY,
 *          RYN_ERR_POP3_REPLY, RYN_ERR_NO_APOP_TIMESTAMP, RYN_ERR_RESPONSE_OVERFLOW,
 *          RYN_ERR_NO_SUCH_VSOCK: there is no connection; RYN_ERR_CANNOT_OPEN_FILE,
 *          RYN_ERR_CANNOT_CREATE_FILE,
 *          RYN_ERR_MISSING_FROM, RYN_ERR_MISSING_LEFT_ANGLE: a sender set by RYN_FROM has no
 *          brackets; RYN_ERR_NULL_POINTER; the two guards */
RYN_API int32_t rynDriver(uint32_t channel);

/* --- Statuses ---------------------------------------------------------------------------------- */

/* rynErrorText: the text of a status. For RYN_ERR_SMTP_REPLY, RYN_ERR_POP3_REPLY and
 * RYN_ERR_CONNECT_FAILED the server's own line follows, for RYN_ERR_NO_SUCH_PATH and
 * RYN_ERR_NO_SUCH_FILE the path. The text also goes to the channel's log.
 *   channel  number of an attached channel
 *   code     a status
 *   buffer   out: the text;  size: its capacity with the terminating zero
 * Returns  chars stored; 0 for a code without a text, a null buffer, or a size of 0 or below
 * Errors   the two guards */
RYN_API int32_t rynErrorText(uint32_t channel, int32_t code, char *buffer, int32_t size);

/* rynSetErrorText: replaces the text of a status until the process ends. Needs no rynAttach.
 *   code  a status
 *   text  its new text, up to the first line end; at most 50 chars are kept
 * Returns  1; 0 for a code without a text, a null text, and when 50 chars or more were given (the
 *          first 50 are in force then) */
RYN_API int32_t rynSetErrorText(int32_t code, const char *text);

/* --- Parameters and queries -------------------------------------------------------------------- */

/* rynIntegerParam: sets a number or a flag.
 *   channel  number of an attached channel, also for a setting of the process
 *   code     a code of rynIntegerParam;  value: what the code tells
 * Returns  1; for RYN_UNDERSCORE_TO_SPACE the count; -1: no such code
 * Errors   the two guards */
RYN_API int32_t rynIntegerParam(uint32_t channel, int32_t code, uint32_t value);

/* rynStringParam: sets a text, or does what the code tells.
 *   channel  number of an attached channel
 *   code     a code of rynStringParam;  text: what the code tells
 * Returns  what the code tells; -1: no such code
 * Errors   RYN_ERR_NULL_POINTER: null text; RYN_ERR_EMPTY_ARGUMENT; those of the codes; the two
 *          guards */
RYN_API int32_t rynStringParam(uint32_t channel, uint32_t code, const char *text);

/* rynSetFileBuffer: hands over memory that is then read as a file under any name that ends in '*'
 * and the index, as in "report.txt*3".
 *   channel  number of an attached channel; the eight files serve all channels
 *   index    0 to 7;  pointer, size: the content
 * Returns  size
 * Errors   RYN_ERR_INDEX_RANGE; the two guards
 * Owner    the memory is the host's and must live until the file has been read to its end and
 *          closed; it is read once and has to be set again for another use */
RYN_API int32_t rynSetFileBuffer(uint32_t channel, int32_t index, const void *pointer,
                                 uint32_t size);

/* rynStatistics: answers with a number; in manual driving also how results are picked up.
 *   channel  number of an attached channel
 *   code     a code of rynStatistics
 * Returns  the number; -1: no such code
 * Errors   the two guards, but not for codes 1002 to 1007 with channel 0 */
RYN_API int32_t rynStatistics(uint32_t channel, uint32_t code);

/* rynDebug: answers with a text.
 *   channel  number of an attached channel; -2 checks all memory blocks, shows a notice for each
 *            damaged one, looks at no other argument, needs no rynAttach and answers 0
 *   code     a code of rynDebug
 *   buffer   out: the text, "?" for no such code
 *   size     most chars to store: the buffer holds size + 1 bytes. 0: only a zero byte is stored;
 *            below 0: nothing
 * Returns  chars stored, unless the code tells otherwise; 0 for a null buffer
 * Errors   the two guards */
RYN_API int32_t rynDebug(uint32_t channel, int32_t code, char *buffer, int32_t size);

/* --- Connecting -------------------------------------------------------------------------------- */

/* rynSmtpConnect: connects to an SMTP server and greets it.
 *   channel  number of an attached channel
 *   server   name or dotted quad, 255 chars; the port is RYN_SMTP_PORT
 *   from     sender, 256 chars, "Name <a@b.example>" or "<a@b.example>"
 *   replyTo  256 chars, goes out as it stands; null or empty: no Reply-To line
 * Returns  0: the session is open. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NO_SERVER, RYN_ERR_FROM_IS_NULL, RYN_ERR_EMPTY_ARGUMENT: empty sender,
 *          RYN_ERR_MISSING_LEFT_ANGLE, RYN_ERR_MISSING_RIGHT_ANGLE: no brackets in the sender; the
 *          two guards; what the driver reports, with the socket closed
 * Note     a connection that the channel still has is lost until rynRelease: call rynClose first */
RYN_API int32_t rynSmtpConnect(uint32_t channel, const char *server, const char *from,
                               const char *replyTo);

/* rynSmtpConnectSSL: the same through a tunnel to a server that wants TLS, with a login. The library
 * writes a configuration file, starts one stunnel process for the channel and speaks SMTP to it on a
 * local port; rynSetProxySSL names the program first, rynSetCertAuth what certificates to trust.
 *   channel     number of an attached channel
 *   localPort   16 bits, where the tunnel listens on this machine; one of its own for each channel
 *   securePort  16 bits, of the real server: 465 speaks TLS from the first byte, others STARTTLS;
 *               0: a second session through the tunnel that this channel has started, on the host
 *               to which it connected last; server and proxyHost are not looked at
 *   server      name of the real server, 255 chars; it is checked against the certificate
 *   user, password  64 and 2048 chars, for the login; not empty
 *   from, replyTo   as in rynSmtpConnect
 *   proxyHost   host on which the tunnel listens; null or empty: this machine
 * Returns  0: the session is open. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NO_SERVER: a null server, user or password; RYN_ERR_PROXY_NOT_CONFIGURED,
 *          RYN_ERR_EMPTY_ARGUMENT, RYN_ERR_PASSWORD_TOO_LONG, RYN_ERR_CANNOT_CREATE_FILE: the
 *          configuration; RYN_ERR_PROXY_START; those of rynSmtpConnect. A certificate that is refused
 *          shows as RYN_ERR_SOCK_WRITE or RYN_ERR_CONNECT_FAILED; the tunnel's log has the reason
 * Note     the process lives until rynClose or, in manual driving, rynRelease. Methods of the login: RYN_AUTH_METHODS */
RYN_API int32_t rynSmtpConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                                  const char *server, const char *user, const char *password,
                                  const char *from, const char *replyTo, const char *proxyHost);

/* rynPop3Connect: connects to a POP3 server and logs in, by USER and PASS, or by APOP with
 * RYN_USE_APOP.
 *   channel   number of an attached channel
 *   server    name or dotted quad, 255 chars; the port is RYN_POP3_PORT
 *   user, password  64 chars each; the rest of a longer text is not used
 * Returns  0: logged in. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NO_SERVER, RYN_ERR_NO_USER, RYN_ERR_NO_PASSWORD: a null text;
 *          RYN_ERR_BAD_SERVER_NAME: control chars, '<', '>' or '@' in the name;
 *          RYN_ERR_POP3_REPLY: refused, rynDebug has the server's words;
 *          RYN_ERR_NO_APOP_TIMESTAMP: the server can't APOP; the two guards; what the driver reports,
 *          with the socket closed
 * Note     for APOP the server's time stamp and the password together have 64 chars at most; what is
 *          longer is cut, and the login fails. USER and APOP go out as given: no line ends in them.
 *          A connection that the channel still has is lost until rynRelease */
RYN_API int32_t rynPop3Connect(uint32_t channel, const char *server, const char *user,
                               const char *password);

/* rynPop3ConnectSSL: the same through a tunnel, as rynSmtpConnectSSL starts one.
 *   channel     number of an attached channel
 *   localPort   16 bits, where the tunnel listens; one of its own for each channel
 *   securePort  16 bits, of the real server, where TLS begins with the first byte (995); 0: a second
 *               session through the tunnel that runs; server and proxyHost are not looked at
 *   server      name of the real server, 255 chars; it is checked against the certificate
 *   user, password  64 chars each
 *   proxyHost   host on which the tunnel listens; null or empty: this machine
 * Returns  0: logged in. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NO_USER, RYN_ERR_NO_PASSWORD, RYN_ERR_PROXY_NOT_CONFIGURED,
 *          RYN_ERR_NULL_POINTER: the server; RYN_ERR_CANNOT_CREATE_FILE: the configuration;
 *          RYN_ERR_PROXY_START; those of rynPop3Connect. The tunnel's log has the reason when a certificate is refused
 * Note     the process lives until rynClose or rynRelease */
RYN_API int32_t rynPop3ConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                                  const char *server, const char *user, const char *password,
                                  const char *proxyHost);

/* rynImapConnect: connects to an IMAP server, logs in and selects the mailbox InBox.
 *   channel   number of an attached channel
 *   server    name or dotted quad, 255 chars; the port is RYN_IMAP_PORT
 *   user, password  64 chars each; the rest of a longer text is not used
 * Returns  0: logged in; a mailbox that the server refuses counts as empty. Manual: 0 when the work has
 *          begun
 * Errors   RYN_ERR_NO_SERVER, RYN_ERR_NO_USER, RYN_ERR_NO_PASSWORD: a null text;
 *          RYN_ERR_BAD_SERVER_NAME; RYN_ERR_IMAP_REPLY: refused, rynDebug has the server's words; the
 *          two guards; what the driver reports, with the socket closed
 * Note     user and password go out as given, without quotes: blanks, quotes, brackets, '{' and line
 *          ends in them make another command of the login. A connection that the channel still has is
 *          lost until rynRelease */
RYN_API int32_t rynImapConnect(uint32_t channel, const char *server, const char *user,
                               const char *password);

/* rynImapConnectSSL: the same through a tunnel, as rynSmtpConnectSSL starts one.
 *   channel     number of an attached channel
 *   localPort   16 bits, where the tunnel listens; one of its own for each channel
 *   securePort  16 bits, of the real server, where TLS begins with the first byte (993); 0: a second
 *               session through the tunnel that runs; server and proxyHost are not looked at
 *   server      name of the real server, 255 chars; it is checked against the certificate
 *   user, password  64 chars each
 *   proxyHost   host on which the tunnel listens; null or empty: this machine
 * Returns  0: logged in. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NO_USER, RYN_ERR_NO_PASSWORD, RYN_ERR_PROXY_NOT_CONFIGURED,
 *          RYN_ERR_CANNOT_CREATE_FILE: the configuration; RYN_ERR_PROXY_START; those of
 *          rynImapConnect. The tunnel's log has the reason when a certificate is refused
 * Note     after a failure the socket stays open: rynAbort closes it. The process lives until rynClose
 *          or rynRelease */
RYN_API int32_t rynImapConnectSSL(uint32_t channel, uint32_t localPort, uint32_t securePort,
                                  const char *server, const char *user, const char *password,
                                  const char *proxyHost);

/* rynTestConnect: connects to any server, takes its greeting and sends nothing.
 *   channel  number of an attached channel
 *   server   name or dotted quad, 255 chars;  port: 16 bits
 *   buffer   out: the greeting; null: not wanted
 *   size     most chars to store, as in rynDebug
 * Returns  length of the greeting without its line end. After a failure without a socket status
 *          (nobody greets) 0 or the length of what the last reply was. Manual: 0 when the work has
 *          begun; rynDebug has the greeting when rynDriver gives 0
 * Errors   RYN_ERR_NO_SERVER, RYN_ERR_SERVER_NOT_FOUND, a network status, another status of a socket,
 *          which may have no text; the two guards
 * Note     the socket stays open after success; rynClose or rynAbort closes it. A greeting that is no
 *          SMTP reply, like that of IMAP, is waited on for RYN_REPLY_TIMEOUT before it is told */
RYN_API int32_t rynTestConnect(uint32_t channel, const char *server, uint32_t port, char *buffer,
                               int32_t size);

/* --- Tunnel and programs ------------------------------------------------------------------------ */

/* rynSetProxySSL: names the tunnel program and its folder, for all channels, before a secure connect.
 *   unused       stored nowhere
 *   options      sum of 1: the tunnel shows its icon; 2: it keeps no log
 *   folder       255 chars: where configurations and logs of tunnels are written
 *   certificate  255 chars: file with the client's key and certificate; not null
 *   program      255 chars. Both names are full paths, or names in the folder; no blanks
 * Returns  1
 * Errors   RYN_ERR_NO_SERVER: a null argument, an empty folder or program; RYN_ERR_NO_SUCH_PATH: no
 *          file can be made in the folder; RYN_ERR_NO_SUCH_FILE; RYN_ERR_NOT_ATTACHED
 * Note     channel 0's log tells what was found. Nothing is stored when a check fails */
RYN_API int32_t rynSetProxySSL(int32_t unused, uint32_t options, const char *folder,
                               const char *certificate, const char *program);

/* rynSetCertAuth: says whose certificates a tunnel trusts. Without it nothing is verified. Forgotten
 * at rynAttach; itself needs none.
 *   folder  255 chars: folder of trusted certificates; null or empty: none
 *   file    255 chars: file of trusted certificates
 * Returns  length of the file's name
 * Errors   RYN_ERR_NO_SERVER: null or empty file; what was set before stays */
RYN_API int32_t rynSetCertAuth(const char *folder, const char *file);

/* rynConfigSSL: adds lines to the global part of a tunnel's configuration.
 *   option  1;  text: the lines, at most 1022 chars; replaces those before
 * Returns  chars stored, a line end that was added among them
 * Errors   RYN_ERR_NO_SUCH_OPTION, RYN_ERR_NO_SERVER: null or empty text; RYN_ERR_NOT_ATTACHED */
RYN_API int32_t rynConfigSSL(int32_t option, const char *text);

/* rynStartProgram: starts any program, without a shell and without waiting for it.
 *   commandLine  words parted by blanks, double quotes group
 * Returns  its entry number, 0 to 63; -1: it could not be started, or all entries are taken
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NOT_ATTACHED
 * Note     each entry is given to rynKillProgram in the end, also that of a program that has ended */
RYN_API int32_t rynStartProgram(const char *commandLine);

/* rynKillProgram: ends a program that rynStartProgram has started, and waits until it is gone.
 *   entry     its entry number;  exitCode: its exit code, where the system has such a thing
 * Returns  1: ended; 0: no such program, or it can't be ended
 * Errors   RYN_ERR_NOT_ATTACHED */
RYN_API int32_t rynKillProgram(int32_t entry, int32_t exitCode);

/* --- Sending ----------------------------------------------------------------------------------- */

/* rynSendEmail: sends a message with a text.
 *   channel      number of a channel with an open SMTP session, or with a target file
 *   to, cc, bcc  recipients: entries separated by RYN_RECIPIENT_DELIMITER, each with its address in
 *                '<' and '>'; null or empty: none. At least one of the three is needed
 *   subject      one line of ASCII; it is cut at a line end, other chars become '_'.
 *                rynMakeSubject encodes a text in another charset. Null or empty: no Subject line
 *   message      the text, or RYN_INDIRECTION_CHAR and the name of a file that holds it. Null or
 *                empty: an empty text
 *   attachments  files: entries separated by RYN_ATTACH_DELIMITER, each a path, or a path,
 *                RYN_NAME_SEPARATOR and the name to show; null or empty: none. A path that ends in '*'
 *                and a digit is memory of rynSetFileBuffer. Without a name of its own an entry shows
 *                its path from behind the last '\' or ':' on; '/' is no separator there. The type follows the name's end: .pdf,
 *                .wav, .gif, .bmp, .tif, .jpg, .png, else application/octet-stream
 * Returns  0: the server has taken the message. With RYN_IGNORE_RCPT_REFUSAL the recipients from the
 *          first refused one on are left out, perhaps all: RYN_STAT_ACCEPTED_RECIPIENTS tells how many
 *          get it. Manual: 0 when the work has begun
 * Errors   RYN_ERR_SMTP_ONLY, RYN_ERR_NOT_CONNECTED, RYN_ERR_NO_RECIPIENT,
 *          RYN_ERR_MISSING_LEFT_ANGLE, RYN_ERR_MISSING_RIGHT_ANGLE: the first entry of a list has no
 *          brackets; RYN_ERR_NULL_POINTER: a later one; RYN_ERR_NO_MEMORY;
 *          RYN_ERR_CANNOT_OPEN_FILE: a file, inside the message; RYN_ERR_NO_SUCH_PAGE_CODE: a name
 *          can't be encoded by RYN_FILENAME_PAGE_CODE; RYN_ERR_SOCK_WRITE: the connection broke, also
 *          in the place of the server's last reply; the two guards; what the driver reports. A failure inside the
 *          message leaves the server waiting for its end: close the channel. A file that can't be read to
 *          its end, for a fault of the disk, counts as ended there: the message is short, the result 0
 * Note     text types by RYN_MESSAGE_TYPE: 0 plain RFC 822 text without MIME, 7-bit: other chars
 *          become '~'. All others are MIME and quoted-printable: 1 text/plain, 2 text/html,
 *          3 text/enriched; text/plain in 4 iso-8859-1, 5 iso-8859-8, 6 windows-1252,
 *          7 windows-1255, 10 iso-8859-2, 11 iso-8859-7, 13 iso-8859-3, 14 iso-8859-4, 15 UTF-8;
 *          9 RYN_CONTENT_TYPE_LINE; 8, 12, 16 to 31 text/plain without an encoding line.
 *          A header line ends at 1023 chars: long lists lose their tail there; in the envelope only
 *          a single address can be too long */
RYN_API int32_t rynSendEmail(uint32_t channel, const char *to, const char *cc, const char *bcc,
                             const char *subject, const char *message, const char *attachments);

/* rynSendHTML: sends an HTML message with a plain alternative.
 *   channel, to, cc, bcc, subject, attachments  as in rynSendEmail
 *   message      the HTML text, or RYN_INDIRECTION_CHAR and a file name
 *   images       files as in attachments; the HTML text refers to the n-th of those whose name ends in
 *                .gif, .bmp, .tif, .jpg or .png as "cid:message-root.n"; other names, entries with a set
 *                of rynAttachmentParams and, with RYN_DETECT_IMAGES 0, all entries get no number
 *   alternative  the plain text, at most 16384 chars, or RYN_INDIRECTION_CHAR and a file name; null
 *                or empty: an empty part. It goes out unencoded: keep it to 7-bit lines that end in CR LF
 * Returns  as rynSendEmail
 * Errors   as rynSendEmail
 * Note     with RYN_MESSAGE_TYPE 2 the HTML part is quoted-printable, in the charset of
 *          RYN_HTML_CHARSET: 1 us-ascii, 4 iso-8859-1, 5 iso-8859-8, 6 windows-1252,
 *          7 windows-1255, 8 UTF-8, 10 iso-8859-2, 11 iso-8859-7, 12 windows-1250, 13 iso-8859-3,
 *          14 iso-8859-4, other none. With other types it has no encoding line. An alternative
 *          from a file is not examined for a dot at its very start */
RYN_API int32_t rynSendHTML(uint32_t channel, const char *to, const char *cc, const char *bcc,
                            const char *subject, const char *message, const char *images,
                            const char *alternative, const char *attachments);

/* rynForwardEmail: sends a text with a stored message as its attachment.
 *   channel, to, cc, bcc, subject, message  as in rynSendEmail
 *   forwarded  path of the message, one entry as in rynSendEmail's attachments; its lines go out as
 *              they stand, long ones folded
 * Returns  as rynSendEmail
 * Errors   as rynSendEmail
 * Note     adds a parameter set (rynAttachmentParams) of type message/rfc822; with four sets in force
 *          the file takes the first of those */
RYN_API int32_t rynForwardEmail(uint32_t channel, const char *to, const char *cc, const char *bcc,
                                const char *subject, const char *message, const char *forwarded);

/* rynAttachmentParams: gives the header lines of an attachment, for the whole process. The n-th set is
 * for the n-th entry of every send, inline images first; further entries get the usual lines.
 *   contentType  whole line, as "Content-Type: text/csv"; null forgets all sets
 *   transferEncoding, disposition, extraLine  whole lines; null or empty: the usual one, or none
 * Returns  1; 0: four sets are taken (rynAttach forgets them), or the lines of one kind would exceed 512 bytes together
 * Note     sets the lines only: the content still goes out as RYN_QUOTE_ATTACHMENTS says */
RYN_API int32_t rynAttachmentParams(const char *contentType, const char *transferEncoding,
                                    const char *disposition, const char *extraLine);

/* rynSmtpTarget: lets the channel write its messages to a file instead of a server. The file gets
 * each message from its Message-ID line on, without an envelope and without the final dot.
 *   channel     number of an attached channel; a connection that it has is dropped
 *   targetFile  name of a new file; null or empty ends this mode and closes the file. Any connect
 *               and rynClose end it too
 *   from, replyTo  as in rynSmtpConnect; not checked here
 * Returns  1
 * Errors   RYN_ERR_NO_SUCH_FILE: it can't be made; RYN_ERR_CANNOT_CREATE_SOCKET: the socket number
 *          of this channel serves another channel's connection; the two guards */
RYN_API int32_t rynSmtpTarget(uint32_t channel, const char *targetFile, const char *from,
                              const char *replyTo);

/* rynVerifyUser: asks the server about addresses (VRFY). Many servers refuse to tell.
 *   channel    number of a channel with an open SMTP session
 *   addresses  entries separated by RYN_RECIPIENT_DELIMITER; each goes out as it stands
 * Returns  1: the server knows the last of them (reply 250); 0: it does not say so. Manual: 0;
 *          RYN_STAT_VERIFY_RESULT has the answer when rynDriver gives 0
 * Errors   RYN_ERR_SMTP_ONLY, RYN_ERR_NO_RECIPIENT, RYN_ERR_NO_MEMORY; the two guards; what the
 *          driver reports */
RYN_API int32_t rynVerifyUser(uint32_t channel, const char *addresses);

/* rynVerifyFormat: the strict test of one address, to be made before an address from outside is
 * used. Needs no rynAttach and no channel.
 *   address  "Name <a@b.example>" or "<a@b.example>"; of a list only the first entry is tested
 * Returns  1: letters, digits and _ - / + . $ & ? ' around exactly one '@', in brackets
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_EMPTY_ARGUMENT, RYN_ERR_MISSING_LEFT_ANGLE,
 *          RYN_ERR_MISSING_RIGHT_ANGLE, RYN_ERR_EMPTY_STRING, RYN_ERR_TOO_MANY_AT,
 *          RYN_ERR_BAD_ADDRESS_CHAR, RYN_ERR_MISSING_AT */
RYN_API int32_t rynVerifyFormat(const char *address);

/* rynMakeSubject: makes an encoded word (RFC 2047) of a text, for rynSendEmail's subject. Needs no
 * rynAttach.
 *   text      in the charset of the page code;  pageCode: 4 ISO-8859-1, 5 ISO-8859-8, 6 WIN-1252,
 *             7 WIN-1255, 10 ISO-8859-2, 11 ISO-8859-7, 12 WIN-1250, 13 ISO-8859-3, 14 ISO-8859-4,
 *             15 UTF-8, all quoted; 30 UTF-8 in Base64
 *   buffer    out: the word;  size: its capacity with the terminating zero
 * Returns  length of the word, at most 1023
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER, RYN_ERR_NO_SUCH_PAGE_CODE,
 *          RYN_ERR_BUFFER_OVERFLOW: the word is longer than 1023 or than the buffer */
RYN_API int32_t rynMakeSubject(const char *text, int32_t pageCode, char *buffer, int32_t size);

/* rynMakeXOAuth2: makes the text that is given as RYN_AUTH_PASSWORD for the method XOAUTH2. Needs no
 * rynAttach.
 *   user, token  of the account
 *   buffer       out: "user=", user, "auth=Bearer ", token and 3 chars of value 1: as many bytes as
 *                both have, 20 more, and a terminating zero
 * Returns  length of the text
 * Errors   RYN_ERR_NULL_POINTER
 * Note     a text of more than 48 bytes is sent in several lines, which many servers refuse */
RYN_API int32_t rynMakeXOAuth2(const char *user, const char *token, char *buffer);

/* --- Mailbox: what a channel logged in by POP3 or IMAP can do ---------------------------------- */

/* rynGetEmailCount: asks how many messages the mailbox holds.
 *   channel  number of a channel logged in by POP3 or IMAP
 * Returns  the count; 0 also when a POP3 server refuses the question. For IMAP what the mailbox held
 *          when it was selected. Manual, POP3: 0; RYN_STAT_EMAIL_COUNT has the count when rynDriver
 *          gives 0
 * Errors   RYN_ERR_POP3_ONLY: the channel speaks SMTP; the two guards; what the driver reports */
RYN_API int32_t rynGetEmailCount(uint32_t channel);

/* rynGetEmailSize: asks for the size of a message in bytes.
 *   message  number on the server, from 1
 * Returns  the size; 0 when the server does not know the message. Manual: 0; RYN_STAT_MESSAGE_SIZE
 *          has the size when rynDriver gives 0
 * Errors   RYN_ERR_POP3_OR_IMAP_ONLY: the channel speaks SMTP; RYN_ERR_NO_SUCH_MESSAGE: below 1; the
 *          two guards; what the driver reports */
RYN_API int32_t rynGetEmailSize(uint32_t channel, int32_t message);

/* rynGetEmailLines: fetches the header and the first lines of a message, undecoded.
 *   message  number on the server, from 1;  lines: body lines wanted behind the header, below 0
 *            counts as 0. IMAP: the whole message comes, or with RYN_IMAP_PARTIAL the header and so
 *            many bytes of text
 *   buffer   out: the server's status line, then lines as they came, CR LF kept, stuffed dots taken
 *            off, without a terminating zero; what does not fit is dropped. Null or "*": the library
 *            keeps the text, RYN_DEBUG_EMAIL_LINES hands it out
 *   size     capacity in bytes, at least 128 for a buffer of the host's own
 * Returns  bytes stored. Manual: 0; RYN_STAT_BUFFER_USED has the count when rynDriver gives 0
 * Errors   RYN_ERR_POP3_OR_IMAP_ONLY, RYN_ERR_NO_SUCH_MESSAGE: below 1; RYN_ERR_BUFFER_TOO_SMALL,
 *          RYN_ERR_NO_MEMORY; RYN_ERR_TIMED_OUT also when the server does not know the message; the
 *          two guards; what the driver reports
 * Owner    the buffer is the host's and must live until the operation has ended; the library's own
 *          copy lives until the next such call or rynClose */
RYN_API int32_t rynGetEmailLines(uint32_t channel, int32_t message, int32_t lines, char *buffer,
                                 int32_t size);

/* rynGetEmailFile: fetches a message and decodes it while it comes: its text into a message file, its
 * attachments into files of their own.
 *   message       number on the server, from 1; without a meaning for a stored message
 *   emailName     name of the message file, 256 chars, without '\' and '/', not "." nor ".."
 *   emailFolder   folder of the message file, 256 chars. Folders and names are separated by '\';
 *                 the system's own separator is put in its place where a file is opened
 *   attachFolder  folder of the attachments, 256 chars
 * Returns  0: the message is there, or the part of it that came before the server closed the
 *          connection. Manual: 0 when the work has begun
 * Errors   RYN_ERR_POP3_OR_IMAP_ONLY, RYN_ERR_NO_SUCH_MESSAGE: below 1; RYN_ERR_NO_FILENAME,
 *          RYN_ERR_PATH_NOT_ALLOWED, RYN_ERR_NO_EMAIL_PATH, RYN_ERR_NO_ATTACH_PATH,
 *          RYN_ERR_NO_SUCH_PATH: no file can be made in a folder; RYN_ERR_CANNOT_CREATE_FILE: the
 *          message file; RYN_ERR_TIMED_OUT also when the server does not know the message; the two
 *          guards; what the driver reports
 * Files    The message file holds the Subject, To, Cc, From and Date lines (none with
 *          RYN_NO_HEADER_COPY), an empty line, the parts without a name, quoted-printable taken off and
 *          Base64 left on (RYN_SAVE_UNNAMED_BASE64 gives such parts files), and a note in the place of
 *          each attachment (none with RYN_NO_ATTACH_NOTE). POP3: a line that begins with "+OK" is
 *          left out, IMAP: a lone ')'. Each part that
 *          has a name goes to a file of that name in attachFolder; chars that no file name may hold,
 *          '/' and '\' among them, become '_'. An older file of that name is replaced, a file that
 *          the library holds open never is: the part then stays in the message file, encoded. Two
 *          attachments of one name leave the second one alone, unless RYN_ATTACH_NUMBERING or
 *          RYN_ATTACH_COUNTER keeps names apart. A quoted name in UTF-8 whose bytes some system's file
 *          names can't hold (81, 8D to 90, 9D, 9E), or with a char of 4 bytes, gives no file: the part
 *          stays in the message file; RYN_ATTACH_COUNTER avoids that. Peers choose these names: let
 *          attachFolder hold nothing else. The names as they are on the disk, the media types
 *          and the Content-IDs stand in the lists of rynDebug.
 *          Bytes that are written are gathered and reach the file when it is closed, when the
 *          operation ends, and in manual driving before each return of rynDriver. A full disk cuts
 *          the files short without a failure
 * Note     with RYN_DECODE_MODE 1 nothing is decoded: the message goes to the raw copy, the message
 *          file stays empty. Without RYN_RAW_PREFIX that copy can't be made and the message is lost, with
 *          the result 0, and so is what a silent or refusing server leaves out. RYN_RAW_PREFIX makes a
 *          raw copy in any mode; if its file can't be made there is none, with the result 0. A stored message has no raw copy; with RYN_DECODE_MODE 1 its lines go
 *          to the message file as they are. After a failure the files stay open until the next operation on the
 *          mailbox, rynClose or rynAbort. A line above 8191 bytes comes in pieces, each a line of its
 *          own to the decoder; zero bytes become blanks. Up to 9 boundaries are known at a time,
 *          rynGetHeader keeps up to 1 MiB of each header: memory does not grow with the message.
 *          The server ends the message by its last line: a peer that closes the connection early, or
 *          a line without a line end at the very end, leaves a message that is short, with the
 *          result 0 */
RYN_API int32_t rynGetEmailFile(uint32_t channel, int32_t message, const char *emailName,
                                const char *emailFolder, const char *attachFolder);

/* rynGetEmailUID: asks for the unique id of a message.
 *   message  number on the server, from 1; 0 asks for a list with the number 0, below 0 for the list
 *            of all messages (POP3)
 *   buffer   out: POP3 the server's line or lines as they came, "+OK 1 UID" and CR LF; IMAP the
 *            number and CR LF. A terminating zero stands behind them
 *   size     capacity in bytes with the zero, at least 128; what does not fit is dropped
 * Returns  length of the text, that of a refusal too; 0 when nothing came. A list that is refused takes
 *          the time of a reply. Manual: 0; the text is there when rynDriver
 *          gives 0
 * Errors   RYN_ERR_POP3_OR_IMAP_ONLY, RYN_ERR_NULL_BUFFER, RYN_ERR_BUFFER_TOO_SMALL; the two guards
 * Owner    the buffer is the host's and must live until the operation has ended */
RYN_API int32_t rynGetEmailUID(uint32_t channel, int32_t message, char *buffer, int32_t size);

/* rynDeleteEmail: marks a message for deletion. A POP3 server deletes it when rynClose says QUIT, an
 * IMAP server when rynClose expunges (RYN_EXPUNGE_ON_CLOSE).
 *   message  number on the server, from 1
 * Returns  0, also when the server refuses: RYN_STAT_REPLY_CODE is 100 for yes and 500 for no (POP3).
 *          Manual: 0 when the work has begun
 * Errors   RYN_ERR_POP3_OR_IMAP_ONLY, RYN_ERR_NO_SUCH_MESSAGE: below 1; the two guards; what the
 *          driver reports */
RYN_API int32_t rynDeleteEmail(uint32_t channel, int32_t message);

/* rynCommand: sends one command of the host's own and reads its reply, in any protocol.
 *   text  32 chars, the rest is cut; without a line end. IMAP: without a tag
 * Returns  0: accepted, by IMAP a refusal too; rynDebug has the reply. Manual: 0 when the work has
 *          begun
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_BAD_SERVER_NAME: the channel has no session;
 *          RYN_ERR_SMTP_REPLY, RYN_ERR_POP3_REPLY: refused; the two guards; what the driver reports
 * Note     a POP3 reply of several lines is read up to its first line end only */
RYN_API int32_t rynCommand(uint32_t channel, const char *text);

/* rynPop3Source: makes a stored message the source of the next rynGetEmailFile, in the place of a
 * server. A lone dot ends it, doubled dots at the head of a line lose one, as in POP3.
 *   channel   number of an attached channel, best one without a connection: one that it has is
 *             closed
 *   fileName  path, or a memory file; null or empty: the next fetch asks a server again. Lines end in
 *             CR LF; a last line without a line end is not delivered
 * Returns  1
 * Errors   RYN_ERR_NO_SUCH_FILE: rynErrorText has the name; RYN_ERR_CANNOT_CREATE_SOCKET: another
 *          channel's connection has the place; the two guards
 * Note     the file serves one fetch; rynClose lets go of it */
RYN_API int32_t rynPop3Source(uint32_t channel, const char *fileName);

/* rynImapSource: the same by the rules of IMAP: dots are ordinary text, and the message ends with the
 * file.
 *   channel, fileName  as in rynPop3Source
 * Returns  1
 * Errors   as in rynPop3Source */
RYN_API int32_t rynImapSource(uint32_t channel, const char *fileName);

/* rynGetHeader: a header value of the message fetched last.
 *   code    a code of rynGetHeader
 *   target  out: the value;  size: most chars to store, the buffer holds size + 1 bytes; 0: only a
 *           zero byte is stored; below 0: nothing
 * Returns  chars stored; 0: the message has no such header, or a null target; -1: no such code
 * Errors   the two guards
 * Note     values begin behind the header's name and one blank. Subject, To and Cc: an encoded word
 *          (RFC 2047) in UTF-8, US-ASCII, Big5, ISO-8859-1, -2, -3, -4, -7, -8, -15, ISO-2022-JP,
 *          Windows-1250, -1252 or -1255 becomes its bytes, without a conversion, one word for each
 *          line of the message; line ends and control chars can be among them. Read it when no fetch runs on the channel */
RYN_API int32_t rynGetHeader(uint32_t channel, int32_t code, char *target, int32_t size);

/* rynExtractText: finds a text and copies the rest of its line. Needs no rynAttach.
 *   text    lines ended by LF, a terminating zero: for what rynGetEmailLines has stored the host puts
 *           one behind it
 *   find    what to look for, in any case of letters
 *   target  out: from the place found up to and with the LF;  size: its capacity with the zero
 * Returns  chars stored; 0: longer than size - 1 chars (size - 2 for a last line without LF), with the
 *          target empty; not found, or a null argument, with the target untouched */
RYN_API int32_t rynExtractText(const char *text, const char *find, char *target, int32_t size);

/* rynExtractLine: copies one line of a text. Needs no rynAttach.
 *   text    as in rynExtractText;  line: its number, 1 or below: the first
 *   target  out: the line with its LF;  size: its capacity with the zero
 * Returns  chars stored; 0: no such line, or longer than size - 1 chars (size - 2 for a last line
 *          without LF), or a null argument */
RYN_API int32_t rynExtractLine(const char *text, int32_t line, char *target, int32_t size);

/* --- IMAP alone. Names of mailboxes and search criteria go out as given, without quotes: a host that
 * takes them from outside removes line ends first. ------------------------------------------------- */

/* rynImapFlags: reads, adds or removes flags of a message.
 *   message    number on the server, from 1
 *   operation  RYN_FLAGS_READ, RYN_FLAGS_ADD or RYN_FLAGS_REMOVE
 *   flags      sum of RYN_FLAG_ values: those to be told, added or removed. RYN_FLAG_RECENT can be read
 *              only; without any other an add or remove sends nothing
 * Returns  those of the flags that the server says are set now; 0 also from a server that does not
 *          tell. Manual: 0
 * Errors   RYN_ERR_IMAP_ONLY, RYN_ERR_NO_SUCH_MESSAGE: below 1; RYN_ERR_IMAP_FLAG: no such operation;
 *          RYN_ERR_IMAP_REPLY: refused; the two guards; what the driver reports */
RYN_API int32_t rynImapFlags(uint32_t channel, int32_t message, int32_t operation, int32_t flags);

/* rynImapSearch: asks which messages match. The library keeps the answer for rynImapMsgNumber.
 *   criteria  as the protocol has them (RFC 2060, 6.4.4): UNSEEN, FROM "x"; about 1000 chars
 *   buffer    out: "SEARCH" and the numbers, without the line end;  size: its capacity with the zero;
 *             what does not fit is cut, a number too
 * Returns  0. Manual: 0 when the work has begun; buffer and rynImapMsgNumber are ready when rynDriver
 *          gives 0
 * Errors   RYN_ERR_IMAP_ONLY, RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER, RYN_ERR_IMAP_REPLY: refused;
 *          the two guards; what the driver reports
 * Owner    criteria and buffer are the host's and must live until the operation has ended */
RYN_API int32_t rynImapSearch(uint32_t channel, const char *criteria, char *buffer, int32_t size);

/* rynImapMsgNumber: walks the answer of the last search. Sends nothing.
 *   mode  RYN_SEARCH_COUNT: how many numbers; RYN_SEARCH_FIRST: the first; RYN_SEARCH_NEXT: the next,
 *         at the beginning the first
 * Returns  the count or number; 0: no more, or no search; -1: no such mode
 * Errors   RYN_ERR_IMAP_ONLY; the two guards */
RYN_API int32_t rynImapMsgNumber(uint32_t channel, int32_t mode);

/* rynImapSelectMB: selects another mailbox.
 *   mailbox  32 chars, the rest is cut
 * Returns  0, also when the server refuses: rynGetEmailCount is 0 then. Manual: 0 when the work has
 *          begun
 * Errors   RYN_ERR_IMAP_ONLY, RYN_ERR_NULL_POINTER; the two guards; what the driver reports */
RYN_API int32_t rynImapSelectMB(uint32_t channel, const char *mailbox);

/* rynImapDeleteMB: deletes a mailbox. The command is cut at 32 chars as in rynCommand.
 *   mailbox  25 chars
 * Returns  0, also when the server refuses: rynDebug has its words. Manual: 0 when the work has begun
 * Errors   RYN_ERR_NULL_POINTER; those of rynCommand */
RYN_API int32_t rynImapDeleteMB(uint32_t channel, const char *mailbox);

/* rynImapCreateMB: makes a mailbox.
 *   mailbox  25 chars
 * Returns  as rynImapDeleteMB
 * Errors   as rynImapDeleteMB */
RYN_API int32_t rynImapCreateMB(uint32_t channel, const char *mailbox);

/* rynImapRenameMB: renames a mailbox.
 *   from, to  24 chars together
 * Returns  as rynImapDeleteMB
 * Errors   as rynImapDeleteMB */
RYN_API int32_t rynImapRenameMB(uint32_t channel, const char *from, const char *to);

/* rynImapCopyMBmail: copies a message to another mailbox.
 *   message  number on the server, from 1;  mailbox: 26 chars with the number
 * Returns  as rynImapDeleteMB
 * Errors   as rynImapDeleteMB */
RYN_API int32_t rynImapCopyMBmail(uint32_t channel, int32_t message, const char *mailbox);

/* rynImapListMB: asks for the names of mailboxes; RYN_LIST_ARGUMENTS says which.
 *   buffer  out: the lines of the answer, the tagged one at the end, each with CR LF; on channels other
 *           than 0 the first 2048 chars of them
 *   size    most chars to store, the buffer holds size + 1 bytes; 0: only a zero byte; below 0: nothing
 * Returns  0. Manual: 0, and the buffer holds what was answered before: rynDebug with
 *          RYN_DEBUG_LAST_REPLY has the list when rynDriver gives 0
 * Errors   RYN_ERR_NULL_BUFFER; those of rynCommand */
RYN_API int32_t rynImapListMB(uint32_t channel, char *buffer, int32_t size);

/* --- Codecs. None of these needs rynAttach. ---------------------------------------------------- */

/* rynQuoteBuffer: quoted-printable without line breaks: '=' and all but printable ASCII and TAB
 * become "=XX".
 *   source  text
 *   target  out: text;  size: its capacity; no byte is taken once fewer than 4 are left
 * Returns  chars stored, without the terminating zero; 0, with the target untouched, for an empty
 *          source or a size below 4
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynQuoteBuffer(const char *source, char *target, int32_t size);

/* rynUnQuoteBuffer: decodes quoted-printable up to a soft line break or the end.
 *   source  text;  target: out, size bytes and a terminating zero; may be the source
 *   size    capacity without the zero, at least the source's length
 * Returns  bytes decoded; '_' becomes a blank while RYN_UNDERSCORE_TO_SPACE is on
 * Errors   RYN_ERR_BUFFER_TOO_SMALL, RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynUnQuoteBuffer(const char *source, char *target, int32_t size);

/* rynReadQuoted: reads a file as quoted-printable, a soft line break behind each chunk.
 *   fileName     path, or a memory file
 *   target       out: text;  size: its capacity
 *   chunkLength  bytes of the file to a line, 1 to 253; other values: 73. Above 84 a line can lose
 *                bytes, if many of them need quoting
 * Returns  bytes read from the file; -1: it can't be opened
 * Errors   RYN_ERR_BUFFER_OVERFLOW: the target holds what fitted; RYN_ERR_NULL_POINTER,
 *          RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynReadQuoted(const char *fileName, char *target, int32_t size,
                              int32_t chunkLength);

/* rynEncodeBuffer: Base64 in lines of 76 chars, each ended by CR LF.
 *   source  the bytes;  length: how many
 *   target  out: 78 bytes for every 57 of the source or part of them, and 1
 * Returns  chars stored without the terminating zero; 0, with nothing stored, for a length below 1
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynEncodeBuffer(const char *source, char *target, int32_t length);

/* rynDecodeBuffer: decodes Base64 lines; a line's chars behind its last whole group are ignored, and
 * chars outside the alphabet count as 0.
 *   source  the text;  length: how many chars of it are looked at, at most
 *   target  out: 3 bytes for every 4 chars, and 4
 * Returns  bytes decoded
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynDecodeBuffer(const char *source, char *target, int32_t length);

/* rynDecodeUU: decodes one line of UU text, without the length char that begins it.
 *   source  text up to its first CR or its end;  target: out, 3 bytes for every 4 chars, and 4
 * Returns  bytes decoded, a multiple of 3: the host cuts them to the length that the line told
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynDecodeUU(const char *source, char *target);

/* rynEncodeUTF8: one 16-bit char as UTF-8, and a zero byte.
 *   code    the char, low 16 bits;  target: out, 4 bytes
 * Returns  bytes without the zero, 1 to 3
 * Errors   RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynEncodeUTF8(int32_t code, char *target);

/* rynDecodeUTF8: the first char of a UTF-8 text.
 *   source  text;  target: out, one 16-bit char, low byte first; untouched on failure
 * Returns  bytes used, 1 to 3; 0: no first byte of a char up to 16 bits; -1: the second byte of two
 *          is wrong; -2, -3: the second or third byte of three is
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynDecodeUTF8(const char *source, uint16_t *target);

/* rynEncodeUTF8String: a text of 16-bit chars as UTF-8.
 *   source  ends in a 16-bit 0;  target: out, 3 bytes a char and 1
 * Returns  bytes without the terminating zero
 * Errors   RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynEncodeUTF8String(const uint16_t *source, char *target);

/* rynDecodeUTF8String: UTF-8 as a text of 16-bit chars.
 *   source  text;  target: out, as many 16-bit chars as the text has bytes, and 2
 * Returns  chars stored, the first of two terminating zeros included
 * Errors   RYN_ERR_BAD_UTF8: the target holds what came before, unterminated;
 *          RYN_ERR_NULL_POINTER, RYN_ERR_NULL_BUFFER */
RYN_API int32_t rynDecodeUTF8String(const char *source, uint16_t *target);

/* rynShortToByte: keeps the low bytes of a text of 16-bit chars, in place.
 *   text  ends at the first 16-bit char whose low byte is 0
 * Returns  chars without the terminating zero
 * Errors   RYN_ERR_NULL_POINTER */
RYN_API int32_t rynShortToByte(char *text);

/* rynByteToShort: widens an 8-bit text to 16-bit chars, in place, without a terminator.
 *   text  n chars in a buffer of at least 2n bytes
 * Returns  n
 * Errors   RYN_ERR_NULL_POINTER */
RYN_API int32_t rynByteToShort(char *text);

/* --- Small operations -------------------------------------------------------------------------- */

/* rynTestFileSet: tests whether all files of a list can be opened, before they are attached.
 *   channel  number of an attached channel, whose log tells what is missing; -1: none, and no rynAttach
 *            is needed
 *   list     entries separated by RYN_ATTACH_DELIMITER, taken as they stand, without shown names; an
 *            '@' in front of the first is passed over
 *   buffer   out: the name that can't be opened;  size: its capacity, at least 80
 * Returns  0: all can be opened, or an entry is empty, which ends the test; 99: a name does not fit;
 *          else the length of the name in the buffer
 * Errors   RYN_ERR_BUFFER_TOO_SMALL, RYN_ERR_NO_FILENAME: a null list; RYN_ERR_NULL_BUFFER; the two
 *          guards */
RYN_API int32_t rynTestFileSet(uint32_t channel, const char *list, char *buffer, int32_t size);

/* rynSleep: pauses the calling thread. Needs no rynAttach.
 *   ms  milliseconds; 0 lets others run
 * Returns  1; 0: below 0 */
RYN_API int32_t rynSleep(int32_t ms);

/* rynGetTicks: a tick count to measure time with, by the difference of two. Needs no rynAttach.
 *   divisor  1: milliseconds; 1000: seconds
 * Returns  the count, which wraps after 49.7 days, by the divisor; 0: divisor below 1 */
RYN_API int32_t rynGetTicks(int32_t divisor);

#ifdef __cplusplus
}
#endif

#endif
