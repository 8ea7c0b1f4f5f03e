"""Runs each example against the test mail server and looks at what has arrived, byte for byte.
Each case runs alone:  examples_test.py FOLDER-OF-EXAMPLES POSTBOX CASE LIBRARY"""
import email
import email.policy
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tests/host"))
from host_case import *  # servers, certificates, comparing

ANN, BOB, EVE = "ann@mail.example", "bob@mail.example", "eve@mail.example"
TEXT = "Grüße\n.\n..two dots\n".encode()
DATA = bytes(range(256)) * 40 + b"\r\n.\r\nend"


def example(name, *words, wanted=0, tells=b"", secret="", **more):
    program = os.path.join(RYNMAIL, name)
    command = [sys.executable, "-B", os.path.join(os.path.dirname(os.path.abspath(__file__)), name)] \
        if name.endswith(".py") else [program]
    run = subprocess.run([*command, *words], capture_output=True, check=False,
                         env=environment(MAIL_PASSWORD=secret, **more))
    print("$", name, *words, "->", run.returncode, run.stdout, run.stderr)
    same(run.returncode, wanted)
    check(tells in run.stderr, run.stderr)
    same(run.stderr == b"", not tells)
    return run.stdout


def address(server):
    return server.split(":")


def nobody():
    """An address that refuses connections, and the socket that keeps others from it."""
    holder = socket.socket()
    holder.bind(("127.0.0.1", 0))
    return ["127.0.0.1", str(holder.getsockname()[1])], holder


def messages(server):
    """What the server has stored: each envelope's recipients, with the message."""
    for name in sorted(os.listdir(server.box)):
        if name.endswith(".eml"):
            content = read_file(os.path.join(server.box, name))
            recipients = read_file(os.path.join(server.box, name[:-3] + "envelope")).decode()
            yield recipients, email.message_from_bytes(content, policy=email.policy.default)


def leaves(message):
    return [(part.get_content_type(), part.get_filename(), part.get_payload(decode=True))
            for part in message.walk() if not part.is_multipart()]


def crlf(text):
    return text.replace(b"\n", b"\r\n")


def check_sent(server, text):
    [(recipients, message)] = messages(server)
    check(BOB in recipients and ANN in message["From"], recipients, message)
    found = leaves(message)
    same(found[0][0], "text/plain")
    same(found[0][2].rstrip(), crlf(text).rstrip())
    return message, found


# --- sending ---

def test_send(server):
    text = file_with(server, "text.txt", TEXT)
    data = file_with(server, "data.bin", DATA)
    with guarded_postbox(server):
        example("send", *address(server.smtp), ANN, BOB, "Grüße", text, data, "ann", secret=SECRET)
    message, found = check_sent(server, TEXT)
    same(message["Subject"], "Grüße")
    same(found[1:], [("application/octet-stream", "data.bin", DATA)])


def test_send_refuses_what_it_cannot_send(server):
    text = file_with(server, "text.txt", TEXT)
    odd = file_with(server, "a;b", DATA)
    closed, holder = nobody()
    rows = [([*address(server.smtp), ANN, "bob", "x", text, text], b"no address"),
            ([*address(server.smtp), ANN, BOB, "x", text, odd], b"can't be attached"),
            ([*address(server.smtp), ANN, "no@refused.example", "x", text, text], b"550 "),
            ([*address(server.smtp), ANN, BOB, "x", text, text + "x"], b"Cannot open file"),
            ([*closed, ANN, BOB, "x", text, text], b"Connection refused")]
    for words, tells in rows:
        example("send", *words, wanted=1, tells=tells)
    holder.close()
    example("send", wanted=2, tells=b"usage: ")
    same(list(messages(server)), [])


def test_html(server):
    page = '<p>Grüße</p><img src="cid:message-root.1">\n'.encode()
    paths = [file_with(server, "page.html", page), file_with(server, "logo.png", DATA),
             file_with(server, "plain.txt", b"Hello\r\n")]
    example("html", *address(server.smtp), ANN, BOB, "News", *paths)
    message, found = check_sent(server, b"Hello\n")
    same([each[0] for each in found], ["text/plain", "text/html", "image/png"])
    same((found[1][2].rstrip(), found[2][2]), (crlf(page).rstrip(), DATA))
    ids = [part["Content-ID"] for part in message.walk() if part["Content-ID"]]
    check("<message-root.1>" in ids, ids)


def test_manual(server):
    text = file_with(server, "text.txt", b"one\ntwo\n" * 500)
    example("manual", *address(server.smtp), ANN, BOB, EVE, text)
    found = list(messages(server))
    same(sorted(re.findall(r"RCPT TO:<(\w+)@", "".join(each[0] for each in found))), ["bob", "eve"])
    for _, message in found:
        same(leaves(message)[0][2].rstrip(), crlf(b"one\ntwo\n" * 500).rstrip())
    example("manual", *address(server.smtp), ANN, "no@refused.example", EVE, text, wanted=1,
            tells=b"550 ")
    same(len(list(messages(server))), 3)


def test_channels(server):
    example("channels", *address(server.smtp), ANN, BOB, "12")
    same(sorted(leaves(message)[0][2].rstrip() for _, message in messages(server)),
         sorted(b"This is message %d." % number for number in range(12)))
    closed, holder = nobody()
    example("channels", *closed, ANN, BOB, "2", wanted=1, tells=b"Connection refused")
    holder.close()


def test_secure(server):
    text = file_with(server, "text.txt", b"secret\n")
    folder = os.path.join(server.files, "tunnel")
    log = os.path.join(server.files, "log")
    os.mkdir(folder)
    with guarded_postbox(server), tls_server(server, server.smtp, "protocol = smtp") as port:
        make_certificate(server, "own")
        words = ["localhost", str(port), ANN, BOB, text, "ann"]
        own = os.path.join(server.files, "own.pem")
        for trusted, wanted, tells in (("own.pem", 1, b"sending: "), ("server.pem", 0, b"")):
            local_port = free_port()
            example("secure", *words, str(local_port), folder, LAUNCHER, own,
                    os.path.join(server.files, trusted), wanted=wanted, tells=tells, secret=SECRET,
                    MAIL_LOG=log)
            check(not listens(local_port), "the tunnel is still there")
    no_secret_in(read_file(log), SECRET)
    check_sent(server, b"secret\n")


def test_load(server):
    example("load.py", sys.argv[4], *address(server.smtp), ANN, BOB)
    check_sent(server, b"At noon?\n")


# --- fetching ---

PART = b"--=b=\r\nContent-Type: application/pdf\r\nContent-Disposition: attachment; " \
    b'filename="%s"\r\nContent-Transfer-Encoding: base64\r\n\r\n%s'
MAIL = b"From: <" + ANN.encode() + b">\r\nSubject: %s\r\nMIME-Version: 1.0\r\n" \
    b'Content-Type: multipart/mixed; boundary="=b="\r\n\r\n' \
    b"--=b=\r\nContent-Type: text/plain\r\n\r\nsome text\r\n%s--=b=--\r\n"


def fetch_from(server, protocol, peer):
    into = os.path.join(server.files, protocol)
    os.mkdir(into)
    words = protocol, *address(peer), "ann", into
    shown = example("fetch", *words, secret="pass")
    check(b"id " in shown and b"  Two menus" in shown and b"  None" in shown, shown)
    folder = os.path.join(into, "0001")
    same(sorted(os.listdir(folder)), ["1-menu.pdf", "2-menu.pdf", "message.txt"])
    same(read_file(os.path.join(folder, "1-menu.pdf")), DATA)
    same(read_file(os.path.join(folder, "2-menu.pdf")), b"other")
    check(b"some text\r\n" in read_file(os.path.join(folder, "message.txt")))
    same(os.listdir(os.path.join(into, "0002")), ["message.txt"])
    example("fetch", *words, wanted=1, secret="pass", tells=b"can't make the folder of message 1")


def test_fetch(server):
    menus = b"".join(PART % (b"menu.pdf", crlf(base64.encodebytes(data))) for data in (DATA, b"other"))
    for number, message in enumerate((MAIL % (b"Two menus", menus), MAIL % (b"None", b"")), 1):
        with open(os.path.join(server.box, "%04d.eml" % number), "wb") as file:
            file.write(message)
    fetch_from(server, "pop3", server.pop3)
    fetch_from(server, "imap", server.imap)


def test_fetch_tells_a_login_refused(server):
    with guarded_postbox(server):
        for protocol, peer, tells in (("pop3", server.pop3, b"POP3"), ("imap", server.imap, b"IMAP")):
            example("fetch", protocol, *address(peer), "ann", server.files, wanted=1, secret="x",
                    tells=b"connecting: %s returned error." % tells)


def test_fetch_tells_a_message_that_is_not_whole(server):
    login = [b"+OK hi\r\n", b"+OK\r\n", b"+OK\r\n", b"+OK 1 50\r\n", b"+OK 1 50\r\n", b"+OK 1 x\r\n"]
    head = b"+OK\r\nSubject: cut\r\n\r\nsome te"
    for name, rest in (("gone", [head, None]), ("other", [head + b"xt\r\n.\r\n", b"+OK 1 49\r\n"])):
        into = os.path.join(server.files, name)
        os.mkdir(into)
        peer = scripted_server([*login, *rest])[0]
        example("fetch", "pop3", *address(peer), "ann", into, wanted=1, tells=b"fetching: vSock ")


if __name__ == "__main__":
    main(globals())
