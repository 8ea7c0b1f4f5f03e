// What the parts of the test mail server's IMAP share.
#pragma once

#include "postbox.h"

using Words = std::vector<std::string>;

// Ends a command: "OK" and the like, with a text.
void End(Client& client, const std::string& verdict);

// --- words (postbox_words.cpp) ---

// Takes words apart that single blanks part, without their quotes. False: the line is none of that.
bool SplitWords(std::string_view text, Words& wordsOut);

// The same for what a list holds; a word that is no list counts as a list of one.
bool SplitList(std::string_view word, Words& wordsOut);

// The places in Mailbox that a set of messages names. False: the client has been told that it is
// wrong.
bool PickMessages(Client& client, std::string_view set, bool byUid, std::vector<size_t>& picked);

std::string LowerCase(std::string text);

// --- commands on messages (postbox_messages.cpp), with the words behind the verb ---

void Fetch(Client& client, const Words& words, bool byUid);
void Store(Client& client, const Words& words, bool byUid);
void Search(Client& client, const Words& words, bool byUid);
void Copy(Client& client, const Words& words, bool byUid);
void Expunge(Client& client, const Words& words, bool byUid);

// Removes the messages that are flagged as deleted, and tells it if that is wanted. False: the disk
// refuses.
bool RemoveDeleted(Client& client, bool isTold);
