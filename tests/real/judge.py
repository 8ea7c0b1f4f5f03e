"""Tells what a mail reader of another make finds in a stored message: one line for each part, in order,
as C++ tests compare them.  judge.py MESSAGE"""
import email
import email.header
import sys


def decoded(name):
    """A name with its encoded words (RFC 2047) read, for readers take them inside quotes too."""
    if name is None:
        return "-"
    return str(email.header.make_header(email.header.decode_header(name)))


def tell(part, depth):
    fields = [
        ">" * depth + part.get_content_type(),
        "name=" + decoded(part.get_param("name")),
        "id=" + (part["Content-ID"] or "-"),
        "disposition=" + (part.get_content_disposition() or "-"),
        "filename=" + decoded(part.get_filename()),
        "encoding=" + (part["Content-Transfer-Encoding"] or "-"),
        "extra=" + (part["X-Extra"] or "-"),
    ]
    if not part.is_multipart():
        fields.append("bytes=" + part.get_payload(decode=True).hex())
    print(" ".join(fields))
    for defect in part.defects:
        print("DEFECT " + repr(defect))
    if part.is_multipart():
        for inner in part.get_payload():
            tell(inner, depth + 1)


with open(sys.argv[1], "rb") as file:
    message = email.message_from_bytes(file.read())
sys.stdout.reconfigure(encoding="utf-8")
tell(message, 0)
