"""Sends a short text from a language that knows nothing of C: the library is loaded at run time.

    load.py LIBRARY SERVER PORT FROM TO
"""
import ctypes
import sys

SMTP_PORT = 15  # codes are those of ryn32.h

library, server, port, sender, recipient = sys.argv[1:]
ryn = ctypes.CDLL(library)


def must(status, doing):
    """Ends the program with the status's text, if a call has failed."""
    if status >= 0:
        return
    text = ctypes.create_string_buffer(2400)
    ryn.rynErrorText(0, status, text, len(text))
    ryn.rynRelease()
    sys.exit(f"{doing}: {text.value.decode(errors='replace')!r} (status {status})")


must(ryn.rynAttach(1), "starting")
must(ryn.rynIntegerParam(0, SMTP_PORT, int(port)), "port")
must(ryn.rynSmtpConnect(0, server.encode(), f"<{sender}>".encode(), None), "connecting")
must(ryn.rynSendEmail(0, f"<{recipient}>".encode(), None, None, b"Hello", b"At noon?\r\n", None),
     "sending")
must(ryn.rynClose(0), "taking leave")
ryn.rynRelease()
