"""rynmail list, fetch and decode: what lands on the disk and on the terminal, and what is told when
something goes wrong."""
import hashlib
import resource
import signal

from mailbox_case import *  # the language of the cases

# --- list ---

@over_both
def test_ListTellsEachMessageInALineWithoutControlChars(server):
    same(mailbox(server, "list").stdout, b"")
    rows = [
        (b"From: Ann <ann@mail.example>\nDate: Mon, 1 Jan 2024 10:00:00 +0000\nSubject: Lunch\n",
         "Ann <ann@mail.example>\tMon, 1 Jan 2024 10:00:00 +0000\tLunch"),
        (b"X-Subject: no\nsubject:folded\n\t once\n  twice\nSubject: later\n",
         "\t\tfolded once twice"),
        (b"Subject: a =?UTF-8?Q?Gr=C3=BC=C3=9Fe_=?=\n =?utf-8?b?4pg=?= =?UTF-8*de?B?gw==?= b\n",
         "\t\ta Gr\u00fc\u00dfe \u2603 b"),
        (b"Subject: =?iso-8859-1?q?caf=E9?= =?koi8-r?B?8A==?= =?utf-8?x?y?= =?utf-8?q?z\n",
         "\t\tcaf\u00e9 =?koi8-r?B?8A==?= =?utf-8?x?y?= =?utf-8?q?z"),
        (b"From: a\x1b[31mb\x07\x7f\tc\x9b1m\xc2\x9b1md\xe2\x80\xaee\xef\xbb\xbf \xc3\xa4\n"
         b"Date: =?utf-8?q?=1B]0;x=07=0D=0A1=09?=\nSubject: =?iso-8859-1?q?=9B31m?=\n",
         "a?[31mb???c?1m?1md?e? \u00e4\t?]0;x???1?\t?31m"),
        (b"", "\t\t"),
    ]
    put(server, *[head + b"\nSubject: body\n" for head, _ in rows])
    listed = [line.split("\t", 3) for line in mailbox(server, "list").stdout.decode().splitlines()]
    same([line[0] for line in listed], [str(number) for number in range(1, len(rows) + 1)])
    same([line[1] for line in listed], [str(len(lines(head)) + 17) for head, _ in rows])
    same([line[3] for line in listed], [wanted for _, wanted in rows])
    same(len({line[2] for line in listed}), len(rows))
    again = mailbox(server, "list").stdout.decode().splitlines()
    same([line.split("\t", 3) for line in again], listed)


def test_ListOfAnOldServer(server):
    address, told = scripted_server([
        b"+OK hi\r\n", b"+OK\r\n", b"+OK\r\n", b"+OK 1 9\r\n", b"-ERR what?\r\n", b"+OK 1 9\r\n",
        b"+OK\r\nFrom: x\r\n\r\nSubject: body\r\n.\r\n", b"+OK bye\r\n"])
    same(mailbox(server, "list", address=address).stdout, b"1\t9\t-\tx\t\t\n")
    same(told[2:], [b"STAT\r\n", b"UIDL 1\r\n", b"LIST 1\r\n", b"TOP 1 0\r\n", b"QUIT\r\n", b""])


# --- fetch ---

@over_both
def test_FetchedMessagesAreTakenApart(server):
    data = os.urandom(50000)
    bracket = b")\n" if server.protocol == "pop3" else b""  # by IMAP such a line gets lost
    put(server, b"From: Ann <ann@mail.example>\nTo: bob@mail.example\nSubject: =?utf-8?q?x_y?=\n" +
        parts((b"Content-Type: text/plain\n", b".\n.. a line\n" + bracket, False),
              (b"Content-Type: text/plain; charset=utf-8\n"
               b"Content-Transfer-Encoding: quoted-printable\n", b"a_b=20=\nc =C3=A4\n", False),
              (b'Content-Type: application/x-data; name="data.bin"\n', data, True),
              (b"Content-Type: text/plain\n", b"read me\n", True),
              (b"Content-Type: message/rfc822\n", b"Subject: inner\n\nwhole\n", False)), MAIL,
        parts((b"Content-Type: x/y; name=a\n", b"", True), (b"Content-Type: x/y; name=3-b\n", b"b", True)))
    run = fetch(server)
    found = fetched(server)
    same(set(found), {"0001", "0002", "0003"})
    head = lines(b"From: Ann <ann@mail.example>\nTo: bob@mail.example\nSubject: x_y\n\n")
    same(found["0001"], {"message.txt": head + lines(b".\n.. a line\n" + bracket + b"a_b c \xc3\xa4\n"),
                         "1-data.bin": data, "2-incoming.txt": b"read me\n",
                         "3-rfc822.txt": lines(b"Subject: inner\n\nwhole\n")})
    same(found["0002"], {"message.txt": MAIL})
    same(found["0003"], {"message.txt": b"\r\n", "1-a": b"", "2-3-b": b"b"})
    shown = run.stdout.decode().replace(server.files, "F")
    size = os.path.getsize(os.path.join(server.box, "0001.eml"))
    same(shown.splitlines()[:4],
         ["message 1, %d bytes: F/out/0001" % size, "    From:    Ann <ann@mail.example>",
          "    To:      bob@mail.example", "    Subject: x y"])
    same([line.split() for line in shown.splitlines()[4:8]],
         [["message.txt", str(len(found["0001"]["message.txt"])), "bytes", "text"],
          ["1-data.bin", "50000", "bytes", "application/x-data"],
          ["2-incoming.txt", "8", "bytes", "text/plain"],
          ["3-rfc822.txt", "25", "bytes", "message/rfc822"]])
    same(len(os.listdir(server.box)), 3)


def test_AttachmentsBeyondTheListAreThere(server):
    names = ["%0200d" % number for number in range(30)]
    put(server, parts(*[(b"Content-Type: x/y; name=%s\n" % name.encode(), name.encode(), True)
                        for name in names]))
    run = fetch(server)
    # The library lists what fits 5121 chars with a number, a hyphen and a delimiter each.
    check(b"    and 5 more attachments\n" in run.stdout, run.stdout)
    wanted = {"%d-%s" % (number, name): name.encode() for number, name in enumerate(names, 1)}
    same(fetched(server)["0001"], {**wanted, "message.txt": b"\r\n"})


def test_HostileNamesStayInTheFolder(server):
    rows = [("report.txt", "report.txt"), ("report.txt", "report.txt"), ("..", ".."),
            ("../../up.txt", ".._.._up.txt"), ("..\\..\\up.txt", "up.txt"),
            (".profile", ".profile"), ("C:/a/b*?<>|.txt", "_a_b_____.txt"),
            ("message.txt", "message.txt"), (".message.txt", ".message.txt"),
            ("x\x1b[31m\x07y", "x_[31m_y"), ("b\u00f6se\u2028.txt", "b\u00f6se\u2028.txt"),
            ("n" * 300, "n" * 300), (" ; =b=", "; _b_")]
    names = [shown.encode() for shown, _ in rows]
    named = b'Content-Type: x/y; name="%s"\nContent-Disposition: attachment; filename="%s"\n'
    put(server, parts(*[(named % (name, name), b"%d" % number, True)
                        for number, name in enumerate(names, 1)]))
    before = sorted(os.listdir(server.files))
    run = fetch(server)
    # The library keeps 256 chars of a path, and the folder still is called ".part".
    room = 256 - len(os.path.join(server.files, "out", "0001.part") + "/")
    wanted = {("%d-%s" % (number, name))[:room]: b"%d" % number
              for number, (_, name) in enumerate(rows, 1)}
    same(fetched(server), {"0001": {**wanted, "message.txt": b"\r\n"}})
    same(sorted(os.listdir(server.files)), before + ["out"])
    check(re.fullmatch("[\n -~\u00f6]*", run.stdout.decode()), run.stdout)


def test_NothingThereIsReplaced(server):
    put(server, MAIL)
    out = os.path.join(server.files, "out")
    os.makedirs(os.path.join(out, "0001"))
    file_with(server, "out/0002", b"mine")
    os.symlink("nowhere", os.path.join(out, "0003"))
    os.mkdir(os.path.join(out, "0004.part"))
    fetch(server)
    fetch(server)
    same(sorted(os.listdir(out)), ["0001", "0002", "0003", "0004", "0004.part", "0005"])
    same(read_file(os.path.join(out, "0002")), b"mine")
    same(os.listdir(os.path.join(out, "0001")), [])


@over_both
def test_RawMessagesAreKeptToTheLastByte(server):
    bodies = [b".\n..\n.x\n", b"." * 20000 + b"\n.\n", b"+OK this is text\nend\n", b"+ok+\n",
              b"\n" * 9]
    put(server, *[b"Subject: x\n\n" + body for body in bodies])
    fetch(server, "--keep-raw")
    for number, body in enumerate(bodies, 1):
        found = fetched(server)["%04d" % number]
        same(sorted(found), ["message.eml", "message.txt"])
        same(found["message.eml"], lines(b"Subject: x\n\n" + body))


def test_LineThatTheLibraryLeavesOutIsTold(server):
    put(server, b"\na\n+OK b\nc\n", b"\n+OKx\n")
    run = fetch(server, tells=b"message.txt lacks lines that begin with +OK: see message.eml")
    same(run.stderr.count(b"\n"), 1)  # four chars of Base64 are no such line
    same(fetched(server)["0001"], {"message.txt": b"\r\na\r\nc\r\n",
                                   "message.eml": b"\r\na\r\n+OK b\r\nc\r\n"})


@over_both
def test_DeletedIsWhatIsOnTheDisk(server):
    put(server, MAIL, MAIL, MAIL)
    fetch(server, messages="2")
    same(len(os.listdir(server.box)), 3)
    same(fetch(server, "--delete", messages="2").stdout.splitlines()[-1], b"deleted 1")
    same(sorted(os.listdir(server.box)), ["0001.eml", "0003.eml"])
    fetch(server, "--delete", messages="13", wanted=REFUSED,
          tells=b"there is no message 3: the mailbox holds 2")
    same(len(os.listdir(server.box)), 2)
    fetch(server, "--delete")
    same(os.listdir(server.box), [])
    same([found["message.txt"] for found in fetched(server).values()], [MAIL] * 4)


HELLO = [b"+OK hi\r\n", b"+OK\r\n", b"+OK\r\n", b"+OK 1 99\r\n"]
STUFFED = b"+OK\r\n" + MAIL.replace(b"\r\n.", b"\r\n..") + b".\r\n"


def listed(size):
    return b"+OK 1 %d\r\n" % size


def test_UncertainMessagesAreNotDeleted(server):
    size = len(MAIL)
    count = MAIL.count(b"\n")
    bye = [b"+OK bye\r\n"]
    gone = [b"+OK\r\n", b"-ERR gone\r\n"]
    fled = b"the server went away inside message 1"

    def whole(announced):
        return [listed(announced), STUFFED, listed(announced)]

    rows = [
        # replies behind the count, exit code, what is told, commands behind RETR, folder
        (whole(size) + gone + bye, DONE, b"", "LIST DELE LIST QUIT", "1"),
        (whole(size - count) + gone + bye, DONE, b"", "LIST DELE LIST QUIT", "1"),
        (whole(size - 2) + gone + bye, DONE, b"", "LIST DELE LIST QUIT", "1"),
        (whole(size + 1) + bye, OTHER, b"message 1 has %d bytes here and %d on the server: a file "
         b"may be cut short" % (size, size + 1), "LIST QUIT", "1"),
        (whole(size - 1) + bye, OTHER, b"cut short", "LIST QUIT", "1"),
        ([listed(size), STUFFED[:-10], None], CONNECTION, fled, "", "1.part"),
        ([listed(size), b"+OK\r\n", None], CONNECTION, fled, "", None),
        ([b"-ERR \x1b[1mnot\x9b here\r\n"] + bye, REFUSED,
         b"fetching message 1: -ERR ?[1mnot? here", None, None),
        (whole(size) + [b"-ERR never\r\n"] + bye, REFUSED, b"deleting message 1: -ERR never",
         "LIST DELE QUIT", "1"),
        (whole(size) + gone + [b"-ERR locked\r\n"], CONNECTION, b"not confirmed",
         "LIST DELE LIST QUIT", "1"),
        (whole(size) + gone + [None], CONNECTION, b"not confirmed", None, "1"),
        (whole(size) + [b"+OK\r\n", listed(size)] + bye, CONNECTION, b"not confirmed",
         "LIST DELE LIST QUIT", "1"),
    ]
    for number, (replies, code, reason, commands, folder) in enumerate(rows):
        address, told = scripted_server(HELLO + replies)
        out = os.path.join(server.files, "out%d" % number)
        run = mailbox(server, "fetch", "--delete", "--message", "all", "--into", out, wanted=code,
                      address=address, tells=reason)
        same(b"deleted 1" in run.stdout, code == DONE)
        same(os.listdir(out), ["000" + folder] if folder else [])
        if commands is not None:
            sent = [command.split()[0].decode() for command in told[5:] if command]
            same(sent, commands.split())


@over_both
def test_FilesCutShortAreTold(server):
    """A limit for the size of files stands for a full disk."""
    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

    put(server, parts((b"Content-Type: x/y; name=big\n", os.urandom(150000), True)))
    fetch(server, "--delete", wanted=OTHER, preexec=limit, tells=b"a file may be cut short")
    same(os.listdir(server.box), ["0001.eml"])


@over_both
def test_WhatCannotBeFetchedIsTold(server):
    put(server, MAIL)
    taken = file_with(server, "taken", b"")
    out = server.files + "/out"
    address = getattr(server, server.protocol)
    base = ["fetch", "--" + server.protocol, address, "--user", "ann", "--message", "1", "--into", out]
    rows = [
        (base[:-2], USAGE, b"fetch wants"), (base[:-4] + base[-2:], USAGE, b"fetch wants"),
        (base[:3] + base[5:], USAGE, b"fetch wants"),
        (base[:1] + base[3:], USAGE, b"wants --pop3 or --imap, and not both"),
        (base + ["--pop3", "x", "--imap", "x"], USAGE, b"not both"),
        (base + (["--apop"] if server.protocol == "imap" else ["--mailbox", "x"]), USAGE, b"for --pop3"
         if server.protocol == "imap" else b"--mailbox wants --imap"),
        (["list", "--" + server.protocol, address], USAGE, b"list wants"),
        (["decode", "x"], USAGE, b"decode wants"), (["decode", "--into", out], USAGE, b"decode wants"),
        *[(base + ["--message", number], USAGE, b"--message takes")
          for number in ("0", "-1", "1x", "", "4294967297", "All")],
        (base + ["--message", "1", "all"], USAGE, b"--message takes"),
        (base + ["--message", "2"], REFUSED, b"there is no message 2: the mailbox holds 1"),
        *[(base + ["--into", folder], USAGE, b"--into takes")
          for folder in ("a\\b", "a\nb", "", out + "x" * 150)],
        (base + ["--into", taken], LOCAL_FILE, b"/taken' can't be used: "),
        (base + ["--into", taken + "/x"], LOCAL_FILE, b"/taken/x' can't be used: "),
        (base + ["--into", "/proc"], LOCAL_FILE, b"'/proc' can't be used: "),
        (base + ["--log", out + "/no/log"], LOCAL_FILE, b"log"),
        (base + ["--" + server.protocol, "host:x"], USAGE, b"no HOST"),
        (base + ["--user", "a\r\nDELE 1"], USAGE, b"control char"),
        (base + ["--user", "u" * 65], USAGE, b"--user takes"),
        (base + ["--auth", "plain"], USAGE, b"no such option"),
        (base + ["--ca", "x"], USAGE, b"--tls"),
        (base + ["--tls", "maybe", "--ca", "x"], USAGE, b"--tls takes")]
    for words, code, reason in rows:
        run = rynmail(*words, secret="x")
        same((run.returncode, run.stdout), (code, b""))
        check(run.stderr.startswith(b"rynmail: ") and reason in run.stderr, run.stderr)
    for secret, reason in ((None, b"no password"), ("", b"password"), ("s" * 65, b"64 chars"),
                           ("a\r\nDELE 1", b"control char")):
        fetch(server, secret=secret, wanted=USAGE, tells=reason)
    same(fetched(server), {})
    same(os.listdir(server.box), ["0001.eml"])


# --- login ---

@over_both
def test_MailboxLoginsKeepTheirSecret(server):
    put(server, MAIL)
    shown, refusal = {
        "pop3": ([b"USER ann\r", b"PASS ****"], b"-ERR [AUTH] user or password is wrong"),
        "imap": ([b" LOGIN ****"], b"NO [AUTHENTICATIONFAILED] user or password is wrong"),
    }[server.protocol]
    for number, wanted in enumerate((SECRET, 'two "words\\ {5}')):
        log = os.path.join(server.files, "log%d" % number)
        with guarded_postbox(server, wanted):
            run = mailbox(server, "list", "--log", log, secret=wanted)
            content = read_file(log)
            check(all(line in content for line in shown), content)
            no_secret_in(content + run.stdout + run.stderr, wanted)
            for secret, user in ((wanted[:-1], "ann"), (wanted, "bob")):
                run = mailbox(server, "list", "--user", user, secret=secret, wanted=REFUSED,
                              tells=refusal)
                no_secret_in(run.stderr, secret)


def test_ApopShowsNobodyThePassword(server):
    rows = [(b"+OK hi <1896.697@mail.example> there\r\n", DONE), (b"+OK hi\r\n", REFUSED),
            (b"-ERR \x1b[1mbusy\r\n", REFUSED)]
    for greeting, code in rows:
        address, told = scripted_server([greeting, b"+OK\r\n", b"+OK 0 0\r\n", b"+OK\r\n"])
        mailbox(server, "list", "--apop", address=address, secret="tanstaaf", wanted=code)
        digest = hashlib.md5(b"<1896.697@mail.example>tanstaaf").hexdigest().encode()
        if code == DONE:
            same(told[0], b"APOP ann " + digest + b"\r\n")


@over_both
def test_MailboxGoesThroughTls(server):
    folder = temporary_folder(server)
    put(server, MAIL)
    with guarded_postbox(server):
        for kind, extra in (("implicit", []), ("starttls", ["protocol = " + server.protocol])):
            with tls_server(server, getattr(server, server.protocol), *extra) as port:
                run = mailbox(server, "list", "--tls", kind, "--stunnel", LAUNCHER, "--ca",
                              os.path.join(server.files, "server.pem"), secret=SECRET,
                              address="localhost:%d" % port, TMPDIR=folder)
                check(b"\tLunch\n" in run.stdout, run.stdout)
    same(os.listdir(folder), [])


@over_both
def test_FetchShowsItsProgress(server):
    put(server, parts((b"Content-Type: x/y; name=big\n", os.urandom(3000000), True)))
    outcome, shown = on_terminal(
        ["fetch", "--" + server.protocol, getattr(server, server.protocol), "--user", "ann",
         "--message", "1", "--into", server.files + "/out"], [], secret="x")
    same(outcome, DONE)
    bars = re.findall(rb"\rfetching message 1 \[[#-]{24}\] (\d+)%  [0-9.]+ [kM]?B of 4\.1 MB",
                      shown)
    check(len(bars) > 1 and bars == sorted(bars, key=int), shown)


# --- decode ---

def test_StoredMessagesAreTakenApart(server):
    rows = [(b"Subject: x\n\n.\n..\n)\nlast", b"Subject: x\n\n.\n..\n)\nlast\n", {}),
            (b"Subject: x\r\n\r\na\rb\r\n.\r\n", b"Subject: x\r\n\r\na\rb\r\n.\r\n", {}),
            (b"", b"", {}),
            (b"From a@b Mon Jan  1 10:00:00 2024\nTo: x\n\ntext\n", b"To: x\n\ntext\n", {}),
            (parts((b"Content-Type: text/plain\n", b"hi\n", False),
                   (b"Content-Disposition: attachment; filename=t.c\n", b"{\n)\n.\n}\n", False),
                   (b"Content-Disposition: attachment; filename=u\n", b"\0\xff" * 9000, True)),
             b"\nhi\n", {"1-t.c": b"{\r\n)\r\n.\r\n}\r\n", "2-u": b"\0\xff" * 9000})]
    paths = [file_with(server, "%d*1;.eml" % number, source)
             for number, (source, _, _) in enumerate(rows)]
    decode(server, *paths)
    for number, (source, text, attachments) in enumerate(rows, 1):
        text = text.replace(b"\r\n", b"\n").replace(b"\n", b"\r\n")
        same(fetched(server)["%04d" % number], {"message.txt": text, **attachments})
        same(read_file(paths[number - 1]), source)
    decode(server, paths[0])
    same(len(fetched(server)), len(rows) + 1)


def test_FilesThatCannotBeDecodedAreTold(server):
    for path in (server.files, os.path.join(server.files, "missing")):
        decode(server, path, wanted=LOCAL_FILE, tells=b"rynmail: can't use '%s': " % path.encode())
    same(fetched(server), {})


main(globals())
