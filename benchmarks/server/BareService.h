// The yardstick of the server: a bare gRPC service, which decodes each update into a struct, hands the
// request over to the thread of one event loop as the agent does, and answers OK at once.
#pragma once

#include <string>

/// Serves at the path until the process is killed; says "serving" on standard output. With `tables`, each
/// update goes through two bare tables to another process and back before the answer.
[[noreturn]] void serveBare(const std::string& socket, bool tables);
