// What the library has made of a message that was fetched or decoded: settings, files, summary.
#pragma once

#include <string>
#include <vector>

struct ReceivedFile {
    std::string Name; // on the disk
    std::string Type; // media type, as the message tells it
};

// Sets how messages are received, for every later one of the channel.
void SetReceiveParams();

// The attachments of the message received last. The library numbers them on from message to message;
// in the folder they get their number in the message.
std::vector<ReceivedFile> TakeAttachments(const std::string& folder);

// Shows the header and the files of the message received last; folder holds them.
void PrintReceived(const std::string& folder, const std::string& head,
                   const std::vector<ReceivedFile>& attachments);
