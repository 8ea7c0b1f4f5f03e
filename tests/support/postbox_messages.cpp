// What the test mail server's IMAP does with the messages of the mailbox that is selected.
#include "postbox_imap.h"

#include <algorithm>

// --- flags ---

struct FlagRow {
    std::string_view Word;
    unsigned Bit;
};

constexpr FlagRow Flags[] = {
    { "\\Answered", FLAG_ANSWERED }, { "\\Flagged", FLAG_FLAGGED }, { "\\Deleted", FLAG_DELETED },
    { "\\Seen", FLAG_SEEN },         { "\\Draft", FLAG_DRAFT },
};

static std::string FlagList(unsigned flags)
{
    std::string list;
    for (const FlagRow& row : Flags)
        if ((flags & row.Bit) != 0)
            list.append(list.empty() ? "" : " ").append(row.Word);
    return "FLAGS (" + list + ")";
}

static unsigned ReadFlags(const Client& client, size_t index)
{
    const unsigned* flags = FlagsOf(client.Selected, client.Mailbox[index].Uid);
    return flags ? *flags : 0u;
}

static void WriteFlags(const Client& client, size_t index, unsigned flags)
{
    if (unsigned* known = FlagsOf(client.Selected, client.Mailbox[index].Uid))
        *known = flags;
}

static void TellFlags(Client& client, size_t index, bool withUid)
{
    Reply(client, "* " + std::to_string(index + 1) + " FETCH (" +
                      (withUid ? "UID " + std::to_string(client.Mailbox[index].Uid) + " " : "") +
                      FlagList(ReadFlags(client, index)) + ")");
}

static bool ParseFlags(const std::string& list, unsigned& flagsOut)
{
    Words words;
    flagsOut = 0;
    if (!SplitList(list, words))
        return false;
    for (const std::string& word : words) {
        const FlagRow* row =
            std::find_if(std::begin(Flags), std::end(Flags),
                         [&](const FlagRow& r) { return EqualNoCase(r.Word, word); });
        if (row == std::end(Flags))
            return false;
        flagsOut |= row->Bit;
    }
    return true;
}

// STORE 2 +FLAGS (\Seen), with FLAGS, -FLAGS and the silent forms.
void Store(Client& client, const Words& words, bool byUid)
{
    std::vector<size_t> picked;
    unsigned bits = 0;
    std::string kind = LowerCase(words[1]);
    const bool isSilent = kind.ends_with(".silent");
    kind = kind.substr(0, kind.find('.'));
    const char sign = kind.empty() ? '?' : kind[0];
    if ((kind != "flags" && kind != "+flags" && kind != "-flags") || !ParseFlags(words[2], bits))
        return End(client, "BAD no such flags");
    if (client.IsReadOnly)
        return End(client, "NO the mailbox is open for reading only");
    if (!PickMessages(client, words[0], byUid, picked))
        return;
    for (const size_t index : picked) {
        const unsigned now = ReadFlags(client, index);
        WriteFlags(client, index, sign == '+' ? now | bits : sign == '-' ? now & ~bits : bits);
        if (!isSilent)
            TellFlags(client, index, byUid);
    }
    End(client, "OK stored");
}

// --- fetching ---

enum Piece { PIECE_FLAGS, PIECE_UID, PIECE_SIZE, PIECE_WHOLE, PIECE_HEAD, PIECE_TEXT };

struct ItemRow {
    std::string_view Name;
    Piece Wanted;
    bool MarksSeen;
};

constexpr ItemRow Items[] = {
    { "FLAGS", PIECE_FLAGS, false },
    { "UID", PIECE_UID, false },
    { "RFC822.SIZE", PIECE_SIZE, false },
    { "RFC822", PIECE_WHOLE, true },
    { "RFC822.HEADER", PIECE_HEAD, false },
    { "RFC822.TEXT", PIECE_TEXT, true },
    { "BODY[]", PIECE_WHOLE, true },
    { "BODY[HEADER]", PIECE_HEAD, true },
    { "BODY[TEXT]", PIECE_TEXT, true },
    { "BODY.PEEK[]", PIECE_WHOLE, false },
    { "BODY.PEEK[HEADER]", PIECE_HEAD, false },
    { "BODY.PEEK[TEXT]", PIECE_TEXT, false },
};

static const ItemRow* FindItem(std::string_view word)
{
    for (const ItemRow& row : Items)
        if (EqualNoCase(row.Name, word))
            return &row;
    return nullptr;
}

// Length of a header with the empty line that ends it.
static size_t HeadSize(std::string_view text)
{
    const size_t end = text.starts_with("\r\n") ? 0 : text.find("\r\n\r\n");
    return end == std::string_view::npos ? text.size() : end + (end == 0 ? 2 : 4);
}

static std::string TellItem(const Client& client, size_t index, const ItemRow& item)
{
    const StoredMessage& message = client.Mailbox[index];
    if (item.Wanted == PIECE_FLAGS)
        return FlagList(ReadFlags(client, index));
    if (item.Wanted == PIECE_UID)
        return "UID " + std::to_string(message.Uid);
    if (item.Wanted == PIECE_SIZE)
        return "RFC822.SIZE " + std::to_string(message.Size);
    std::string bytes = ReadMessage(client.Selected.c_str(), message.Number);
    if (item.Wanted != PIECE_WHOLE) {
        const size_t size = HeadSize(bytes);
        bytes = item.Wanted == PIECE_HEAD ? bytes.substr(0, size) : bytes.substr(size);
    }
    std::string name(item.Name);
    if (const size_t peek = name.find(".PEEK"); peek != std::string::npos)
        name.erase(peek, 5);
    return name + " {" + std::to_string(bytes.size()) + "}\r\n" + bytes;
}

static void FetchOne(Client& client, size_t index, std::vector<const ItemRow*> items)
{
    const bool marks = !client.IsReadOnly && (ReadFlags(client, index) & FLAG_SEEN) == 0 &&
                       std::any_of(items.begin(), items.end(),
                                   [](const ItemRow* item) { return item->MarksSeen; });
    if (marks) { // a change of the flags is told with what has caused it
        WriteFlags(client, index, ReadFlags(client, index) | FLAG_SEEN);
        items.insert(items.begin(), FindItem("FLAGS"));
    }
    std::string line = "* " + std::to_string(index + 1) + " FETCH (";
    for (const ItemRow* item : items)
        line.append(item == items[0] ? "" : " ").append(TellItem(client, index, *item));
    Reply(client, line + ")");
}

void Fetch(Client& client, const Words& words, bool byUid)
{
    Words names;
    std::vector<const ItemRow*> items;
    std::vector<size_t> picked;
    if (byUid)
        items.push_back(FindItem("UID"));
    if (!SplitList(words[1], names) || names.empty())
        return End(client, "BAD no such items");
    for (const std::string& name : names) {
        const ItemRow* item = FindItem(name);
        if (!item)
            return End(client, "BAD no such item: " + name);
        items.push_back(item);
    }
    if (!PickMessages(client, words[0], byUid, picked))
        return;
    for (const size_t index : picked)
        FetchOne(client, index, items);
    End(client, "OK fetched");
}

// --- searching ---

struct KeyRow {
    std::string_view Name;
    unsigned Flag;           // 0: a text is searched for
    bool IsSet;              // the flag
    std::string_view Header; // empty: the whole message
};

constexpr KeyRow Keys[] = {
    { "SEEN", FLAG_SEEN, true, "" },         { "UNSEEN", FLAG_SEEN, false, "" },
    { "ANSWERED", FLAG_ANSWERED, true, "" }, { "UNANSWERED", FLAG_ANSWERED, false, "" },
    { "FLAGGED", FLAG_FLAGGED, true, "" },   { "UNFLAGGED", FLAG_FLAGGED, false, "" },
    { "DELETED", FLAG_DELETED, true, "" },   { "UNDELETED", FLAG_DELETED, false, "" },
    { "DRAFT", FLAG_DRAFT, true, "" },       { "UNDRAFT", FLAG_DRAFT, false, "" },
    { "FROM", 0, false, "\nfrom:" },         { "TO", 0, false, "\nto:" },
    { "SUBJECT", 0, false, "\nsubject:" },   { "TEXT", 0, false, "" },
};

// The lines of the first such header, of a message in lower case.
static std::string_view HeaderLines(std::string_view message, std::string_view header)
{
    const std::string_view head = message.substr(0, HeadSize(message));
    const size_t at = head.starts_with(header.substr(1)) ? 0 : head.find(header);
    size_t end = at;
    while (end < head.size()) {
        end = head.find('\n', end + 1);
        if (end + 1 >= head.size() || (head[end + 1] != ' ' && head[end + 1] != '\t'))
            break;
    }
    return at == std::string_view::npos ? "" : head.substr(at, end - at);
}

static bool HoldsText(const Client& client, size_t index, const KeyRow& key,
                      const std::string& wanted)
{
    const std::string message =
        LowerCase(ReadMessage(client.Selected.c_str(), client.Mailbox[index].Number));
    const std::string_view place = key.Header.empty() ? message : HeaderLines(message, key.Header);
    return place.find(LowerCase(wanted)) != std::string_view::npos;
}

// Takes the messages out that the key at a place doesn't fit; at goes behind it. False: the client
// has been told that there is no such key.
static bool ApplyKey(Client& client, const Words& words, size_t& at, std::vector<bool>& fits)
{
    const KeyRow* row = std::find_if(std::begin(Keys), std::end(Keys), [&](const KeyRow& key) {
        return EqualNoCase(key.Name, words[at]);
    });
    const bool isKey = row != std::end(Keys);
    const bool wantsText = isKey && row->Flag == 0;
    std::vector<size_t> picked;
    if (wantsText && ++at == words.size())
        return End(client, "BAD a text is missing"), false;
    if (!isKey && !EqualNoCase(words[at], "ALL") && !PickMessages(client, words[at], false, picked))
        return false;
    for (size_t i = 0; i < fits.size(); ++i) {
        if (wantsText)
            fits[i] = fits[i] && HoldsText(client, i, *row, words[at]);
        else if (isKey)
            fits[i] = fits[i] && ((ReadFlags(client, i) & row->Flag) != 0) == row->IsSet;
        else if (!EqualNoCase(words[at], "ALL"))
            fits[i] = fits[i] && std::find(picked.begin(), picked.end(), i) != picked.end();
    }
    ++at;
    return true;
}

void Search(Client& client, const Words& words, bool byUid)
{
    std::vector<bool> fits(client.Mailbox.size(), true);
    for (size_t at = 0; at < words.size();)
        if (!ApplyKey(client, words, at, fits))
            return;
    std::string line = "* SEARCH";
    for (size_t i = 0; i < fits.size(); ++i)
        if (fits[i])
            line += " " + std::to_string(byUid ? client.Mailbox[i].Uid : i + 1);
    Reply(client, line);
    End(client, "OK searched");
}

// --- copying and removing ---

void Copy(Client& client, const Words& words, bool byUid)
{
    std::vector<size_t> picked;
    const std::string folder = FolderOfMailbox(client.Folder, words[1]);
    if (!MailboxExists(folder))
        return End(client, "NO [TRYCREATE] no such mailbox");
    if (!PickMessages(client, words[0], byUid, picked))
        return;
    for (const size_t index : picked) {
        const std::string message =
            ReadMessage(client.Selected.c_str(), client.Mailbox[index].Number);
        if (message.empty() || !StoreMessage(folder.c_str(), "", message))
            return End(client, "NO a message can't be copied");
        const std::vector<StoredMessage> there = ListByUid(folder);
        if (unsigned* flags = FlagsOf(folder, there.back().Uid))
            *flags = ReadFlags(client, index);
    }
    End(client, "OK copied");
}

bool RemoveDeleted(Client& client, bool isTold)
{
    bool isDone = true;
    for (size_t i = 0; i < client.Mailbox.size();) {
        if ((ReadFlags(client, i) & FLAG_DELETED) == 0) {
            ++i;
            continue;
        }
        if (!RemoveMessage(client.Selected.c_str(), client.Mailbox[i].Number))
            isDone = false;
        client.Mailbox.erase(client.Mailbox.begin() + static_cast<std::ptrdiff_t>(i));
        if (isTold)
            Reply(client, "* " + std::to_string(i + 1) + " EXPUNGE");
    }
    ListByUid(client.Selected); // forgets what has gone
    return isDone;
}

void Expunge(Client& client, const Words&, bool)
{
    if (client.IsReadOnly)
        return End(client, "NO the mailbox is open for reading only");
    const bool isDone = RemoveDeleted(client, true);
    End(client, isDone ? "OK expunged" : "NO some messages can't be removed");
}
