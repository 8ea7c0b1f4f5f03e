// Addresses and header texts from outside, made safe and ready for a header line.
#pragma once

#include <string>

// Makes an address of what a user typed: "a@b.example", "<a@b.example>" or "Name <a@b.example>".
// A bare one gets brackets, a name gets quotes or is encoded where it needs that. False: it is
// refused, and standard error tells why.
bool MakeAddress(const char* typed, std::string& addressOut);

// The same for a subject, in UTF-8: line ends become blanks; what is not ASCII is encoded.
bool MakeSubject(const char* typed, std::string& subjectOut);
