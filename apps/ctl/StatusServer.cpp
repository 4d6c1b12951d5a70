// tolmarctl metrics: the counters for Prometheus, once or over HTTP, and the status page.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <httplib.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <memory>
#include <mutex>
#include <string_view>

#include "apps/ctl/Commands.h"
#include "apps/ctl/Metrics.h"
#include "apps/ctl/StatusPage.h"
#include "apps/process/CommandLine.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

struct Address {
  std::string host;
  int port = 0;
};

/// "127.0.0.1:9464", "[::1]:9464"
Address addressOf(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  const auto port = Process::numberIn<int>(
      colon == std::string::npos ? std::string_view() : std::string_view(text).substr(colon + 1), 0, 65535);
  std::string host = text.substr(0, std::min(colon, text.size()));
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  in6_addr address{};
  const bool isAddress =
      ::inet_pton(AF_INET, host.c_str(), &address) == 1 || ::inet_pton(AF_INET6, host.c_str(), &address) == 1;
  if (port && isAddress) return {host, *port};
  throw Cairn::Exception(fmt::format("--listen: expected ADDRESS:PORT, got \"{}\"", text));
}

/// Answers every request from counters that it reads for it. Neither program need run, nor have run.
class StatusServer {
 public:
  explicit StatusServer(std::string folder) : folder_(std::move(folder)) {
    server_.Get("/metrics", [this](const auto&, auto& response) {
      reply(response, "text/plain; version=0.0.4; charset=utf-8", metricsText);
    });
    server_.Get("/data.json",
                [this](const auto&, auto& response) { reply(response, "application/json", pageData); });
    server_.Get("/healthz", [this](const auto&, auto& response) {
      reply(response, "text/plain; charset=utf-8", [&response](const Programs& programs) {
        std::string text;
        for (const std::string& fault : programs.faults()) text += fault + "\n";
        if (!text.empty()) response.status = 503;
        return text.empty() ? std::string("ok\n") : text;
      });
    });
    server_.Get("/", [](const auto&, auto& response) {
      response.set_header("Content-Security-Policy",
                          "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; "
                          "connect-src 'self'");
      response.set_content(kStatusPage, "text/html; charset=utf-8");
    });
    server_.set_default_headers({{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}});
    // A few clients; each of them keeps a thread while it is connected.
    server_.new_task_queue = [] { return new httplib::ThreadPool(8); };
    server_.set_keep_alive_timeout(2);
    server_.set_payload_max_length(4096);
    // The library's own options would share the port with another server.
    server_.set_socket_options([](int socket) {
      const int on = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
  }

  void serve(const Address& address) {
    const int port = address.port == 0
                         ? server_.bind_to_any_port(address.host)
                         : (server_.bind_to_port(address.host, address.port) ? address.port : -1);
    if (port < 0) {
      throw Cairn::Exception(fmt::format("cannot listen at {} port {}", address.host, address.port));
    }
    const char* const form =
        address.host.find(':') == std::string::npos ? "http://{}:{}/" : "http://[{}]:{}/";
    fmt::print("serving {}\n", fmt::format(fmt::runtime(form), address.host, port));
    std::fflush(stdout);
    server_.listen_after_bind();
  }

 private:
  template <class Text>
  void reply(httplib::Response& response, const char* type, const Text& text) {
    try {
      const std::lock_guard lock(mutex_);
      if (programs_) {
        programs_->read();
      } else {
        programs_ = std::make_unique<Programs>(folder_);
      }
      response.set_content(text(*programs_), type);
    } catch (const Cairn::Exception& failure) {
      response.status = 503;
      response.set_content(failure.message() + "\n", "text/plain; charset=utf-8");
    }
  }

  std::string folder_;
  httplib::Server server_;
  std::mutex mutex_;
  std::unique_ptr<Programs> programs_;  // guarded by mutex_
};

int metrics(const std::string& folder, const std::string& listen) {
  if (listen.empty()) {
    fmt::print("{}", metricsText(Programs(folder)));
    return kFine;
  }
  std::signal(SIGPIPE, SIG_IGN);
  StatusServer(folder).serve(addressOf(listen));
  return kFine;
}

}  // namespace

void addMetrics(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("metrics", "counters for Prometheus, and a status page");
  const auto listen = std::make_shared<std::string>();
  command.add_option("--listen", *listen, "serve over HTTP there until stopped")->type_name("ADDRESS:PORT");
  command.footer(
      "Without --listen: Prometheus's text format, once. Over HTTP, such as at\n"
      "127.0.0.1:9464 (anybody who reaches the address may read):\n"
      "  /metrics    the same text\n"
      "  /           a status page\n"
      "  /data.json  what the page shows\n"
      "  /healthz    200 while both programs live, 503 with the reason otherwise");
  runsAs(command, line, [listen](const std::string& folder) { return metrics(folder, *listen); });
}

}  // namespace Ctl
