"""What the cases of mailboxes share: messages, and running rynmail with a mailbox."""
import shutil

from host_case import *  # the language of all cases

MAIL = b"From: Ann <ann@mail.example>\r\nSubject: Lunch\r\n\r\nAt noon?\r\n.\r\n..two\r\n"


def over_both(case):
    """Runs a case by POP3 and by IMAP, each time with empty folders."""
    def run(server):
        for server.protocol in ("pop3", "imap"):
            print("--", server.protocol)
            for folder in (server.box, server.files):
                shutil.rmtree(folder)
                os.mkdir(folder)
            case(server)
    return run


def put(server, *messages):
    """Lays messages into the mailbox, with the line ends of a network."""
    for message in messages:
        path = os.path.join(server.box, "%04d.eml" % (len(os.listdir(server.box)) + 1))
        with open(path, "xb") as file:
            file.write(message.replace(b"\r\n", b"\n").replace(b"\n", b"\r\n"))


def parts(*rows):
    """A multipart message of parts: (header lines, content, sent in Base64?)."""
    message = b'MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary="=b="\n\n'
    for header, content, encoded in rows:
        if encoded:
            header += b"Content-Transfer-Encoding: base64\n"
            content = base64.encodebytes(content)
        message += b"--=b=\n" + header + b"\n" + content
    return message + b"--=b=--\n"


def mailbox(server, command, *words, wanted=DONE, tells=b"", secret="pass word", address=None,
            **more):
    """rynmail with a mailbox; checks the exit code, and what is told as an error."""
    address = address or getattr(server, server.protocol)
    run = rynmail(command, "--" + server.protocol, address, "--user", "ann", *words, secret=secret,
                  **more)
    same(run.returncode, wanted)
    check(tells in run.stderr and b"\x1b" not in run.stderr + run.stdout, run.stderr)
    same(run.stderr == b"", wanted == DONE and not tells)
    return run


def fetch(server, *words, messages=("all",), **more):
    return mailbox(server, "fetch", "--message", *messages, "--into",
                   os.path.join(server.files, "out"), *words, **more)


def decode(server, *paths, wanted=DONE, tells=b""):
    run = rynmail("decode", *paths, "--into", os.path.join(server.files, "out"))
    same(run.returncode, wanted)
    check(tells in run.stderr, run.stderr)
    same(run.stderr == b"", wanted == DONE and not tells)


def fetched(server):
    """What lies in the folder of --into: the files of each folder, by name."""
    out = os.path.join(server.files, "out")
    return {folder: {name: read_file(os.path.join(out, folder, name))
                     for name in os.listdir(os.path.join(out, folder))}
            for folder in os.listdir(out)}


def lines(text):
    """A text as message.txt has it."""
    return text.replace(b"\n", b"\r\n")
