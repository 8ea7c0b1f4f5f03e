"""What rynmail does by IMAP alone: flags, searching, mailboxes, and the ways in which a fetch can go
wrong there."""
from mailbox_case import *  # the language of the cases


def imap(server, command, *words, **more):
    """What rynmail tells, as text."""
    server.protocol = "imap"
    return mailbox(server, command, *words, **more).stdout.decode()


def scripted_imap(*replies):
    """A server with one message that takes the login and closes the inbox behind the replies."""
    return scripted_server([b"* OK hi\r\n", b"{T} OK\r\n", b"* 1 EXISTS\r\n{T} OK\r\n", *replies])


# --- fetch ---

def told_size(size):
    return b"* 1 FETCH (RFC822.SIZE %d)\r\n{T} OK\r\n" % size


def told_mail(text):
    return b"* 1 FETCH (RFC822 {%d}\r\n%s)\r\n{T} OK\r\n" % (len(text), text)


def test_UncertainImapMessagesAreNotDeleted(server):
    size = len(MAIL)
    done, bye = b"{T} OK\r\n", [b"{T} OK\r\n"]
    gone = [done, b"* 1 EXPUNGE\r\n{T} OK\r\n", b"* SEARCH\r\n{T} OK\r\n"]
    bracket, blunt = MAIL + b")\r\nx\r\n", MAIL + b"last"

    def whole(text=MAIL, announced=None):
        announced = len(text) if announced is None else announced
        return [told_size(announced), told_mail(text), told_size(announced)]

    rows = [
        # replies behind the login, exit code, what is told, commands behind RFC822, folder
        (whole() + gone + bye, DONE, b"", "FETCH STORE EXPUNGE SEARCH LOGOUT", "1"),
        (whole() + gone + [None], DONE, b"", None, "1"),
        (whole(announced=size - 1) + bye, OTHER, b"message 1 has %d bytes here and %d on the server"
         % (size, size - 1), "FETCH LOGOUT", "1"),
        (whole(bracket) + bye, OTHER, b"lines that hold a ')' alone get lost: --pop3 fetches them",
         "FETCH LOGOUT", "1"),
        (whole(blunt) + gone + bye, DONE, b"message 1 has no line end", None, "1"),
        ([told_size(size), told_mail(MAIL)[:-30], None], CONNECTION,
         b"the server went away inside message 1", "", "1.part"),
        ([b"{T} NO \x1b[1mnot\x9b here\r\n"] + bye, REFUSED,
         b"fetching message 1: NO ?[1mnot? here", None, None),
        (whole() + [b"{T} NO never\r\n"] + bye, REFUSED, b"deleting message 1: NO never",
         "FETCH STORE LOGOUT", "1"),
        (whole() + [done, b"{T} NO locked\r\n", b"* SEARCH 1\r\n{T} OK\r\n"] + bye, CONNECTION,
         b"not confirmed", "FETCH STORE EXPUNGE SEARCH LOGOUT", "1"),
        (whole() + [done, b"* 1 EXPUNGE\r\n{T} OK\r\n", None], CONNECTION, b"not confirmed", None,
         "1"),
    ]
    for number, (replies, code, reason, commands, folder) in enumerate(rows):
        address, told = scripted_imap(*replies)
        out = os.path.join(server.files, "out%d" % number)
        shown = imap(server, "fetch", "--delete", "--keep-raw", "--message", "all", "--into", out,
                     wanted=code, address=address, tells=reason)
        same("deleted 1" in shown, code == DONE)
        same(os.listdir(out), ["000" + folder] if folder else [])
        if code == DONE:
            same(read_file(out + "/0001/message.eml"), blunt if reason else MAIL)
        if commands is not None:
            same(" ".join(line.split()[1].decode() for line in told[4:] if line), commands)


def test_MailboxThatCannotBeOpenedIsTold(server):
    rows = [
        ([b"* BYE \x1b[1mbusy\r\n", None], b"BYE ?[1mbusy"),
        ([b"* OK\r\n", b"{T} NO [ALERT] go away\r\n", b"{T} OK\r\n"], b"NO [ALERT] go away"),
        ([b"* OK\r\n", b"{T} OK\r\n", b"{T} NO no inbox\r\n", b"{T} OK\r\n"],
         b"the mailbox 'INBOX' can't be opened: NO no inbox"),
    ]
    for replies, reason in rows:
        address, _ = scripted_server(replies)
        imap(server, "flags", "--message", "all", wanted=REFUSED, tells=reason, address=address)
    for words in (("list",), ("search", "ALL")):  # one by EXAMINE, one by SELECT
        imap(server, *words, "--mailbox", "no such", wanted=REFUSED,
             tells=b"the mailbox 'no such' can't be opened: NO no such mailbox")


# --- search and flags ---

def test_SearchTellsNumbers(server):
    put(server, b"From: Ann\nSubject: red\n\nx\n", b"From: Bob\nSubject: a red\n\ty blue\n\nann\n",
        b"From: Cid\n\nred\n")
    imap(server, "flags", "--message", "2", "3", "--add", "seen")
    rows = [(["ALL"], "1 2 3"), (["seen"], "2 3"), (["UNSEEN"], "1"), (["TEXT red"], "1 2 3"),
            (["SUBJECT", "red"], "1 2"), (['SUBJECT "Y blue"'], "2"), (["FROM", '"ann"'], "1"),
            (["SEEN", "1:2"], "2"), (["3,1"], "1 3"), (["DELETED"], "")]
    for criteria, numbers in rows:
        same(imap(server, "search", *criteria).split(), numbers.split())
    for criteria, code, reason in (
            ("RED", REFUSED, b"searching: IMAP returned error. BAD no such messages"),
            ('"', REFUSED, b"BAD"), ("", USAGE, b"wants criteria"), ("x" * 901, USAGE, b"900 bytes"),
            ("ALL\r\nx LOGOUT", USAGE, b"control char"), ("TEXT {3}", USAGE, b"end in '}'")):
        imap(server, "search", criteria, wanted=code, tells=reason)


def test_LongSearchIsWhole(server):
    numbers = [str(number) for number in range(1, 3001)]
    address, _ = scripted_server([
        b"* OK\r\n", b"{T} OK\r\n", b"* 3000 EXISTS\r\n{T} OK\r\n",
        b"* SEARCH " + " ".join(numbers).encode() + b"\r\n{T} OK\r\n", b"{T} OK\r\n"])
    same(imap(server, "search", "ALL", address=address).split(), numbers)


def test_FlagsAreShownAndChanged(server):
    put(server, MAIL, MAIL)
    rows = [
        (["list"], None),  # marks nothing
        (["flags", "--message", "all"], "1\t\n2\t\n"),
        (["flags", "--message", "1", "--add", "seen", "answered", "flagged", "deleted", "draft"],
         "1\tseen answered flagged deleted draft\n"),
        (["flags", "--message", "1", "--remove", "answered", "draft", "--add", "seen"],
         "1\tseen flagged deleted\n"),
        (["flags", "--message", "2", "1"], "2\t\n1\tseen flagged deleted\n"),  # nothing was expunged
        (["fetch", "--message", "2", "--into", server.files + "/out"], None),
        (["flags", "--message", "2"], "2\tseen\n"),
    ]
    for words, shown in rows:
        found = imap(server, *words)
        check(shown in (None, found), found, shown)
    for words, code, reason in (
            (["--message", "3"], REFUSED, b"there is no message 3: the mailbox holds 2"),
            (["--message", "0"], USAGE, b"--message takes"), ([], USAGE, b"--message takes"),
            (["--message", "1", "--add", "recent"], USAGE, b"--add and --remove take"),
            (["--message", "1", "--pop3", "x"], USAGE, b"no such option")):
        imap(server, "flags", *words, wanted=code, tells=reason)
    address, _ = scripted_imap(b"{T} NO \x1b[2Jread only\r\n", b"{T} OK\r\n")
    imap(server, "flags", "--message", "1", "--add", "seen", address=address, wanted=REFUSED,
         tells=b"changing the flags of message 1: IMAP returned error. NO ?[2Jread only")


# --- mailboxes ---

def test_MailboxesAreMadeFilledAndDeleted(server):
    put(server, MAIL, b"Subject: two\n\nx\n")
    rows = [
        (["mailboxes"], "INBOX\n"),
        (["mailboxes", "--create", "old mail", "b&APY-x"], "created old mail\ncreated b&APY-x\n"),
        (["mailboxes", "--message", "2", "1", "--copy-to", "old mail"],
         "copied message 2 to old mail\ncopied message 1 to old mail\n"),
        (["mailboxes", "--rename", "b&APY-x", "c"], "renamed b&APY-x to c\n"),
        (["mailboxes", "--message", "all", "--mailbox", "old mail", "--copy-to", "c"],
         "copied message 1 to c\ncopied message 2 to c\n"),
        (["mailboxes"], "INBOX\nc\nold mail\n"),
        (["mailboxes", "--create", "x", "--delete", "x", "old mail"],
         "created x\ndeleted x\ndeleted old mail\n"),
        (["search", "--mailbox", "c", "SUBJECT", "lunch"], "2\n"),
    ]
    for words, shown in rows:
        same(imap(server, *words), shown)
    imap(server, "fetch", "--mailbox", "c", "--delete", "--message", "2", "--into",
         server.files + "/out")
    same(fetched(server)["0001"], {"message.txt": MAIL})
    check("\ttwo\n" in imap(server, "list", "--mailbox", "c"))
    same(sorted(name for name in os.listdir(server.box)), ["0001.eml", "0002.eml", "c"])


def test_MailboxesThatCannotBeHadAreTold(server):
    put(server, MAIL)
    long = "n" * 26
    rows = [
        (["--create", "INBOX"], REFUSED, b"not created INBOX: NO there"),
        (["--create", "../up"], REFUSED, b"not created ../up: NO "),
        (["--delete", "none"], REFUSED, b"not deleted none: NO no such mailbox"),
        (["--rename", "none", "x"], REFUSED, b"not renamed none to x: NO no such"),
        (["--message", "1", "--copy-to", "none"], REFUSED, b"not copied message 1 to none: NO [TRY"),
        (["--message", "2", "--copy-to", "INBOX"], REFUSED, b"there is no message 2"),
        *[(words, USAGE, b"' is too long: '") for words in (
            ["--create", long], ["--delete", long], ["--rename", "n" * 12, "n" * 13],
            ["--create", "n" * 22 + " x"], ["--message", "1", "--copy-to", long],
            ["--message", "1", "--copy-to", "x", "--mailbox", "n" * 33])],
        (["--rename", "a"], USAGE, b"--rename takes two names"),
        (["--copy-to", "a"], USAGE, b"want each other"), (["--message", "1"], USAGE, b"want each"),
        (["--mailbox", "a"], USAGE, b"--mailbox wants"),
        (["--create", "a\r\nx LOGOUT"], USAGE, b"control char"),
    ]
    for words, code, reason in rows:
        same(imap(server, "mailboxes", *words, wanted=code, tells=reason), "")
    imap(server, "list", "--mailbox", "n" * 25, wanted=USAGE, tells=b"too long")
    same(imap(server, "mailboxes", "--create", "n" * 25), "created %s\n" % ("n" * 25))


def test_NamesOfOtherServers(server):
    address, _ = scripted_imap(
        b'* LIST (\\Noselect \\Marked) "/" "a (b) \\"c\\\\"\r\n* LIST () NIL INBOX\r\n'
        b'* LIST () "." x.y\r\n* LIST () " " "\x1b[1mz"\r\n* 2 EXISTS\r\n{T} OK\r\n', b"{T} OK\r\n")
    same(imap(server, "mailboxes", address=address), 'a (b) "c\\\nINBOX\nx.y\n?[1mz\n')
    address, _ = scripted_imap(b'* LIST () "/" a\r\n* LIST () "/" {1}\r\nb\r\n{T} OK\r\n', b"{T} OK\r\n")
    same(imap(server, "mailboxes", address=address, wanted=REFUSED, tells=b"not whole"), "a\n{1}\n")


main(globals())
