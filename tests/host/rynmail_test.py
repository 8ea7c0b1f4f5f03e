"""Runs rynmail against postbox: rynmail_test.py RYNMAIL POSTBOX CASE.

A case is a routine test_CASE(server): it runs rynmail and looks at what rynmail said, at its exit
code, and at the bytes that arrived. The server's folder is new for each case.
"""
import email
import email.header
import email.utils
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading

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


def rynmail(*words, stdin=b""):
    run = subprocess.run([RYNMAIL, *words], input=stdin, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, check=False)
    print("$ rynmail", *words, "->", run.returncode)
    print(run.stdout.decode("utf-8", "replace") + run.stderr.decode("utf-8", "replace"))
    return run


def send(server, *words, stdin=b"", wanted=DONE):
    """rynmail send to that server; checks the exit code, and that errors are told."""
    run = rynmail("send", "--server", server.address, *ANN, *words, stdin=stdin)
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
                  base + ["--to"], base + ["--to", "--ehlo"], base + ["--server", "host:"],
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
        for word in (b"rynmail send", b"--skip-refused", b"Exit codes: 0 done"):
            check(word in run.stdout, run.stdout)
        check(max(len(line) for line in run.stdout.split(b"\n")) <= 90, run.stdout)
    run = rynmail("version")
    same(run.returncode, DONE)
    check(re.fullmatch(rb"rynmail, library version 8\.4\.1, build \d+\n", run.stdout), run.stdout)


def main():
    case = globals()["test_" + sys.argv[3]]
    with tempfile.TemporaryDirectory() as folder:
        server = Server()
        server.box = os.path.join(folder, "box")
        server.files = os.path.join(folder, "files")
        os.mkdir(server.box)
        os.mkdir(server.files)
        with subprocess.Popen([POSTBOX, "--folder", server.box], stdout=subprocess.PIPE) as postbox:
            try:
                server.address = "127.0.0.1:%d" % int(postbox.stdout.readline().split()[1])
                case(server)
            finally:
                postbox.terminate()
                outcome = postbox.wait()
        same(outcome, 0)


main()
