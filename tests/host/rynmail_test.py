"""rynmail send and rynmail verify: what arrives, and what is told when something goes wrong."""
import base64
import email
import email.header
import email.utils
import hashlib
import hmac
import os
import re
import signal
import socket
import subprocess

from host_case import *  # the language of the cases

ANN = ["--from", "ann@mail.example"]
BOB = ["--to", "bob@mail.example"]


def send(server, *words, stdin=b"", wanted=DONE, secret=None):
    """rynmail send to that server; checks the exit code, and that errors are told."""
    run = rynmail("send", "--server", server.smtp, *ANN, *words, stdin=stdin, secret=secret)
    same(run.returncode, wanted)
    same(run.stderr == b"", wanted == DONE)
    return run


def arrived(server, number=1):
    """Message and envelope of that number, both as bytes."""
    parts = []
    for ending in ("eml", "envelope"):
        with open(os.path.join(server.box, "%04d.%s" % (number, ending)), "rb") as file:
            parts.append(file.read())
    return parts


def arrived_text(server, number=1):
    """The decoded first text part, with its charset."""
    part = leaves(server, number)[0]
    return part.get_payload(decode=True), part.get_content_charset()


def leaves(server, number=1):
    """The parts that hold no others."""
    message = email.message_from_bytes(arrived(server, number)[0])
    return [part for part in message.walk() if not part.is_multipart()]


def shown_name(part):
    return str(email.header.make_header(email.header.decode_header(part.get_filename())))


def nothing_arrived(server):
    same(os.listdir(server.box), [])


# --- what arrives ---

def test_PlainMessageArrivesToTheLastByte(server):
    run = send(server, *BOB, "--subject", "Lunch", "--text", "At noon?\n.\n..two\nlast")
    same(run.stdout, b"sent to 1 of 1 recipients\n")
    message, envelope = arrived(server)
    same(envelope, b"MAIL FROM:<ann@mail.example>\nRCPT TO:<bob@mail.example>\n")
    check(re.fullmatch(
        rb"X-Mailer: .+\r\nDate: \w{3}, \d\d? \w{3} \d{4} \d\d:\d\d:\d\d [+-]\d{4}\r\n"
        rb"To: <bob@mail\.example>\r\nFrom: <ann@mail\.example>\r\n"
        rb"Message-ID: <[0-9a-f.]+@mail\.example>\r\nSubject: Lunch\r\n\r\n"
        rb"At noon\?\r\n\.\r\n\.\.two\r\nlast\r\n", message), message)


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
        send(server, *BOB, "--text", "x", "--subject", subject)
        line = re.search(rb"\r\nSubject: ([^\r]*)\r\n", arrived(server, number)[0]).group(1)
        for word in line.split(b" "):
            check(re.fullmatch(rb"=\?UTF-8\?B\?[A-Za-z0-9+/=]+\?=", word) and len(word) <= 75, word)
        decoded = email.header.make_header(email.header.decode_header(line.decode()))
        same(str(decoded), subject)


def test_SubjectCannotSmuggleAHeaderLine(server):
    send(server, *BOB, "--text", "x",
         "--subject", "one\r\nBcc: eve@mail.example\nX-Two: 2\rthree")
    parsed = email.message_from_bytes(arrived(server)[0])
    same(parsed["Subject"], "one Bcc: eve@mail.example X-Two: 2 three")
    same(parsed["X-Two"], None)


def test_TextOutsideAsciiGoesAsUtf8(server):
    text = "Gr\u00fc\u00dfe,\nzehn\t\u20ac\n".encode() + b"z" * 3000 + "\u00e4".encode() * 400
    send(server, *BOB, "--text-file", file_with(server, "b lank*1", text))
    content, charset = arrived_text(server)
    same(charset, "utf-8")
    same(content.replace(b"\r\n", b"\n").rstrip(b"\n"), text)


def test_TextsThatTheLibraryWouldReadOtherwiseArriveAsTheyAre(server):
    long = b"".join(b"line %d\n" % number for number in range(100000))
    for number, text in enumerate((b"@/etc/hostname\n", b"|x\n", long), 1):
        send(server, *BOB, "--text", "-", stdin=text)
        same(arrived(server, number)[0].split(b"\r\n\r\n", 1)[1], text.replace(b"\n", b"\r\n"))


def test_NamedCharsetIsKept(server):
    path = file_with(server, "text.txt", b"caf\xe9\n")
    send(server, *BOB, "--text-file", path, wanted=USAGE)
    nothing_arrived(server)
    send(server, *BOB, "--text-file", path, "--charset", "ISO-8859-1")
    content, charset = arrived_text(server)
    same((content.strip(), charset), (b"caf\xe9", "iso-8859-1"))


def test_AlternativeThatCannotGoUnencodedIsRefused(server):
    page = file_with(server, "page.html", b"<p>x</p>\n")
    for text in ("\u00fc", "x" * 999, "line\n" * 4000):
        send(server, *BOB, "--html", page, "--text", "-",
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


def test_AttachmentsArriveToTheLastByte(server):
    contents = [b"", b"x", b"\0" * 57, b"\r\n.\r\n" * 12, os.urandom(200000)]
    paths = [file_with(server, "file%d" % n, content) for n, content in enumerate(contents)]
    paths[1] += "=zw\u00f6lf*.pdf"
    send(server, *BOB, "--text", "see below\n", "--attach", *paths)
    parts = leaves(server)
    same(parts[0].get_payload(decode=True).strip(), b"see below")
    same([part.get_payload(decode=True) for part in parts[1:]], contents)
    same({part.get_content_disposition() for part in parts[1:]}, {"attachment"})
    same(shown_name(parts[2]), "zw\u00f6lf*.pdf")
    same(parts[2].get_content_type(), "application/pdf")


def test_NamesOfAttachmentsAreShownAsTheyAre(server):
    names = ["a;b|c.txt", "x=y.txt", "b lank_under,comma.txt", "'@#%.txt", "n" * 176 + ".txt",
             "\u00fc_\u20ac x.txt", "\U0001F600.txt", 'quo"te.txt', "\u00fc" * 88 + ".txt"]
    folder = os.path.join(server.files, "f:o;l|d=e r")
    os.mkdir(folder)
    for number, shown in enumerate((names[:5], names), 1):  # without and with encoded words
        paths = [file_with(server, os.path.join(folder, name), name.encode()) for name in shown]
        send(server, *BOB, "--text", "x", "--attach", *paths)
        parts = leaves(server, number)[1:]
        same([shown_name(part) for part in parts], shown)
        same([part.get_payload(decode=True) for part in parts], [name.encode() for name in shown])


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
    zero = file_with(server, "zero", b"a\0b")
    send(server, *BOB, "--text", "x", "--forward", zero, wanted=LOCAL_FILE)
    page = file_with(server, "page.html", b"<p>x</p>")
    for word in (file_with(server, "a.txt", b"x"), good + "=x.jpeg"):
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
    text = "Gr\u00fc\u00dfe = \u20ac\n.\n\ttab and blank \n" + "\u00e4\u20ac" * 300
    for number, words in enumerate(([], ["--text", text]), 1):
        send(server, *BOB, *words, "--forward", path)
        message = arrived(server, number)[0]
        check(b"Content-Type: message/rfc822\r\nContent-Transfer-Encoding: 7bit\r\n"
              b"Content-Disposition: attachment\r\n\r\n" + stored + b"\r\n--" in message, message)
    same(arrived_text(server, 2)[0].replace(b"\r\n", b"\n").strip(b"\n"), text.encode())


# --- login ---

def test_LoginByPlainAndByLogin(server):
    log = os.path.join(server.files, "log")
    with guarded_postbox(server):
        for words, method in (([], b"LOGIN"), (["--auth", "CRAM-MD5", "plain"], b"PLAIN")):
            run = send(server, *BOB, "--text", "x", "--user", "ann", *words, "--log", log,
                       secret=SECRET)
            content = read_file(log)
            check(b"AUTH " + method + b" ok" in content and b"235 welcome" in content, content)
            no_secret_in(content + run.stderr, SECRET)
    arrived(server, 2)


def test_RefusedLoginsAreTold(server):
    words = [*BOB, "--text", "x"]
    run = send(server, *words, "--user", "ann", secret=SECRET, wanted=REFUSED)
    check(b"offers no login" in run.stderr, run.stderr)
    rows = [(["--user", "ann"], SECRET[:-1], b"535 user or password is wrong"),
            (["--user", "bob"], SECRET, b"535 user or password is wrong"),
            (["--user", "ann", "--auth", "cram-md5"], SECRET, b"only: PLAIN LOGIN"),
            ([], None, b"530 log in first"), (["--ehlo"], None, b"530 log in first")]
    with guarded_postbox(server):
        for more, secret, reason in rows:
            run = send(server, *words, *more, secret=secret, wanted=REFUSED)
            check(reason in run.stderr, run.stderr)
    nothing_arrived(server)


def test_LoginWithoutAPasswordIsTold(server):
    log = os.path.join(server.files, "log")
    rows = [(None, ["--user", "ann"]), ("s" * 2049, ["--user", "ann"]), (SECRET, ["--user", ""]),
            (SECRET, ["--auth", "plain"]), (SECRET, ["--user", "ann", "--auth", "magic"]),
            (SECRET, ["--user", "ann", "--auth", "xoauth2", "plain"]),
            ("s" * 110, ["--user", "ann", "--log", log]),
            ("t" * 30, ["--user", "ann", "--auth", "xoauth2", "--log", log])]
    for secret, more in rows:
        run = send(server, *BOB, "--text", "x", *more, secret=secret, wanted=USAGE)
        check(not secret or secret.encode() not in run.stderr, run.stderr)
    nothing_arrived(server)
    same(os.listdir(server.files), [])


def test_CramMd5ShowsNobodyThePassword(_):
    challenge = b"<1896.697170952@postoffice.example>"
    address, told = scripted_server([
        b"220 hello\r\n", b"250-hello\r\n250 AUTH CRAM-MD5 PLAIN\r\n",
        b"334 " + base64.b64encode(challenge) + b"\r\n", b"235 welcome\r\n", b"550 not you\r\n"])
    run = rynmail("send", "--server", address, *ANN, *BOB, "--text", "x", "--user", "ann",
                  secret=SECRET)
    same(run.returncode, REFUSED)
    digest = hmac.new(SECRET.encode(), challenge, hashlib.md5).hexdigest().encode()
    same(told[1:4], [b"AUTH CRAM-MD5\r\n", base64.b64encode(b"ann " + digest) + b"\r\n",
                     b"MAIL FROM:<ann@mail.example>\r\n"])


def test_PasswordIsAskedForAndNotShown(server):
    with guarded_postbox(server):
        words = ["send", "--server", server.smtp, *ANN, *BOB, "--text", "x", "--user", "ann"]
        prompt = b"Password for ann: "
        outcome, shown = on_terminal(words, [(prompt, SECRET.encode() + b"\n")])
        same(outcome, DONE)
        no_secret_in(shown, SECRET)
        arrived(server)
        for answer in (b"\x04", b"half\x03", b"\n"):
            outcome, shown = on_terminal(words, [(prompt, answer)])
            same(outcome, USAGE)


def test_ProgressIsABarOnATerminal(server):
    path = file_with(server, "big.bin", os.urandom(3000000))
    outcome, shown = on_terminal(["send", "--server", server.smtp, *ANN, *BOB, "--attach", path],
                                 [])
    same(outcome, DONE)
    bars = re.findall(rb"\rsending \[([#-]{24})\] (\d+)%  [0-9.]+ [kM]?B of 3\.0 MB"
                      rb"(  [0-9.]+ [kM]?B/s  \d+:\d\d left|  waiting for the server|)\x1b\[K",
                      shown)
    check(len(bars) > 1, shown)
    same(bars[-1], (b"#" * 24, b"100", b"  waiting for the server"))
    check(b"\x1b[Ksent to 1 of 1 recipients\r\n" in shown, shown)


# --- encryption ---

def tls_words(server, port, ca="server.pem"):
    return ["send", "--server", "localhost:%d" % port, *ANN, *BOB, "--text", "x", "--tls",
            "starttls", "--ca", os.path.join(server.files, ca), "--stunnel", LAUNCHER]


def test_MailAndPasswordGoThroughTls(server):
    folder = temporary_folder(server)
    with guarded_postbox(server), \
            tls_server(server, server.smtp, "protocol = smtp") as port:
        words = tls_words(server, port) + ["--user", "ann"]
        log = os.path.join(server.files, "session.log")
        local_port = free_port()
        run = rynmail(*words, "--log", log, "--tunnel-port", str(local_port), secret=SECRET,
                      TMPDIR=folder)
        same((run.returncode, run.stderr), (DONE, b""))
        no_secret_in(read_file(log), SECRET)
        check(not listens(local_port), "the tunnel is still there")
    same(os.listdir(folder), [])
    arrived(server)


def test_CertificateOfSomebodyElseIsRefused(server):
    folder = temporary_folder(server)
    with tls_server(server, server.smtp, "protocol = smtp") as port:
        make_certificate(server, "other")
        run = rynmail(*tls_words(server, port, "other.pem"), TMPDIR=folder)
        same(run.returncode, CONNECTION)
        check(b"rynmail: the tunnel says: " in run.stderr and b"certificate" in run.stderr,
              run.stderr)
    same(os.listdir(folder), [])
    nothing_arrived(server)


def test_TunnelThatCannotBeHadIsTold(server):
    folder = temporary_folder(server)
    make_certificate(server, "server")
    good = tls_words(server, 2525)
    missing = os.path.join(server.files, "missing")
    blank = file_with(server, "a blank", b"#!/bin/sh\n")
    rows = [([*good, "--ca", missing], LOCAL_FILE), ([*good, "--stunnel", blank], LOCAL_FILE),
            ([*good, "--cert", missing], LOCAL_FILE), ([*good, "--tls", "implicit"], USAGE),
            ([*good, "--server", "localhost:465"], USAGE), ([*good, "--tunnel-port", "0"], USAGE),
            (["send", "--server", "localhost", *ANN, *BOB, "--text", "x", "--tls", "starttls"],
             USAGE),
            (["send", "--server", server.smtp, *ANN, *BOB, "--text", "x", "--ca", missing],
             USAGE)]
    for words, wanted in rows:
        run = rynmail(*words, TMPDIR=folder)
        same(run.returncode, wanted)
        check(run.stderr.startswith(b"rynmail: "), run.stderr)
    same(os.listdir(folder), [])
    nothing_arrived(server)


def test_BrokenOffSessionLeavesNoTunnelBehind(server):
    folder = temporary_folder(server)
    make_certificate(server, "server")
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
    run = send(server, *BOB, "no@refused.example", "--text", "x", wanted=REFUSED)
    check(b"550 no mailbox <no@refused.example> here" in run.stderr, run.stderr)
    same(run.stdout, b"sent to 0 of 2 recipients\n")
    nothing_arrived(server)


def test_SkippedRefusalsLeaveNobodyElseOut(server):
    path = file_with(server, "data.bin", b"whole")
    rows = [(["no@refused.example", "bob@mail.example", "not@refused.example", "eve@mail.example"],
             ["bob", "eve"]),
            (["no@refused.example"], [])]
    number = 0
    for recipients, wanted in rows:
        run = send(server, "--skip-refused", "--to", *recipients, "--attach", path, wanted=REFUSED)
        same(run.stdout,
             b"sent to %d of %d recipients\n" % (len(wanted), len(recipients)))
        for refused in [each for each in recipients if "refused" in each]:
            check(("<%s>: 550 no mailbox" % refused).encode() in run.stderr, run.stderr)
        served = []
        while len(served) < len(wanted):
            number += 1
            served += re.findall(r"RCPT TO:<(\w+)@", arrived(server, number)[1].decode())
            same(leaves(server, number)[1].get_payload(decode=True), b"whole")
        same(served, wanted)
    same(len(os.listdir(server.box)), 2 * number)


def test_ServersThatRefuseOrBreakOffAreToldApart(_):
    rows = [([b"554 go away\r\n"], REFUSED, b"554 go away"),
            ([b"220 hello\r\n", b"250 ok\r\n", b"550 not you\r\n", b"221 bye\r\n"], REFUSED,
             b"550 not you"),
            ([b"220 hello\r\n", b"250 ok\r\n"], CONNECTION, b"")]
    for replies, wanted, words in rows:
        address = scripted_server(replies)[0]
        run = rynmail("send", "--server", address, *ANN, *BOB, "--text", "x")
        same(run.returncode, wanted)
        check(words in run.stderr, run.stderr)


def test_NobodyListensIsAConnectionFailure(server):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))  # bound but not listening: every connection is refused
        run = rynmail("send", "--server", "127.0.0.1:%d" % taken.getsockname()[1], *ANN,
                      *BOB, "--text", "x")
    same(run.returncode, CONNECTION)
    check(run.stderr.startswith(b"rynmail: connecting to 127.0.0.1:"), run.stderr)
    check(b"Connection refused by remote host." in run.stderr, run.stderr)


def test_BadAddressesNeverReachTheServer(server):
    for address in ("bob", "@", "a b@mail.example", "<bob@mail.example", "",
                    "bob@mail.example;eve@mail.example", "bob@mail.example\r\nDATA",
                    "<bob@mail.example> NOTIFY=NEVER", "b\u00f6b@mail.example"):
        send(server, "--to", address, "--text", "x", wanted=USAGE)
        run = rynmail("send", "--server", server.smtp, "--from", address, "--to",
                      "bob@mail.example", "--text", "x")
        same(run.returncode, USAGE)
    nothing_arrived(server)


def test_WrongCommandLinesAreTold(server):
    base = ["send", "--server", server.smtp, *ANN, *BOB, "--text", "x"]
    for words in ([], ["fly"], base[:-2], base[:5], base + ["--fly"], base + ["--subject"],
                  base + ["word"], base + ["--text-file", "x"], base + ["--charset", "klingon"],
                  base + ["--inline", "x.gif"], base + ["--forward", "x", "--attach", "y"],
                  base + ["--to", "--ehlo"], base + ["--server", "host:70000"],
                  base + ["--server", "x" * 256], base + ["--subject", "s" * 2000],
                  ["verify", "--server", server.smtp, "--subject", "x", "a@mail.example"]):
        run = rynmail(*words)
        same((run.returncode, run.stdout), (USAGE, b""))
        check(run.stderr.startswith(b"rynmail: "), run.stderr)
    nothing_arrived(server)


def test_FilesThatCannotBeUsedAreTold(server):
    missing = os.path.join(server.files, "missing")
    for words, named in ((["--html", missing], missing),
                         (["--text-file", server.files], server.files),
                         (["--text", "x", "--log", os.path.join(missing, "log")], missing)):
        run = send(server, *BOB, *words, wanted=LOCAL_FILE)
        check(named.encode() in run.stderr, run.stderr)
    nothing_arrived(server)


# --- the rest ---

def test_VerifyTellsEachAddress(server):
    run = rynmail("verify", "--server", server.smtp, *ANN, "Bob <bob@mail.example>", "--ehlo",
                  "no@refused.example", "eve@mail.example")
    same(run.returncode, REFUSED)
    same(run.stdout, b"bob@mail.example: known\n"
         b"no@refused.example: not confirmed: 550 no mailbox <no@refused.example> here\n"
         b"eve@mail.example: known\n")


def test_HelpAndVersionNeedNoServer(_):
    for words in (["--help"], ["send", "--help"]):
        run = rynmail(*words)
        same((run.returncode, run.stderr), (DONE, b""))
        check(b"Exit codes: 0 done" in run.stdout, run.stdout)
    run = rynmail("version")
    same(run.returncode, DONE)
    check(re.fullmatch(rb"rynmail, library version 8\.4\.1, build \d+\n", run.stdout), run.stdout)


main(globals())
