"""What the cases of rynmail share: running it, the servers it talks to, looking at the outcome.

A case is a routine test_CASE(server) in a file that is run as FILE RYNMAIL POSTBOX CASE. The
server's folder is new for each case.
"""
import base64
import contextlib
import os
import pty
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time

DONE, USAGE, CONNECTION, REFUSED, LOCAL_FILE, OTHER = 0, 1, 2, 3, 4, 5
RYNMAIL, POSTBOX = sys.argv[1:3]


class Server:
    """What a case has in hand: the server's addresses, its folder, a folder for files, and the
    protocol of mailboxes."""
    smtp = ""
    pop3 = ""
    imap = ""
    protocol = "pop3"
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


def rynmail(*words, stdin=b"", secret=None, preexec=None, **more):
    """Runs rynmail without a terminal: a session of its own has none."""
    run = subprocess.run([RYNMAIL, *words], input=stdin, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, check=False, start_new_session=True,
                         env=environment(secret, **more), preexec_fn=preexec)
    print("$ rynmail", *words, "->", run.returncode)
    print(run.stdout.decode("utf-8", "replace") + run.stderr.decode("utf-8", "replace"))
    return run


def file_with(server, name, content):
    path = os.path.join(server.files, name)
    with open(path, "wb") as file:
        file.write(content)
    return path


def read_file(path):
    with open(path, "rb") as file:
        return file.read()


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


# --- servers ---

@contextlib.contextmanager
def running_postbox(folder, *words):
    """A postbox with a folder of messages; its addresses for SMTP, POP3 and IMAP."""
    with subprocess.Popen([POSTBOX, "--folder", folder, *words],
                          stdout=subprocess.PIPE) as postbox:
        try:
            yield ["127.0.0.1:%d" % int(postbox.stdout.readline().split()[1]) for _ in range(3)]
        finally:
            postbox.terminate()
            outcome = postbox.wait()
    same(outcome, 0)


SECRET = "s3cret/+=\u00fc*"


@contextlib.contextmanager
def guarded_postbox(server, secret=SECRET):
    """A postbox that wants a login, in place of the usual one."""
    with running_postbox(server.box, "--user", "ann:" + secret) as (server.smtp, server.pop3,
                                                                   server.imap):
        yield


def no_secret_in(content, secret, user="ann"):
    raw = secret.encode()
    name = user.encode()
    for block in (raw, b"%s\0%s\0%s" % (name, name, raw)):
        check(base64.b64encode(block) not in content, content)
    check(raw not in content, content)


def scripted_server(replies):
    """Serves one client: a reply for each line, then closes; None closes without another line. "{T}"
    in a reply becomes the first word of the line. Its address, and what it is told."""
    listener = socket.create_server(("127.0.0.1", 0))
    told = []

    def serve():
        peer = listener.accept()[0]
        with peer, peer.makefile("rb") as lines:
            for reply, following in zip(replies, [*replies[1:], b""]):
                peer.sendall(reply.replace(b"{T}", told[-1].split()[0] if told else b"*"))
                if following is None:
                    break
                told.append(lines.readline())

    threading.Thread(target=serve, daemon=True).start()
    return "127.0.0.1:%d" % listener.getsockname()[1], told


LAUNCHER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tunnel/ryn32-stunnel")
TLS_SERVER = """foreground = yes
pid =
[server]
accept = 127.0.0.1:%d
connect = %s
cert = server.pem
"""


def make_certificate(server, name):
    """NAME.pem for the name localhost, with its key in the same file; it is its own authority."""
    path = os.path.join(server.files, name + ".pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "3", "-keyout",
                    path + ".key", "-out", path, "-subj", "/CN=" + name, "-addext",
                    "subjectAltName=DNS:localhost"],
                   check=True, stderr=subprocess.DEVNULL)
    with open(path, "ab") as file:
        file.write(read_file(path + ".key"))


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


@contextlib.contextmanager
def tls_server(server, address, *lines):
    """stunnel in front of a postbox, with lines of its own for the service; its port."""
    make_certificate(server, "server")
    port = free_port()
    with subprocess.Popen(["stunnel4", "-fd", "0"], stdin=subprocess.PIPE, cwd=server.files,
                          stderr=subprocess.DEVNULL) as tunnel:
        tunnel.stdin.write((TLS_SERVER % (port, address) + "\n".join(lines) + "\n").encode())
        tunnel.stdin.close()
        while not listens(port):
            check(tunnel.poll() is None, "stunnel has ended")
            time.sleep(0.02)
        try:
            yield port
        finally:
            tunnel.terminate()


def temporary_folder(server):
    folder = os.path.join(server.files, "tmp")
    os.mkdir(folder)
    return folder


def main(cases):
    case = cases["test_" + sys.argv[3]]
    with tempfile.TemporaryDirectory() as folder:
        server = Server()
        server.box = os.path.join(folder, "box")
        server.files = os.path.join(folder, "files")
        os.mkdir(server.box)
        os.mkdir(server.files)
        with running_postbox(server.box) as (server.smtp, server.pop3, server.imap):
            case(server)
