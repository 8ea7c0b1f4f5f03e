// Messages with files in the wire tests: one way to send them, the pieces that their bytes are made
// of, and the fixture that plays them. Expected texts have {B} for the seed of the boundaries.
#pragma once

#include "tests/wire/dialogue.h"

enum ParcelKind { PARCEL_TEXT, PARCEL_HTML, PARCEL_FORWARD };

// One message with files; null as in the library.
struct Parcel {
    ParcelKind Kind = PARCEL_TEXT;
    std::string Files = {};
    std::string Images = {};
    std::string Message = "one";
};

int32_t SendParcel(const Parcel& p, bool manual = false);

// A whole conversation with a server that takes everything.
std::string WholeScript();

// What a script got in DATA, from the Subject on.
std::string DataSent(size_t script);

// --- expected bytes ---

inline constexpr char MixedHead[] = "Subject: Hello\r\nMIME-Version: 1.0\r\n"
                                    "Content-Type: multipart/mixed; boundary=\"{B}MIX===\"\r\n\r\n";
inline constexpr char MixedEnd[] = "\r\n--{B}MIX===--\r\n\r\n";
inline constexpr char PlainText[] = "--{B}MIX===\r\nContent-Type: text/plain\r\n\r\none\r\n";
inline constexpr char Related[] = "--{B}MIX===\r\nContent-Type: multipart/related; "
                                  "boundary=\"{B}REL===\"\r\n\r\n--{B}REL===\r\n";
inline constexpr char Unrelated[] = "--{B}MIX===\r\n";
inline constexpr char TwoForms[] =
    "Content-Type: multipart/alternative; boundary=\"{B}ALT===\"\r\n\r\n"
    "--{B}ALT===\r\nContent-Type: text/plain\r\n\r\nplain\r\n\r\n"
    "--{B}ALT===\r\nContent-Type: text/html\r\n\r\none\r\n"
    "--{B}ALT===--\r\n\r\n";
inline constexpr char RelatedEnd[] = "\r\n\r\n--{B}REL===--\r\n\r\n";
inline constexpr char InBase64[] = "Content-Transfer-Encoding: base64";
inline constexpr char InQuoted[] = "Content-Transfer-Encoding: quoted-printable";

// A part of a level, MIX or REL, as it stands behind whatever came before.
std::string Part(const char* level, std::initializer_list<std::string> lines,
                 const std::string& content);

std::string FilePart(const std::string& name, const std::string& content); // a plain file in Base64

// An image: the number is that of its Content-ID, 0 for none.
std::string ImagePart(const char* level, const char* type, const std::string& name, int number,
                      const std::string& content, const char* encoding = InBase64);

std::string Mixed(const std::string& parts); // the message "one" with these parts

// Lines of 76 chars (RFC 2045, 6.8), by a coder of the test's own.
std::string Base64(const std::string& bytes);

// Bytes of every value in no simple order.
std::string Sample(size_t length);

// --- playing ---

// Makes this the only parameter set.
void GiveOneSet(const char* type, const char* encoding, const char* disposition, const char* extra);

struct AttachTest : WireTest {
    using Settings = std::function<void()>;

    void TearDown() override;

    // An entry of a list: a file of the case's own, told with the library's separator of folders.
    std::string File(const std::string& name, const std::string& bytes);

    std::string Entry(const std::string& name) const;

    // Sends one message to a server that takes everything: what DATA held from the Subject on.
    std::string Sent(const Parcel& parcel, const Settings& settings = nullptr,
                     const char* way = "whole");

    // Sends, by each way of driving, and compares to the last byte.
    void Expect(const std::string& expected, const Parcel& parcel,
                const Settings& settings = nullptr);

    // A send that has to fail in the midst of DATA: its status. Then the channel is as new.
    int32_t Refused(const Parcel& parcel, const Settings& settings = nullptr);

    std::string ErrorText;
};
