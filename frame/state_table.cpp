// The picture of the whole machine: every state with its number, its name and its handler. The one
// file that knows all protocols.
#include "frame/state_table.h"

#include "frame/connect_states.h"
#include "retrieve/fetch_states.h"
#include "retrieve/imap_states.h"
#include "retrieve/pop3_states.h"
#include "retrieve/raw_states.h"
#include "send/attach_states.h"
#include "send/auth_states.h"
#include "send/body_states.h"
#include "send/envelope_states.h"
#include "send/header_states.h"
#include "send/hello_states.h"

struct StateRow {
    State Number;
    const char* Name;
    StateHandler Handler;
};

static constexpr StateRow StateTable[] = {
    // ascending by number
    { ST_CREATE_SOCKET, "create socket", CreateSocket },
    { ST_LOCAL_HOST, "local host", LocalHost },
    { ST_RESOLVE_SERVER, "resolve server", ResolveServer },
    { ST_CONNECT, "connect", Connect },
    { ST_WAIT_CONNECTED, "wait connected", WaitConnected },

    { ST_AUTH_CRAM_START, "auth cram start", AuthCramStart },
    { ST_AUTH_CRAM_CHALLENGE, "auth cram challenge", AuthCramChallenge },
    { ST_AUTH_CRAM_RESPONSE, "auth cram response", AuthCramResponse },
    { ST_AUTH_CRAM_REPLY, "auth cram reply", AuthCramReply },
    { ST_AUTH_LOGIN_START, "auth login start", AuthLoginStart },
    { ST_AUTH_LOGIN_USER, "auth login user", AuthLoginUser },
    { ST_AUTH_LOGIN_PASSWORD, "auth login password", AuthLoginPassword },
    { ST_AUTH_LOGIN_REPLY, "auth login reply", AuthLoginReply },
    { ST_AUTH_PLAIN_SEND, "auth plain send", AuthPlainSend },
    { ST_AUTH_PLAIN_REPLY, "auth plain reply", AuthPlainReply },
    { ST_AUTH_XOAUTH2_SEND, "auth xoauth2 send", AuthXOAuth2Send },
    { ST_AUTH_XOAUTH2_REPLY, "auth xoauth2 reply", AuthXOAuth2Reply },

    { ST_SMTP_CONNECT, "smtp connect", SmtpConnect },
    { ST_SMTP_GREETING, "smtp greeting", SmtpGreeting },
    { ST_SMTP_SEND_HELLO, "smtp send hello", SmtpSendHello },
    { ST_SMTP_HELLO_REPLY, "smtp hello reply", SmtpHelloReply },

    { ST_SMTP_MAIL_FROM, "smtp mail from", SmtpMailFrom },
    { ST_SMTP_MAIL_REPLY, "smtp mail reply", SmtpMailReply },
    { ST_SMTP_NEXT_RECIPIENT, "smtp next recipient", SmtpNextRecipient },
    { ST_SMTP_RCPT_TO, "smtp rcpt to", SmtpRcptTo },
    { ST_SMTP_RCPT_REPLY, "smtp rcpt reply", SmtpRcptReply },
    { ST_SMTP_DATA, "smtp data", SendCommand },
    { ST_SMTP_DATA_REPLY, "smtp data reply", SmtpDataReply },
    { ST_SMTP_RSET, "smtp rset", SendCommand },
    { ST_SMTP_RSET_REPLY, "smtp rset reply", SmtpRsetReply },

    { ST_HDR_MESSAGE_ID, "header message-id", HdrMessageId },
    { ST_HDR_MAILER, "header mailer", HdrMailer },
    { ST_HDR_DATE, "header date", HdrDate },
    { ST_HDR_TO, "header to", HdrTo },
    { ST_HDR_FROM, "header from", HdrFrom },
    { ST_HDR_REPLY_TO, "header reply-to", HdrReplyTo },
    { ST_HDR_SUBJECT, "header subject", HdrSubject },
    { ST_HDR_EXTRA, "header extra", HdrExtra },
    { ST_HDR_CC, "header cc", HdrCc },
    { ST_HDR_MIME_VERSION, "header mime-version", HdrMimeVersion },
    { ST_HDR_MULTIPART, "header multipart", HdrMultipart },

    { ST_HDR_END, "header end", HdrEnd },
    { ST_BODY_OPEN, "body open", BodyOpen },
    { ST_BODY_CONTENT_TYPE, "body content-type", BodyContentType },
    { ST_BODY_ENCODING, "body encoding", BodyEncoding },
    { ST_BODY_SOURCE, "body source", BodySource },
    { ST_BODY_TEXT_START, "body text start", BodyTextStart },
    { ST_BODY_TEXT_LINE, "body text line", BodyTextLine },
    { ST_BODY_FILE_OPEN, "body file open", BodyFileOpen },
    { ST_BODY_FILE_LINE, "body file line", BodyFileLine },

    { ST_MSG_END, "message end", MsgEnd },
    { ST_MSG_END_REPLY, "message end reply", MsgEndReply },
    { ST_QUIT, "quit", SendQuit },
    { ST_QUIT_REPLY, "quit reply", QuitReply },

    { ST_ATT_BOUNDARY, "attachment boundary", AttBoundary },
    { ST_ATT_CONTENT_TYPE, "attachment content-type", AttContentType },
    { ST_ATT_ENCODING, "attachment encoding", AttEncoding },
    { ST_ATT_DISPOSITION, "attachment disposition", AttDisposition },
    { ST_ATT_BLANK, "attachment blank", AttBlank },
    { ST_ATT_OPEN, "attachment open", AttOpen },
    { ST_ATT_BASE64, "attachment base64", AttBase64 },
    { ST_ATT_LINES, "attachment lines", AttLines },

    { ST_VRFY_NEXT, "vrfy next", VrfyNext },
    { ST_VRFY_SEND, "vrfy send", VrfySend },
    { ST_VRFY_REPLY, "vrfy reply", VrfyReply },

    { ST_SMTP_RAW, "smtp raw", SmtpRaw },
    { ST_SMTP_RAW_REPLY, "smtp raw reply", SmtpRawReply },

    { ST_POP3_START, "pop3 start", Pop3Start },
    { ST_POP3_GREETING, "pop3 greeting", Pop3Greeting },
    { ST_POP3_APOP, "pop3 apop", Pop3Apop },
    { ST_POP3_USER, "pop3 user", Pop3User },
    { ST_POP3_USER_REPLY, "pop3 user reply", Pop3UserReply },
    { ST_POP3_PASS, "pop3 pass", Pop3Pass },
    { ST_POP3_LOGIN_REPLY, "pop3 login reply", Pop3LoginReply },
    { ST_POP3_STAT, "pop3 stat", Pop3Stat },
    { ST_POP3_STAT_REPLY, "pop3 stat reply", Pop3StatReply },

    { ST_FETCH_RAW, "fetch raw", FetchRaw },
    { ST_FETCH_START, "fetch start", FetchStart },
    { ST_FETCH_LINES_START, "fetch lines start", FetchLinesStart },
    { ST_FETCH_DECODE, "fetch decode", FetchDecode },
    { ST_FETCH_END, "fetch end", FetchEnd },
    { ST_FETCH_LINES, "fetch lines", FetchLines },
    { ST_DELETE, "delete", DeleteMessage },
    { ST_DELETE_REPLY, "delete reply", DeleteReply },

    { ST_POP3_LIST, "pop3 list", Pop3List },
    { ST_POP3_LIST_REPLY, "pop3 list reply", Pop3ListReply },
    { ST_POP3_UIDL, "pop3 uidl", Pop3Uidl },
    { ST_POP3_UIDL_REPLY, "pop3 uidl reply", Pop3UidlReply },
    { ST_POP3_RAW, "pop3 raw", Pop3Raw },
    { ST_POP3_RAW_REPLY, "pop3 raw reply", Pop3RawReply },

    { ST_IMAP_START, "imap start", ImapStart },
    { ST_IMAP_GREETING, "imap greeting", ImapGreeting },
    { ST_IMAP_LOGIN, "imap login", ImapLogin },
    { ST_IMAP_LOGIN_REPLY, "imap login reply", ImapLoginReply },
    { ST_IMAP_SELECT, "imap select", ImapSelect },
    { ST_IMAP_SELECT_REPLY, "imap select reply", ImapSelectReply },
    { ST_IMAP_EXPUNGE, "imap expunge", ImapSendCommand },
    { ST_IMAP_EXPUNGE_REPLY, "imap expunge reply", ImapExpungeReply },
    { ST_IMAP_GET_FLAGS, "imap get flags", ImapSendCommand },
    { ST_IMAP_GET_FLAGS_REPLY, "imap get flags reply", ImapFlagsReply },
    { ST_IMAP_ADD_FLAGS, "imap add flags", ImapStoreFlags },
    { ST_IMAP_REMOVE_FLAGS, "imap remove flags", ImapStoreFlags },
    { ST_IMAP_STORE_REPLY, "imap store reply", ImapFlagsReply },
    { ST_IMAP_SEARCH, "imap search", ImapSearch },
    { ST_IMAP_SEARCH_REPLY, "imap search reply", ImapSearchReply },
    { ST_IMAP_GET_SIZE, "imap get size", ImapSendCommand },
    { ST_IMAP_GET_SIZE_REPLY, "imap get size reply", ImapGetSizeReply },
    { ST_IMAP_GET_UID, "imap get uid", ImapSendCommand },
    { ST_IMAP_GET_UID_REPLY, "imap get uid reply", ImapGetUidReply },
    { ST_IMAP_RAW, "imap raw", ImapRaw },
    { ST_IMAP_RAW_REPLY, "imap raw reply", ImapRawReply },

    { ST_ALT_HEADER, "alternative header", AltHeader },
    { ST_ALT_TEXT, "alternative text", AltSendText },
    { ST_ALT_FILE_OPEN, "alternative file open", AltFileOpen },
    { ST_ALT_FILE_READ, "alternative file read", AltFileRead },
    { ST_ALT_NEXT, "alternative next", AltNext },
};

constexpr int32_t StateCount = sizeof StateTable / sizeof StateTable[0];
constexpr int32_t HighestState = StateTable[StateCount - 1].Number;

// The row of each number, plus 1; 0 where no state has the number.
struct StateIndex {
    uint8_t Row[HighestState + 1];
};

static constexpr StateIndex MakeIndex()
{
    StateIndex index = {};
    for (int32_t i = 0; i < StateCount; i++)
        index.Row[StateTable[i].Number] = static_cast<uint8_t>(i + 1);
    return index;
}

static constexpr bool IsAscending()
{
    for (int32_t i = 1; i < StateCount; i++)
        if (StateTable[i].Number <= StateTable[i - 1].Number)
            return false;
    return true;
}

static constexpr StateIndex Index = MakeIndex();
static_assert(IsAscending(), "StateTable must ascend by number");
static_assert(StateCount < UINT8_MAX, "an index entry holds one byte");

StateHandler FindStateHandler(int32_t state)
{
    if (state < 0 || state > HighestState || Index.Row[state] == 0)
        return nullptr;
    return StateTable[Index.Row[state] - 1].Handler;
}
