// The numbers of the driver's states. They reach the host as results of rynDriver and stand in
// every log, so a number never changes its meaning.
#pragma once

#include <cstdint>

enum State : int32_t {
    ST_IDLE = 0,

    // connecting
    ST_CREATE_SOCKET = 101,
    ST_LOCAL_HOST = 102,
    ST_RESOLVE_SERVER = 104,
    ST_CONNECT = 105,
    ST_WAIT_CONNECTED = 106,

    // SMTP: logging in
    ST_AUTH_CRAM_START = 150,
    ST_AUTH_CRAM_CHALLENGE = 151,
    ST_AUTH_CRAM_RESPONSE = 152,
    ST_AUTH_CRAM_REPLY = 153,
    ST_AUTH_LOGIN_START = 160,
    ST_AUTH_LOGIN_USER = 162,
    ST_AUTH_LOGIN_PASSWORD = 163,
    ST_AUTH_LOGIN_REPLY = 164,
    ST_AUTH_PLAIN_SEND = 170,
    ST_AUTH_PLAIN_REPLY = 171,
    ST_AUTH_XOAUTH2_SEND = 172,
    ST_AUTH_XOAUTH2_REPLY = 173,

    // SMTP: greeting and hello
    ST_SMTP_CONNECT = 200,
    ST_SMTP_GREETING = 201,
    ST_SMTP_SEND_HELLO = 202,
    ST_SMTP_HELLO_REPLY = 203,

    // SMTP: envelope
    ST_SMTP_MAIL_FROM = 204,
    ST_SMTP_MAIL_REPLY = 205,
    ST_SMTP_NEXT_RECIPIENT = 206,
    ST_SMTP_RCPT_TO = 207,
    ST_SMTP_RCPT_REPLY = 208,
    ST_SMTP_DATA = 209,
    ST_SMTP_DATA_REPLY = 210,
    ST_SMTP_RSET = 211,
    ST_SMTP_RSET_REPLY = 212,

    // header lines; on the wire 220 stands behind 226
    ST_HDR_MESSAGE_ID = 220,
    ST_HDR_MAILER = 221,
    ST_HDR_DATE = 223,
    ST_HDR_TO = 224,
    ST_HDR_FROM = 225,
    ST_HDR_REPLY_TO = 226,
    ST_HDR_SUBJECT = 227,
    ST_HDR_EXTRA = 228,
    ST_HDR_CC = 229,
    ST_HDR_MIME_VERSION = 230,
    ST_HDR_MULTIPART = 231,

    // message body
    ST_HDR_END = 233,
    ST_BODY_OPEN = 234,
    ST_BODY_CONTENT_TYPE = 236,
    ST_BODY_ENCODING = 237,
    ST_BODY_SOURCE = 239,
    ST_BODY_TEXT_START = 240,
    ST_BODY_TEXT_LINE = 241,
    ST_BODY_FILE_OPEN = 244,
    ST_BODY_FILE_LINE = 245,

    // end of the message, end of the session
    ST_MSG_END = 251,
    ST_MSG_END_REPLY = 252,
    ST_QUIT = 258,
    ST_QUIT_REPLY = 259,

    // inline images and attachments
    ST_ATT_BOUNDARY = 260,
    ST_ATT_CONTENT_TYPE = 261,
    ST_ATT_ENCODING = 262,
    ST_ATT_DISPOSITION = 263,
    ST_ATT_BLANK = 264,
    ST_ATT_OPEN = 265,
    ST_ATT_BASE64 = 266,
    ST_ATT_LINES = 268,

    // asking about addresses
    ST_VRFY_NEXT = 270,
    ST_VRFY_SEND = 271,
    ST_VRFY_REPLY = 272,

    // a command of the host's own
    ST_SMTP_RAW = 298,
    ST_SMTP_RAW_REPLY = 299,

    // POP3
    ST_POP3_START = 300,
    ST_POP3_GREETING = 301,
    ST_POP3_APOP = 302,
    ST_POP3_USER = 303,
    ST_POP3_USER_REPLY = 304,
    ST_POP3_PASS = 305,
    ST_POP3_LOGIN_REPLY = 306,
    ST_POP3_STAT = 307,
    ST_POP3_STAT_REPLY = 308,

    // fetching and deleting a message by POP3 and IMAP
    ST_FETCH_RAW = 309,
    ST_FETCH_START = 310,
    ST_FETCH_LINES_START = 311,
    ST_FETCH_DECODE = 312,
    ST_FETCH_END = 313,
    ST_FETCH_LINES = 314,
    ST_DELETE = 315,
    ST_DELETE_REPLY = 316,

    // POP3 again
    ST_POP3_LIST = 317,
    ST_POP3_LIST_REPLY = 318,
    ST_POP3_UIDL = 320,
    ST_POP3_UIDL_REPLY = 321,
    ST_POP3_RAW = 398,
    ST_POP3_RAW_REPLY = 399,

    // IMAP
    ST_IMAP_START = 400,
    ST_IMAP_GREETING = 401,
    ST_IMAP_LOGIN = 403,
    ST_IMAP_LOGIN_REPLY = 404,
    ST_IMAP_SELECT = 407,
    ST_IMAP_SELECT_REPLY = 408,
    ST_IMAP_EXPUNGE = 409,
    ST_IMAP_EXPUNGE_REPLY = 410,
    ST_IMAP_GET_FLAGS = 411,
    ST_IMAP_GET_FLAGS_REPLY = 412,
    ST_IMAP_ADD_FLAGS = 413,
    ST_IMAP_REMOVE_FLAGS = 414,
    ST_IMAP_STORE_REPLY = 415,
    ST_IMAP_SEARCH = 417,
    ST_IMAP_SEARCH_REPLY = 418,
    ST_IMAP_GET_SIZE = 419,
    ST_IMAP_GET_SIZE_REPLY = 420,
    ST_IMAP_GET_UID = 421,
    ST_IMAP_GET_UID_REPLY = 422,
    ST_IMAP_RAW = 498,
    ST_IMAP_RAW_REPLY = 499,

    // plain alternative of an HTML message, between 234 and 236
    ST_ALT_HEADER = 500,
    ST_ALT_TEXT = 501,
    ST_ALT_FILE_OPEN = 502,
    ST_ALT_FILE_READ = 503,
    ST_ALT_NEXT = 504,
};
