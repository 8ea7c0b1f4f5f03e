"""Runs rynmail against postbox: rynmail_test.py RYNMAIL POSTBOX CASE.

A case is a routine test_CASE(server): it runs rynmail and looks at what rynmail said, at its exit
code, and at the bytes that arrived. The server's folder is new for each case.
"""
import base64
import contextlib
import email
import email.header
import email.utils
import hashlib
import hmac
import os
import pty
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

DONE, USAGE, CONNECTION, REFUSED, LOCAL_FILE = 0, 1, 2, 3, 4
RYNMAIL, POSTBOX = sys.argv[1:3]
ANN = ["--from", "ann@mail.example"]


class Server:
    """What a case has in hand: the server's address, its folder, a folder for files."""
    address = ""
    box = ""
    files = ""


def check(condition, *shown):
    if not condition:
        sys.exit("FAILED: " + "\n".join(str(each) for each in shown))


def same(found, wanted):
    check(found == wanted, "found  %r" % (found,), "wanted %r" % (wanted,))


def environment(secret=None, **more):
    """What rynmail shall find in its environment."""
    variables = {name: value for name, value in os.environ.items() if name != "RYNMAIL_PASSWORD"}
    if secret is not None:
        variables["RYNMAIL_PASSWORD"] = secret
    return {**variables, **more}


def rynmail(*words, stdin=b"", secret=None, **more):
    """Runs rynmail without a terminal: a session of its own has none."""
    run = subprocess.run([RYNMAIL, *words], input=stdin, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, check=False, start_new_session=True,
                         env=environment(secret, **more))
    print("$ rynmail", *words, "->", run.returncode)
    print(run.stdout.decode("utf-8", "replace") + run.stderr.decode("utf-8", "replace"))
    return run


def send(server, *words, stdin=b"", wanted=DONE, secret=None):
    """rynmail send to that server; checks the exit code, and that errors are told."""
    run = rynmail("send", "--server", server.address, *ANN, *words, stdin=stdin, secret=secret)
    same(run.returncode, wanted)
    same(run.stderr == b"", wanted == DONE)
    return run


def file_with(server, name, content):
    path = os.path.join(server.files, name)
    with open(path, "wb") as file:
        file.write(content)
    return path


def arrived(server, number=1):
    """Message and envelope of that number, both as bytes."""
    parts = []
    for ending in ("eml", "envelope"):
        with open(os.path.join(server.box, "%04d.%s" % (number, ending)), "rb") as file:
            parts.append(file.read())
    return parts


def arrived_text(server, number=1):
    """The decoded first text part, with its charset."""
    message = email.message_from_bytes(arrived(server, number)[0])
    part = next(each for each in message.walk() if not each.is_multipart())
    return part.get_payload(decode=True), part.get_content_charset()


def leaves(server, number=1):
    """The parts that hold no others."""
    message = email.message_from_bytes(arrived(server, number)[0])
    return [part for part in message.walk() if not part.is_multipart()]


def shown_name(part):
    return str(email.header.make_header(email.header.decode_header(part.get_filename())))


def read_file(path):
    with open(path, "rb") as file:
        return file.read()


def nothing_arrived(server):
    same(os.listdir(server.box), [])


# --- what arrives ---

def test_PlainMessageArrivesToTheLastByte(server):
    run = send(server, "--to", "bob@mail.example", "--subject", "Lunch",
               "--text", "At noon?\n.\n..two\nlast")
    same(run.stdout, b"sent to 1 of 1 recipients\n")
    message, envelope = arrived(server)
    same(envelope, b"MAIL FROM:<ann@mail.example>\nRCPT TO:<bob@mail.example>\n")
    head, body = message.split(b"\r\n\r\n", 1)
    same(body, b"At noon?\r\n.\r\n..two\r\nlast\r\n")
    lines = head.split(b"\r\n")
    patterns = [rb"X-Mailer: .+", rb"Date: \w{3}, \d\d? \w{3} \d{4} \d\d:\d\d:\d\d [+-]\d{4}",
                rb"To: <bob@mail\.example>", rb"From: <ann@mail\.example>",
                rb"Message-ID: <[0-9a-f.]+@mail\.example>", rb"Subject: Lunch"]
    same(len(lines), len(patterns))
    for line, pattern in zip(lines, patterns):
        check(re.fullmatch(pattern, line), line, pattern)


def test_EveryListReachesTheEnvelopeAndBccNoHeader(server):
    run = send(server, "--to", "Bob <bob@mail.example>", "<eve@mail.example>", "--cc",
               "cid@mail.example", "--bcc", "dan@mail.example", "--to", "fay@mail.example",
               "--text", "x")
    same(run.stdout, b"sent to 5 of 5 recipients\n")
    message, envelope = arrived(server)
    same(re.findall(rb"RCPT TO:<(\w+)@", envelope), [b"bob", b"eve", b"fay", b"cid", b"dan"])
    parsed = email.message_from_bytes(message)
    same(re.findall(r"<(\w+)@", parsed["To"]), ["bob", "eve", "fay"])
    check("Bob <bob@mail.example>" in parsed["To"], parsed["To"])
    same(parsed["Cc"], "<cid@mail.example>")
    check(b"dan@" not in message, message)


def test_SubjectOutsideAsciiIsEncoded(server):
    short = "Gr\u00fc\u00dfe \u2603"
    long = "\u20ac" * 40 + " und so weiter \U0001F600"
    for number, subject in enumerate((short, long), 1):
        send(server, "--to", "bob@mail.example", "--text", "x", "--subject", subject)
        line = re.search(rb"\r\nSubject: ([^\r]*)\r\n", arrived(server, number)[0]).group(1)
        for word in line.split(b" "):
            check(re.fullmatch(rb"=\?UTF-8\?B\?[A-Za-z0-9+/=]+\?=", word) and len(word) <= 75, word)
        decoded = email.header.make_header(email.header.decode_header(line.decode()))
        same(str(decoded), subject)


def test_SubjectCannotSmuggleAHeaderLine(server):
    send(server, "--to", "bob@mail.example", "--text", "x",
         "--subject", "one\r\nBcc: eve@mail.example\nX-Two: 2\rthree")
    parsed = email.message_from_bytes(arrived(server)[0])
    same(parsed["Subject"], "one Bcc: eve@mail.example X-Two: 2 three")
    same(parsed["X-Two"], None)


def test_TextOutsideAsciiGoesAsUtf8(server):
    text = "Gr\u00fc\u00dfe,\nzehn \u20ac\n".encode() + b"z" * 3000 + "\u00e4".encode() * 400
    path = file_with(server, "text.txt", text)
    send(server, "--to", "bob@mail.example", "--text-file", path)
    content, charset = arrived_text(server)
    same(charset, "utf-8")
    same(content.replace(b"\r\n", b"\n").rstrip(b"\n"), text)
    body = arrived(server)[0].split(b"\r\n\r\n", 1)[1]
    check(max(len(line) for line in body.split(b"\r\n")) <= 76, "a quoted line is too long", body)


def test_TabsAndLongLinesSurvive(server):
    text = b"a\tb\n" + b"long " * 500
    send(server, "--to", "bob@mail.example", "--text", "-", stdin=text)
    same(arrived_text(server)[0].replace(b"\r\n", b"\n").rstrip(b"\n"), text)


def test_NamedCharsetIsKept(server):
    path = file_with(server, "text.txt", b"caf\xe9\n")
    send(server, "--to", "bob@mail.example", "--text-file", path, wanted=USAGE)
    nothing_arrived(server)
    send(server, "--to", "bob@mail.example", "--text-file", path, "--charset", "ISO-8859-1")
    content, charset = arrived_text(server)
    same((content.strip(), charset), (b"caf\xe9", "iso-8859-1"))


def test_StandardInputMayBeLong(server):
    text = b"".join(b"line %d\n" % number for number in range(100000))
    send(server, "--to", "bob@mail.example", "--text", "-", stdin=text)
    same(arrived(server)[0].split(b"\r\n\r\n", 1)[1], text.replace(b"\n", b"\r\n"))


def test_TextThatBeginsLikeAFileNameIsText(server):
    for number, text in enumerate(("@/etc/hostname", "|x", "@"), 1):
        send(server, "--to", "bob@mail.example", "--text", text)
        same(arrived(server, number)[0].split(b"\r\n\r\n", 1)[1], text.encode() + b"\r\n")


def test_EmptyTextMakesAnEmptyMessage(server):
    empty = file_with(server, "empty.txt", b"")
    for number, words in enumerate((["--text", ""], ["--text", "-"], ["--text-file", empty]), 1):
        send(server, "--to", "bob@mail.example", *words)
        check(arrived(server, number)[0].split(b"\r\n\r\n", 1)[1].strip() == b"",
              arrived(server, number)[0])


def test_FileNamesWithOddCharsWork(server):
    for number, name in enumerate(("a*1", "back\\slash", "b lank", "\u00fc"), 1):
        path = file_with(server, name, b"from a file\n")
        send(server, "--to", "bob@mail.example", "--text-file", path)
        same(arrived(server, number)[0].split(b"\r\n\r\n", 1)[1], b"from a file\r\n")


def test_HtmlComesWithItsPlainAlternative(server):
    html = "<p>Gr\u00fc\u00dfe</p>\n".encode()
    path = file_with(server, "page.html", html)
    send(server, "--to", "bob@mail.example", "--html", path, "--text", "@first\n.\n..two\n")
    parts = [part for part in email.message_from_bytes(arrived(server)[0]).walk()
             if not part.is_multipart()]
    same([part.get_content_type() for part in parts], ["text/plain", "text/html"])
    same(parts[0].get_payload(decode=True).rstrip(b"\r\n"), b"@first\r\n.\r\n..two")
    same(parts[1].get_content_charset(), "utf-8")
    same(parts[1].get_payload(decode=True).strip(), html.strip())


def test_AlternativeThatCannotGoUnencodedIsRefused(server):
    page = file_with(server, "page.html", b"<p>x</p>\n")
    for text in ("\u00fc", "x" * 999, "line\n" * 4000):
        send(server, "--to", "bob@mail.example", "--html", page, "--text", "-",
             stdin=text.encode(), wanted=USAGE)
    nothing_arrived(server)


def test_NamesAreQuotedOrEncoded(server):
    names = ["Bob", "Doe, John", "\"Dr. X\"", "Zo\u00eb", "j@x", "a\"b\\c"]
    typed = ["%s <bob@mail.example>" % name for name in names]
    send(server, "--to", *typed, "--text", "x")
    line = re.search(rb"\r\nTo: ([^\r]*)\r\n", arrived(server)[0]).group(1).decode()
    pairs = email.utils.getaddresses([line])
    shown = [str(email.header.make_header(email.header.decode_header(name))) for name, _ in pairs]
    same(shown, ["Bob", "Doe, John", "Dr. X", "Zo\u00eb", "j@x", "a\"b\\c"])


# --- files ---

BOB = ["--to", "bob@mail.example"]


def test_AttachmentsArriveToTheLastByte(server):
    contents = [b"", b"x", b"y" * 56, b"\0" * 57, b"\r\n.\r\n" * 12, os.urandom(200000)]
    paths = [file_with(server, "file%d" % n, content) for n, content in enumerate(contents)]
    send(server, *BOB, "--text", "see below\n", "--attach", *paths)
    parts = leaves(server)
    same(parts[0].get_payload(decode=True).strip(), b"see below")
    same([part.get_payload(decode=True) for part in parts[1:]], contents)
    same([part.get_filename() for part in parts[1:]], ["file%d" % n for n in range(len(contents))])
    same({part.get_content_disposition() for part in parts[1:]}, {"attachment"})


def test_TypeOfAnAttachmentFollowsItsName(server):
    rows = [("a.pdf", "application/pdf"), ("b.WAV", "audio/x-wav"), ("c.png", "image/png"),
            ("d.txt", "application/octet-stream"), ("e", "application/octet-stream")]
    paths = [file_with(server, name, b"x") for name, _ in rows]
    send(server, *BOB, "--attach", *paths)
    parts = leaves(server)
    same(parts[0].get_payload(decode=True).strip(), b"")
    same([part.get_content_type() for part in parts[1:]], [kind for _, kind in rows])


def test_NamesOfAttachmentsAreShownAsTheyAre(server):
    plain = ["a;b|c.txt", "x=y.txt", "b lank_under,comma.txt", "'@#%.txt", "n" * 176 + ".txt"]
    encoded = ["\u00fc_\u20ac x.txt", "\U0001F600.txt", 'quo"te.txt', "\u00fc" * 88 + ".txt"]
    folder = os.path.join(server.files, "f:o;l|d=e r")
    os.mkdir(folder)
    for number, names in enumerate((plain, plain + encoded), 1):
        paths = [file_with(server, os.path.join(folder, name), name.encode()) for name in names]
        send(server, *BOB, "--text", "x", "--attach", *paths)
        parts = leaves(server, number)[1:]
        same([shown_name(part) for part in parts], names)
        same([part.get_payload(decode=True) for part in parts], [name.encode() for name in names])
    for part in parts:
        check(re.fullmatch(r"=\?UTF-8\?B\?[A-Za-z0-9+/=]+\?=", part.get_filename()),
              part.get_filename())


def test_AnotherNameIsShownWhereOneIsGiven(server):
    one = file_with(server, "one=1.bin", b"1")
    two = file_with(server, "two:2.bin", b"2")
    send(server, *BOB, "--text", "x", "--attach", one, two + "=zw\u00f6lf*.pdf", one + "=x.gif")
    parts = leaves(server)[1:]
    same([shown_name(part) for part in parts], ["one=1.bin", "zw\u00f6lf*.pdf", "x.gif"])
    same([part.get_content_type() for part in parts],
         ["application/octet-stream", "application/pdf", "image/gif"])
    same([part.get_payload(decode=True) for part in parts], [b"1", b"2", b"1"])


def test_FilesThatCannotBeSentAreTold(server):
    good = file_with(server, "good.png", b"x")
    bad = [file_with(server, name, b"x") for name in ("a\\b", "a*1", "a:b", "a\nb", "n" * 181)]
    bad.append(os.fsdecode(os.fsencode(server.files) + b"/\xe9"))
    file_with(server, bad[-1], b"x")
    bad += [good + "=", good + "=a/b", good + "=a\x01b", os.path.join(server.files, "missing"),
            server.files, "/dev/null"]
    for word in bad:
        run = send(server, *BOB, "--text", "x", "--attach", good, word, wanted=LOCAL_FILE)
        check(b"can't be sent: " in run.stderr, run.stderr)
    for word in (os.path.join(server.files, "missing"), server.files, bad[1],
                 file_with(server, "zero", b"a\0b")):
        send(server, *BOB, "--text", "x", "--forward", word, wanted=LOCAL_FILE)
    page = file_with(server, "page.html", b"<p>x</p>")
    for word in (file_with(server, "a.txt", b"x"), file_with(server, ".gif", b"x"),
                 good + "=x.jpeg"):
        send(server, *BOB, "--html", page, "--inline", word, wanted=LOCAL_FILE)
    nothing_arrived(server)


def test_HtmlShowsItsImages(server):
    page = file_with(server, "page.html",
                     b'<p><img src="cid:message-root.1"><img src="cid:message-root.2"></p>\n')
    plain = file_with(server, "page.txt", b"two images\n")
    images = [file_with(server, name, os.urandom(500)) for name in ("one.GIF", "tw\u00f6.png")]
    data = file_with(server, "data.bin", os.urandom(1000))
    send(server, *BOB, "--html", page, "--alt", plain, "--inline", *images, "--attach", data)
    message = email.message_from_bytes(arrived(server)[0])
    related, attachment = message.get_payload()
    alternative, first, second = related.get_payload()
    same([each.get_content_type() for each in (message, related, alternative)],
         ["multipart/mixed", "multipart/related", "multipart/alternative"])
    same([each.get_content_type() for each in alternative.get_payload()],
         ["text/plain", "text/html"])
    for number, (part, path) in enumerate(zip((first, second), images), 1):
        same(part["Content-ID"], "<message-root.%d>" % number)
        same(part.get_content_disposition(), "inline")
        same(part.get_payload(decode=True), read_file(path))
        same(shown_name(part), os.path.basename(path))
    same(attachment.get_payload(decode=True), read_file(data))


def test_ForwardedMessageStaysAsItIs(server):
    stored = (b"From: eve@mail.example\r\nSubject: =?UTF-8?B?w7w=?=\r\nX-Long: " + b"w " * 495 +
              b"\r\n\r\nfirst\r\n.\r\n..two\r\n" + b"x" * 998 + b"\r\n\r\n=20 --\r\n" +
              b"the end\r\n")
    path = file_with(server, "old=1;2|3.eml", stored)
    texts = ["see below", "Gr\u00fc\u00dfe = \u20ac\n.\n\ttab and blank \n" + "\u00e4\u20ac" * 300 +
             "\n" + "=" * 90]
    for number, text in enumerate(texts, 1):
        send(server, *BOB, "--text", text, "--forward", path)
        message = arrived(server, number)[0]
        check(b"Content-Type: message/rfc822\r\nContent-Transfer-Encoding: 7bit\r\n"
              b"Content-Disposition: attachment\r\n\r\n" + stored + b"\r\n--" in message, message)
        part = leaves(server, number)[0]
        shown = part.get_payload(decode=True).replace(b"\r\n", b"\n").strip(b"\n")
        same(shown, text.encode().strip(b"\n"))
    lines = arrived(server, 2)[0].split(b"message/rfc822")[0].split(b"\r\n")
    check(max(len(line) for line in lines) <= 76, lines)
    send(server, *BOB, "--forward", path)
    check(stored in arrived(server, 3)[0], arrived(server, 3)[0])


def test_OverlongLinesOfAForwardedMessageAreCut(server):
    stored = b"Subject: x\r\n\r\n" + b"y" * 5000 + b"\r\nend\r\n"
    send(server, *BOB, "--forward", file_with(server, "old.eml", stored))
    body = arrived(server)[0].split(b"Subject: x\r\n\r\n")[1]
    check(body.replace(b"\r\n", b"").startswith(b"y" * 5000 + b"end"), body)


def test_EveryCopyHoldsTheFiles(server):
    content = os.urandom(5000)
    path = file_with(server, "data.bin", content)
    send(server, "--skip-refused", "--to", "bob@mail.example", "no@refused.example",
         "eve@mail.example", "--attach", path, wanted=REFUSED)
    for number in (1, 2):
        same(leaves(server, number)[1].get_payload(decode=True), content)


# --- login ---

SECRET = "s3cret/+=\u00fc*"


@contextlib.contextmanager
def guarded_postbox(server):
    """A postbox that wants a login, in place of the usual one."""
    with running_postbox(server.box, "--user", "ann:" + SECRET) as server.address:
        yield


def no_secret_in(content, secret, user="ann"):
    raw = secret.encode()
    name = user.encode()
    for block in (raw, b"%s\0%s\0%s" % (name, name, raw)):
        check(base64.b64encode(block) not in content, content)
    check(raw not in content, content)


def test_LoginByPlainAndByLogin(server):
    with guarded_postbox(server):
        rows = [([], b"LOGIN"), (["--auth", "plain"], b"PLAIN"), (["--auth", "login"], b"LOGIN"),
                (["--auth", "CRAM-MD5", "plain"], b"PLAIN")]
        for number, (words, method) in enumerate(rows, 1):
            log = os.path.join(server.files, "log%d" % number)
            run = send(server, *BOB, "--text", "x", "--user", "ann", *words, "--log", log,
                       secret=SECRET)
            same(run.stdout, b"sent to 1 of 1 recipients\n")
            content = read_file(log)
            check(b"AUTH " + method + b" ok" in content and b"235 welcome" in content, content)
            no_secret_in(content + run.stderr, SECRET)
            arrived(server, number)


def test_RefusedLoginsAreTold(server):
    words = [*BOB, "--text", "x"]
    run = send(server, *words, "--user", "ann", secret=SECRET, wanted=REFUSED)
    check(b"offers no login" in run.stderr, run.stderr)
    with guarded_postbox(server):
        for secret in ("wrong", SECRET + "x", SECRET[:-1]):
            run = send(server, *words, "--user", "ann", secret=secret, wanted=REFUSED)
            check(b"535 user or password is wrong" in run.stderr, run.stderr)
        run = send(server, *words, "--user", "bob", secret=SECRET, wanted=REFUSED)
        check(b"535" in run.stderr, run.stderr)
        run = send(server, *words, "--user", "ann", "--auth", "cram-md5", secret=SECRET,
                   wanted=REFUSED)
        check(b"only: PLAIN LOGIN" in run.stderr, run.stderr)
        for more in ([], ["--ehlo"]):
            run = send(server, *words, *more, wanted=REFUSED)
            check(b"530 log in first" in run.stderr, run.stderr)
    nothing_arrived(server)


def test_LoginWithoutAPasswordIsTold(server):
    words = [*BOB, "--text", "x"]
    rows = [(None, ["--user", "ann"]), ("", ["--user", "ann"]), ("s" * 2049, ["--user", "ann"]),
            (SECRET, ["--user", ""]), (SECRET, ["--user", "u" * 65]),
            (SECRET, ["--auth", "plain"]), (SECRET, ["--user", "ann", "--auth", "magic"]),
            (SECRET, ["--user", "ann", "--auth", "xoauth2", "plain"]),
            ("s" * 110, ["--user", "ann", "--log", os.path.join(server.files, "log")]),
            ("t" * 30, ["--user", "ann", "--auth", "xoauth2", "--log",
                        os.path.join(server.files, "log")])]
    for secret, more in rows:
        run = send(server, *words, *more, secret=secret, wanted=USAGE)
        check(not secret or secret.encode() not in run.stderr, run.stderr)
    nothing_arrived(server)
    same(os.listdir(server.files), [])


def login_server(offer, replies):
    """Greets, offers methods and plays the replies; returns its address and what it is told."""
    listener = socket.create_server(("127.0.0.1", 0))
    told = []

    def serve():
        peer = listener.accept()[0]
        with peer, peer.makefile("rb") as lines:
            for reply in (b"220 hello\r\n", b"250-hello\r\n250 AUTH " + offer + b"\r\n", *replies):
                peer.sendall(reply)
                told.append(lines.readline())

    threading.Thread(target=serve, daemon=True).start()
    return "127.0.0.1:%d" % listener.getsockname()[1], told


def test_CramMd5ShowsNobodyThePassword(_):
    challenge = b"<1896.697170952@postoffice.example>"
    address, told = login_server(b"CRAM-MD5 PLAIN", [
        b"334 " + base64.b64encode(challenge) + b"\r\n", b"235 welcome\r\n", b"550 not you\r\n"])
    run = rynmail("send", "--server", address, *ANN, *BOB, "--text", "x", "--user", "ann",
                  secret=SECRET)
    same(run.returncode, REFUSED)
    digest = hmac.new(SECRET.encode(), challenge, hashlib.md5).hexdigest().encode()
    same(told[1:4], [b"AUTH CRAM-MD5\r\n", base64.b64encode(b"ann " + digest) + b"\r\n",
                     b"MAIL FROM:<ann@mail.example>\r\n"])


def test_TokenGoesByXOAuth2(_):
    address, told = login_server(b"XOAUTH2 PLAIN", [b"235 welcome\r\n", b"550 not you\r\n"])
    run = rynmail("send", "--server", address, *ANN, *BOB, "--text", "x", "--user", "ann",
                  "--auth", "xoauth2", secret="ya29.token")
    same(run.returncode, REFUSED)
    block = base64.b64encode(b"user=ann\1auth=Bearer ya29.token\1\1")
    same(told[1:3], [b"AUTH XOAUTH2 " + block + b"\r\n", b"MAIL FROM:<ann@mail.example>\r\n"])


def on_terminal(words, answers, secret=None):
    """Runs rynmail on a terminal of its own and answers each prompt; its exit code and what the
    terminal showed."""
    process, terminal = pty.fork()
    if process == 0:
        os.execve(RYNMAIL, [RYNMAIL, *words], environment(secret))
    shown = b""
    with contextlib.suppress(OSError):  # how the end of a terminal shows
        while block := os.read(terminal, 65536):
            shown += block
            if answers and answers[0][0] in shown:
                os.write(terminal, answers.pop(0)[1])
    outcome = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
    os.close(terminal)
    print("$ rynmail", *words, "->", outcome, shown)
    return outcome, shown


def test_PasswordIsAskedForAndNotShown(server):
    with guarded_postbox(server):
        words = ["send", "--server", server.address, *ANN, *BOB, "--text", "x", "--user", "ann"]
        prompt = b"Password for ann: "
        outcome, shown = on_terminal(words, [(prompt, SECRET.encode() + b"\n")])
        same(outcome, DONE)
        check(b"sent to 1 of 1 recipients" in shown, shown)
        no_secret_in(shown, SECRET)
        arrived(server)
        for answer in (b"\x03", b"\x04", b"half\x03", b"\n"):
            outcome, shown = on_terminal(words, [(prompt, answer)])
            same(outcome, USAGE)


def test_ProgressIsABarOnATerminal(server):
    path = file_with(server, "big.bin", os.urandom(3000000))
    outcome, shown = on_terminal(["send", "--server", server.address, *ANN, *BOB, "--attach", path],
                                 [])
    same(outcome, DONE)
    bars = re.findall(rb"\rsending \[([#-]{24})\] (\d+)%  [0-9.]+ [kM]?B of 3\.0 MB"
                      rb"(  [0-9.]+ [kM]?B/s  \d+:\d\d left|  waiting for the server|)\x1b\[K",
                      shown)
    check(len(bars) > 1, shown)
    for bar, percent, rest in bars:
        same(len(bar.rstrip(b"-")), bar.count(b"#"))
        check(abs(bar.count(b"#") * 100 - int(percent) * 24) <= 100, bar, percent)
        same(rest == b"  waiting for the server", percent == b"100")
    same(bars[-1][0], b"#" * 24)
    check(b"\x1b[Ksent to 1 of 1 recipients\r\n" in shown, shown)


# --- encryption ---

LAUNCHER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tunnel/ryn32-stunnel")
TLS_SERVER = """foreground = yes
pid =
[server]
accept = 127.0.0.1:%d
connect = %s
cert = server.pem
protocol = smtp
"""


def run_openssl(*words):
    subprocess.run(["openssl", *words], check=True, stderr=subprocess.DEVNULL)


def make_certificates(folder):
    """A certificate authority, ca.pem, and server.pem for the name localhost."""
    curve = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    within = lambda name: os.path.join(folder, name)
    run_openssl("req", "-x509", *curve, "-keyout", within("ca.key"), "-out", within("ca.pem"),
                "-days", "3", "-subj", "/CN=Test CA", "-addext", "keyUsage=critical,keyCertSign")
    run_openssl("req", *curve, "-keyout", within("server.key"), "-out", within("server.csr"),
                "-subj", "/CN=server")
    with open(within("ext"), "w", encoding="ascii") as file:
        file.write("subjectAltName=DNS:localhost\nbasicConstraints=CA:FALSE\n")
    run_openssl("x509", "-req", "-in", within("server.csr"), "-CA", within("ca.pem"), "-CAkey",
                within("ca.key"), "-CAcreateserial", "-days", "3", "-extfile", within("ext"),
                "-out", within("server.crt"))
    with open(within("server.pem"), "wb") as file:
        file.write(read_file(within("server.key")) + read_file(within("server.crt")))


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


@contextlib.contextmanager
def tls_server(server):
    """A mail server that speaks STARTTLS: stunnel in front of a postbox; its port."""
    make_certificates(server.files)
    port = free_port()
    with subprocess.Popen(["stunnel4", "-fd", "0"], stdin=subprocess.PIPE, cwd=server.files,
                          stderr=subprocess.DEVNULL) as tunnel:
        tunnel.stdin.write((TLS_SERVER % (port, server.address)).encode())
        tunnel.stdin.close()
        while not listens(port):
            check(tunnel.poll() is None, "stunnel has ended")
            time.sleep(0.02)
        try:
            yield port
        finally:
            tunnel.terminate()


def tls_words(server, port, ca="ca.pem"):
    return ["send", "--server", "localhost:%d" % port, *ANN, *BOB, "--text", "x", "--tls",
            "starttls", "--ca", os.path.join(server.files, ca), "--stunnel", LAUNCHER]


def temporary_folder(server):
    folder = os.path.join(server.files, "tmp")
    os.mkdir(folder)
    return folder


def test_MailAndPasswordGoThroughTls(server):
    folder = temporary_folder(server)
    with guarded_postbox(server), tls_server(server) as port:
        words = tls_words(server, port) + ["--user", "ann"]
        log = os.path.join(server.files, "session.log")
        local_port = free_port()
        for more in (["--log", log], ["--tunnel-port", str(local_port), "--cert",
                                      os.path.join(server.files, "server.pem")]):
            run = rynmail(*words, *more, secret=SECRET, TMPDIR=folder)
            same((run.returncode, run.stderr), (DONE, b""))
        no_secret_in(read_file(log), SECRET)
        check(not listens(local_port), "the tunnel is still there")
    same(os.listdir(folder), [])
    arrived(server, 2)


def test_TlsNeedsNoLogin(server):
    with tls_server(server) as port:
        same(rynmail(*tls_words(server, port)).returncode, DONE)
    arrived(server)


def test_CertificateOfSomebodyElseIsRefused(server):
    folder = temporary_folder(server)
    with tls_server(server) as port:
        run_openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                    "-nodes", "-keyout", os.path.join(server.files, "key"), "-out",
                    os.path.join(server.files, "other.pem"), "-subj", "/CN=Other CA")
        run = rynmail(*tls_words(server, port, "other.pem"), TMPDIR=folder)
        same(run.returncode, CONNECTION)
        check(b"rynmail: the tunnel says: " in run.stderr and b"certificate" in run.stderr,
              run.stderr)
    same(os.listdir(folder), [])
    nothing_arrived(server)


def test_TunnelThatCannotBeHadIsTold(server):
    folder = temporary_folder(server)
    make_certificates(server.files)
    good = tls_words(server, 2525)
    missing = os.path.join(server.files, "missing")
    blank = file_with(server, "a blank", b"#!/bin/sh\n")
    rows = [([*good, "--ca", missing], LOCAL_FILE), ([*good, "--stunnel", missing], LOCAL_FILE),
            ([*good, "--stunnel", blank], LOCAL_FILE), ([*good, "--cert", missing], LOCAL_FILE),
            ([*good, "--tls", "maybe"], USAGE), ([*good, "--tls", "implicit"], USAGE),
            ([*good, "--server", "localhost:465"], USAGE), ([*good, "--tunnel-port", "0"], USAGE),
            ([*good, "--tunnel-port", "x"], USAGE),
            (["send", "--server", "localhost", *ANN, *BOB, "--text", "x", "--tls", "starttls"],
             USAGE),
            (["send", "--server", server.address, *ANN, *BOB, "--text", "x", "--ca", missing],
             USAGE)]
    for words, wanted in rows:
        run = rynmail(*words, TMPDIR=folder)
        same(run.returncode, wanted)
        check(run.stderr.startswith(b"rynmail: "), run.stderr)
    same(os.listdir(folder), [])
    nothing_arrived(server)


def test_BrokenOffSessionLeavesNoTunnelBehind(server):
    folder = temporary_folder(server)
    make_certificates(server.files)
    local_port = free_port()
    with socket.create_server(("127.0.0.1", 0)) as silent:
        words = tls_words(server, silent.getsockname()[1]) + ["--tunnel-port", str(local_port)]
        with subprocess.Popen([RYNMAIL, *words], env=environment(TMPDIR=folder),
                              start_new_session=True, stderr=subprocess.PIPE) as process:
            silent.accept()  # the tunnel stands, and nobody greets
            process.send_signal(signal.SIGTERM)
            errors = process.communicate()[1]
    same(process.returncode, CONNECTION)
    check(b"Interrupted" in errors, errors)
    check(not listens(local_port), "the tunnel is still there")
    same(os.listdir(folder), [])


# --- refusals and failures ---

def test_OneRefusalStopsTheMessage(server):
    words = ["--to", "bob@mail.example", "no@refused.example", "eve@mail.example", "--text", "x"]
    run = send(server, *words, wanted=REFUSED)
    check(b"550 no mailbox <no@refused.example> here" in run.stderr, run.stderr)
    same(run.stdout, b"sent to 0 of 3 recipients\n")
    nothing_arrived(server)


def test_SkippedRefusalsLeaveNobodyElseOut(server):
    rows = [(["no@refused.example", "bob@mail.example", "not@refused.example", "eve@mail.example"],
             ["bob", "eve"]),
            (["bob@mail.example", "no@refused.example"], ["bob"]),
            (["no@refused.example"], [])]
    number = 0
    for recipients, wanted in rows:
        run = send(server, "--skip-refused", "--to", *recipients, "--text", "x", wanted=REFUSED)
        same(run.stdout,
             b"sent to %d of %d recipients\n" % (len(wanted), len(recipients)))
        for refused in [each for each in recipients if "refused" in each]:
            check(("<%s>: 550 no mailbox" % refused).encode() in run.stderr, run.stderr)
        served = []
        while len(served) < len(wanted):
            number += 1
            served += re.findall(r"RCPT TO:<(\w+)@", arrived(server, number)[1].decode())
        same(served, wanted)
    same(len(os.listdir(server.box)), 2 * number)


def test_NobodyListensIsAConnectionFailure(server):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))  # bound but not listening: every connection is refused
        run = rynmail("send", "--server", "127.0.0.1:%d" % taken.getsockname()[1], *ANN,
                      "--to", "bob@mail.example", "--text", "x")
    same(run.returncode, CONNECTION)
    check(run.stderr.startswith(b"rynmail: connecting to 127.0.0.1:"), run.stderr)
    check(b"Connection refused by remote host." in run.stderr, run.stderr)


def scripted_server(replies):
    """Serves one client: answers each line in turn, then closes."""
    listener = socket.create_server(("127.0.0.1", 0))

    def serve():
        peer = listener.accept()[0]
        with peer, peer.makefile("rb") as lines:
            for reply in replies:
                peer.sendall(reply)
                lines.readline()

    threading.Thread(target=serve, daemon=True).start()
    return "127.0.0.1:%d" % listener.getsockname()[1]


def test_ServerThatWantsNobodyRefuses(_):
    address = scripted_server([b"554 go away\r\n"])
    run = rynmail("send", "--server", address, *ANN, "--to", "bob@mail.example", "--text", "x")
    same(run.returncode, REFUSED)
    check(b"554 go away" in run.stderr, run.stderr)


def test_ServerThatRefusesTheSenderRefuses(_):
    address = scripted_server([b"220 hello\r\n", b"250 ok\r\n", b"550 not you\r\n", b"221 bye\r\n"])
    run = rynmail("send", "--server", address, *ANN, "--to", "bob@mail.example", "--text", "x")
    same(run.returncode, REFUSED)
    check(b"550 not you" in run.stderr, run.stderr)


def test_ServerThatBreaksOffIsAConnectionFailure(_):
    address = scripted_server([b"220 hello\r\n", b"250 ok\r\n"])
    run = rynmail("send", "--server", address, *ANN, "--to", "bob@mail.example", "--text", "x")
    same(run.returncode, CONNECTION)


def test_BadAddressesNeverReachTheServer(server):
    for address in ("bob", "bob@", "@", "a b@mail.example", "bob@mail.example>", "<bob@mail.example",
                    "bob@mail.example;eve@mail.example", "bob@mail.example\r\nDATA", "",
                    "<bob@mail.example> NOTIFY=NEVER", "<a@b.example><c@d.example>",
                    "b\u00f6b@mail.example"):
        send(server, "--to", address, "--text", "x", wanted=USAGE)
        run = rynmail("send", "--server", server.address, "--from", address, "--to",
                      "bob@mail.example", "--text", "x")
        same(run.returncode, USAGE)
    nothing_arrived(server)


def test_FilesThatCannotBeUsedAreTold(server):
    missing = os.path.join(server.files, "missing.txt")
    zeros = file_with(server, "zeros.bin", b"a\0b")
    for words, named in ((["--text-file", missing], missing), (["--html", missing], missing),
                         (["--text-file", server.files], server.files),
                         (["--text-file", zeros], zeros),
                         (["--text", "x", "--log", os.path.join(missing, "log")], missing)):
        run = send(server, "--to", "bob@mail.example", *words, wanted=LOCAL_FILE)
        check(named.encode() in run.stderr, run.stderr)
    nothing_arrived(server)


def test_WrongCommandLinesAreTold(server):
    base = ["send", "--server", server.address, *ANN, "--to", "bob@mail.example", "--text", "x"]
    for words in ([], ["fly"], ["send"], base[:-2], base[:5], base + ["--fly"], base + ["--subject"],
                  base + ["word"], base + ["--text-file", "x"], base + ["--charset", "klingon"],
                  base + ["--inline", "x.gif"], base + ["--attach"],
                  base + ["--forward", "x", "--attach", "y"],
                  base[:-2] + ["--forward", "x", "--html", "y"],
                  base + ["--alt", "x"], base + ["--user"], base + ["--to"],
                  base + ["--to", "--ehlo"], base + ["--server", "host:"],
                  base + ["--server", "host:70000"], base + ["--server", ":25"],
                  base + ["--server", "x" * 256], base + ["--subject", "s" * 2000],
                  ["verify", "--server", server.address, *ANN],
                  ["verify", "--server", server.address, "--subject", "x", "a@mail.example"]):
        run = rynmail(*words)
        same(run.returncode, USAGE)
        check(run.stderr.startswith(b"rynmail: "), run.stderr)
        same(run.stdout, b"")
    nothing_arrived(server)


# --- the rest ---

def test_VerifyTellsEachAddress(server):
    run = rynmail("verify", "--server", server.address, *ANN, "Bob <bob@mail.example>")
    same((run.returncode, run.stdout), (DONE, b"bob@mail.example: known\n"))
    run = rynmail("verify", "--server", server.address, *ANN, "bob@mail.example", "--ehlo",
                  "no@refused.example", "eve@mail.example")
    same(run.returncode, REFUSED)
    same(run.stdout, b"bob@mail.example: known\n"
         b"no@refused.example: not confirmed: 550 no mailbox <no@refused.example> here\n"
         b"eve@mail.example: known\n")


def test_LogHoldsTheDialogue(server):
    log = os.path.join(server.files, "session.log")
    send(server, "--to", "bob@mail.example", "--text", "x", "--ehlo", "--log", log)
    with open(log, "rb") as file:
        lines = file.read()
    for line in (b"EHLO ", b"MAIL FROM:<ann@mail.example>", b"RCPT TO:<bob@mail.example>", b"DATA",
                 b"250 message stored", b"QUIT", b"221 goodbye"):
        check(line in lines, line, lines)
    same(os.stat(log).st_mode & 0o777, 0o600)


def test_HelpAndVersionNeedNoServer(_):
    for words in (["--help"], ["-h"], ["send", "--help"]):
        run = rynmail(*words)
        same((run.returncode, run.stderr), (DONE, b""))
        for word in (b"rynmail send", b"--skip-refused", b"--attach FILE", b"RYNMAIL_PASSWORD",
                     b"Exit codes: 0 done"):
            check(word in run.stdout, run.stdout)
        check(max(len(line) for line in run.stdout.split(b"\n")) <= 90, run.stdout)
    run = rynmail("version")
    same(run.returncode, DONE)
    check(re.fullmatch(rb"rynmail, library version 8\.4\.1, build \d+\n", run.stdout), run.stdout)


@contextlib.contextmanager
def running_postbox(folder, *words):
    """A postbox with a folder of messages; its address."""
    with subprocess.Popen([POSTBOX, "--folder", folder, *words],
                          stdout=subprocess.PIPE) as postbox:
        try:
            yield "127.0.0.1:%d" % int(postbox.stdout.readline().split()[1])
        finally:
            postbox.terminate()
            outcome = postbox.wait()
    same(outcome, 0)


def main():
    case = globals()["test_" + sys.argv[3]]
    with tempfile.TemporaryDirectory() as folder:
        server = Server()
        server.box = os.path.join(folder, "box")
        server.files = os.path.join(folder, "files")
        os.mkdir(server.box)
        os.mkdir(server.files)
        with running_postbox(server.box) as server.address:
            case(server)


main()
