#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace Client {

/// Connects to the Unix socket at `path`, trying again up to `wait` while nobody serves it. What listens
/// there must be a process of `user`: anybody can make a socket in a folder that is open to all, and would
/// learn and answer what was meant for the agent. The result is non-blocking and the caller's. Throws
/// Cairn::Exception.
int connectedTo(const std::string& path, uid_t user, std::chrono::milliseconds wait);

}  // namespace Client
