// Sockets, with every wait bounded by the order to stop.
#pragma once

#include "misbehave.h"

namespace krvgw {

enum class IoEnd { Done, Gone, Stopped };

// `stopFd` becomes readable when everything shall end. `received` is appended to; on Gone it holds what came.
IoEnd receiveBytes(int socket, int stopFd, std::size_t count, Bytes& received);
IoEnd sendBytes(int socket, int stopFd, const Bytes& bytes, std::size_t from, std::size_t count);

// True if the order to stop came before the time was over.
bool pauseUnlessStopped(int stopFd, std::chrono::microseconds time);

// Sends all of a reply in the pieces and with the pauses that the plan says.
IoEnd deliver(int socket, int stopFd, const Delivery& delivery);

// A listening TCP socket, or -1 with the reason. `port` 0 is replaced by the port that was given.
int listenOn(const std::string& address, int& port, std::string& complaint);

void closeSocket(int socket, bool isReset);

}  // namespace krvgw
