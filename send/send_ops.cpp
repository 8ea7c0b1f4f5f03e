// The operations that hand a message over. They check what can be checked at once, copy every text
// into the channel's memory and point the driver at the envelope; the message itself is produced
// afterwards, a line per state.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "send/address.h"
#include "send/attach_params.h"
#include "transport/channel_io.h"
#include "transport/vsock.h"

static bool IsGiven(const char* text)
{
    return text != nullptr && *text != 0;
}

// --- sending ---

struct Message {
    const char *To, *Cc, *Bcc, *Subject, *Text, *Images, *Alternative, *Attachments;
};

// Copies an optional text to a slot: 0, with null for an absent one, or RYN_ERR_NO_MEMORY.
static int32_t CopyToSlot(Channel& ch, int32_t slot, const char* text, char*& copyOut)
{
    copyOut = nullptr;
    if (!IsGiven(text))
        return 0;
    copyOut = AllocAndCopy(ch.ChannelNumber, slot, text);
    return copyOut == nullptr ? RYN_ERR_NO_MEMORY : 0;
}

static int32_t CopyList(Channel& ch, int32_t slot, const char* text, const char* label,
                        char*& listOut)
{
    if (IsGiven(text))
        if (const int32_t status = CheckAddressBrackets(ch, text, label, true); status < 0)
            return status;
    return CopyToSlot(ch, slot, text, listOut);
}

static int32_t CopyRecipients(Channel& ch, const Message& message)
{
    if (const int32_t status = CopyList(ch, SLOT_TO, message.To, "To:", ch.ToList); status < 0)
        return status;
    if (const int32_t status = CopyList(ch, SLOT_CC, message.Cc, "CC:", ch.CcList); status < 0)
        return status;
    if (const int32_t status = CopyList(ch, SLOT_BCC, message.Bcc, "BCC:", ch.BccList); status < 0)
        return status;
    if (ch.ToList == nullptr && ch.CcList == nullptr && ch.BccList == nullptr)
        return RYN_ERR_NO_RECIPIENT;
    return 0;
}

static int32_t CopyTexts(Channel& ch, const Message& message)
{
    int32_t status = CopyToSlot(ch, SLOT_SUBJECT, message.Subject, ch.SubjectText);
    if (ch.SubjectText != nullptr)
        CleanHeaderText(ch.SubjectText, true);
    char* text = nullptr;
    if (status == 0)
        status = CopyToSlot(ch, SLOT_MESSAGE, message.Text, text);
    ch.MessageText = text == nullptr ? "" : text;
    if (status == 0)
        status = CopyToSlot(ch, SLOT_ALTERNATIVE, message.Alternative, ch.AltText);
    return status;
}

// The images go out before the attachments.
static int32_t CopyFileLists(Channel& ch, const Message& message)
{
    int32_t status = CopyToSlot(ch, SLOT_INLINE, message.Images, ch.InlineText);
    if (status == 0)
        status = CopyToSlot(ch, SLOT_ATTACHMENTS, message.Attachments, ch.AttachmentText);
    ch.InlinePending = ch.InlineText != nullptr ? 1 : 0;
    ch.AttachBegPtr = ch.InlineText != nullptr ? ch.InlineText : ch.AttachmentText;
    return status;
}

// Forgets the message before; what lasts from send to send is not touched.
static void ResetMessage(Channel& ch, bool isHtml, bool isForward)
{
    StopDriver(ch); // a send that still runs is over: its texts are about to go
    ch.IsHtml = isHtml ? 1 : 0;
    ch.IsForward = isForward ? 1 : 0;
    ch.MsgBytesRead = ch.AttachBytesRead = ch.MsgBytesSent = ch.AttachBytesSent = 0;
    ch.ContentIdCount = 0;
    ch.AcceptedRecipients = 0;
    ch.MixedOpen = 0;
    ch.InlinePending = 0;
    ch.InlineText = nullptr;
    ch.AttachmentText = nullptr;
    ch.AttachBegPtr = nullptr;
    ch.AttachParamCount = AttachSetCount();
    ch.AttachParamIndex = 0;
    ch.ToList = nullptr;
}

static int32_t StartSend(const char* operation, bool isHtml, bool isForward, uint32_t channel,
                         const Message& message)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (ch.Protocol != 'S')
        return RYN_ERR_SMTP_ONLY;
    LogFormat(ch, "*** %s\r\n", operation);
    if (ChannelConnected(ch, 0) < 1)
        return RYN_ERR_NOT_CONNECTED;
    ResetMessage(ch, isHtml, isForward);
    if (const int32_t status = CopyRecipients(ch, message); status < 0)
        return status;
    if (const int32_t status = CopyTexts(ch, message); status < 0)
        return status;
    if (const int32_t status = CopyFileLists(ch, message); status < 0)
        return status;
    ch.WaitWritable = 1;
    ch.NextState = ST_SMTP_MAIL_FROM;
    if (ch.AutoCallDriver == 0)
        return 0;
    LogText(&ch, "*** Sending...\r\n");
    return RunDriver(ch);
}

int32_t rynSendEmail(uint32_t channel, const char* to, const char* cc, const char* bcc,
                     const char* subject, const char* message, const char* attachments)
{
    const Message parts = { to, cc, bcc, subject, message, nullptr, nullptr, attachments };
    return StartSend("rynSendEmail", false, false, channel, parts);
}

int32_t rynSendHTML(uint32_t channel, const char* to, const char* cc, const char* bcc,
                    const char* subject, const char* message, const char* images,
                    const char* alternative, const char* attachments)
{
    const Message parts = { to, cc, bcc, subject, message, images, alternative, attachments };
    return StartSend("rynSendHTML", true, false, channel, parts);
}

int32_t rynForwardEmail(uint32_t channel, const char* to, const char* cc, const char* bcc,
                        const char* subject, const char* message, const char* forwarded)
{
    const Message parts = { to, cc, bcc, subject, message, nullptr, nullptr, forwarded };
    rynAttachmentParams("Content-Type: message/rfc822", "Content-Transfer-Encoding: 7bit",
                        "Content-Disposition: attachment", nullptr);
    return StartSend("rynSendEmail", false, true, channel, parts);
}

// --- a file in the place of a server ---

// Forgets a send that still runs: its rest must not go elsewhere.
static void DropSend(Channel& ch)
{
    StopDriver(ch);
    CloseTransferFiles(ch);
}

static int32_t EndTarget(Channel& ch)
{
    ch.ErrorFileName[0] = 0;
    DropSend(ch);
    DetachFiles(ch);
    ch.TargetMode = 0;
    return 1;
}

static int32_t BeginTarget(Channel& ch, const char* targetFile)
{
    DropSend(ch);
    DetachFiles(ch);
    CloseChannelSocket(ch); // a connection would be out of reach behind the file
    const int32_t vs = ch.ChannelNumber;
    const int32_t result = vsOpenTarget(vs, targetFile);
    if (result == VS_OK) {
        ch.ErrorFileName[0] = 0;
        ch.WaitWritable = 0;
        ch.VSock = vs;
        ch.TargetMode = 1;
        return 1;
    }
    ch.VSock = -1;
    ch.TargetMode = 0;
    if (result == VS_ERR_NO_SLOT)
        return RYN_ERR_CANNOT_CREATE_SOCKET;
    CopyField(ch.ErrorFileName, targetFile);
    return RYN_ERR_NO_SUCH_FILE;
}

int32_t rynSmtpTarget(uint32_t channel, const char* targetFile, const char* from,
                      const char* replyTo)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    ch.Protocol = 'S';
    LogText(&ch, "*** rynSmtpTarget\r\n");
    LogText(&ch, "*** rynSetTarget\r\n");
    if (!IsGiven(targetFile))
        return EndTarget(ch);
    SetSender(ch, from, replyTo);
    return BeginTarget(ch, targetFile);
}

// --- asking about addresses ---

int32_t rynVerifyUser(uint32_t channel, const char* addresses)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (ch.Protocol != 'S')
        return RYN_ERR_SMTP_ONLY;
    LogText(&ch, "*** rynVerifyUser\r\n");
    if (!IsGiven(addresses))
        return RYN_ERR_NO_RECIPIENT;
    StopDriver(ch); // a send that still runs is over: its list is about to go
    ch.RecipientCursor = AllocAndCopy(ch.ChannelNumber, SLOT_TO, addresses);
    if (ch.RecipientCursor == nullptr)
        return RYN_ERR_NO_MEMORY;
    ch.NextState = ST_VRFY_NEXT;
    if (ch.AutoCallDriver == 0)
        return 0;
    const int32_t result = RunDriver(ch);
    return result < 0 ? result : ch.VerifyResult;
}
