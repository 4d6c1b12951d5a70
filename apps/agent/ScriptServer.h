#pragma once

#include <functional>
#include <list>
#include <string>

#include "quill/EventLoop.h"

namespace Agent {

/// Takes scripts on a Unix socket. A client writes its script, shuts down its writing side and reads the
/// results until the end; the script of one that closes the connection instead is not run.
class ScriptServer {
 public:
  static constexpr std::size_t kMaxScript = 16u << 20;

  /// One client whose script is being run. Output is kept until the client takes it; that of a client that
  /// has gone is dropped.
  class Client {
   public:
    Client(ScriptServer& server, int socket) : server_(server), socket_(socket) {}
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void write(std::string_view text);
    /// No more output: the connection ends once the client has taken what there is, and this object with it.
    void end();

   private:
    friend class ScriptServer;
    void readable();
    void flush();
    void drop();

    ScriptServer& server_;
    int socket_;
    std::string script_;
    std::string output_;
    std::size_t sent_ = 0;
    Quill::EventLoop::TimerId retry_ = 0;
    bool reading_ = true;
    bool ended_ = false;
    bool gone_ = false;
  };
  /// Called with each whole script; answers through the client, which lives until it is ended.
  using Run = std::function<void(std::string script, Client& client)>;

  /// Serves `path` with rights 0600; a socket left there by a process that is gone is replaced. `loop` is not
  /// owned. Throws Cairn::Exception when another process serves it or the system refuses.
  ScriptServer(Quill::EventLoop& loop, std::string path, Run run);
  /// Drops the clients and removes the socket.
  ~ScriptServer();
  ScriptServer(const ScriptServer&) = delete;
  ScriptServer& operator=(const ScriptServer&) = delete;

 private:
  void listen();
  void accept();
  void drop(const Client* client);

  Quill::EventLoop& loop_;  // not owned
  std::string path_;
  Run run_;
  int listener_;
  std::list<Client> clients_;
};

/// Sends `script` to the agent that serves `path` and hands what it answers to `output` as it comes. Throws
/// Cairn::Exception when nobody serves the path or the connection fails.
void sendScript(const std::string& path, std::string_view script,
                const std::function<void(std::string_view)>& output);

}  // namespace Agent
