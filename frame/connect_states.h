// The states through which every conversation begins: a socket, the server's address, a connection.
#pragma once

#include "frame/driver.h"

int32_t CreateSocket(Channel& ch, uint32_t now);
int32_t LocalHost(Channel& ch, uint32_t now);
int32_t ResolveServer(Channel& ch, uint32_t now);
int32_t Connect(Channel& ch, uint32_t now);
int32_t WaitConnected(Channel& ch, uint32_t now);
