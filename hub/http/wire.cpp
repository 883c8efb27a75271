#include "hub/http/wire.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <cstdio>
#include <list>

#include "hub/text.h"

namespace hub {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::awaitable;
using asio::use_awaitable;
using namespace asio::experimental::awaitable_operators;
using std::chrono::seconds;

namespace {

using Socket = asio::generic::stream_protocol::socket;
using Stream = beast::basic_stream<asio::generic::stream_protocol>;
constexpr auto kNoThrow = asio::as_tuple(use_awaitable);

constexpr std::size_t kMostConnections = 512;
constexpr std::size_t kMostUnknown = 16;  // of one address, before a token has come
constexpr std::uint32_t kLargestHeader = 16 * 1024;
constexpr std::uint64_t kLargestBody = 8 * 1024 * 1024;
constexpr seconds kRequestLimit{30};   // for a request to arrive
constexpr seconds kIdleLimit{5 * 60};  // between two requests of a known till
constexpr seconds kWriteLimit{30};
constexpr std::string_view kBearer = "Bearer ";

Request request_from(http::request<http::string_body>&& message, bool local, bool tcp) {
  Request request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  request.host = std::string(message[http::field::host]);
  const std::string_view authorization = message[http::field::authorization];
  if (authorization.starts_with(kBearer)) request.token = authorization.substr(kBearer.size());
  request.body = std::move(message.body());
  request.local = local;
  request.tcp = tcp;
  return request;
}

http::response<http::string_body> message_of(const Response& response, unsigned version, bool keep_alive) {
  http::response<http::string_body> message{static_cast<http::status>(response.status), version};
  message.set(http::field::content_type, response.type);
  message.set(http::field::cache_control, "no-store");
  message.set("X-Content-Type-Options", "nosniff");
  for (const auto& [name, value] : response.headers) message.set(name, value);
  message.keep_alive(keep_alive);
  message.body() = response.body;
  message.prepare_payload();
  return message;
}

Problem problem_of(const beast::error_code& error) {
  if (error == http::error::body_limit) {
    return {413, tr({"the body is longer than 8 MiB", "o corpo passa de 8 MiB"}), {}};
  }
  if (error == http::error::header_limit) {
    return {431, tr({"the headers are longer than 16 KiB", "os cabeçalhos passam de 16 KiB"}), {}};
  }
  return {400, tr({"this is no HTTP request", "isto não é uma requisição HTTP"}), {}};
}

}  // namespace

// ---- One connection ----

// Everything of the server that its connections share.
class Server::Connections : public std::enable_shared_from_this<Connections> {
 public:
  struct Entry {
    Stream* stream;
    std::string address;
    bool known = false;    // a token or a local user
    bool serving = false;  // a request has arrived whole and is not answered yet
  };
  using Place = std::list<Entry>::iterator;

  Connections(asio::io_context& context, Api& api) : context_(context), api_(api) {}

  template <typename Acceptor>
  awaitable<void> accept(std::shared_ptr<Acceptor> acceptor);
  void keep(std::function<void()> closer) { closers_.push_back(std::move(closer)); }
  void stop() {
    for (const auto& close : closers_) close();
  }

 private:
  awaitable<void> serve(Socket socket, std::string address, bool local, bool tcp);
  awaitable<void> converse(Stream& stream, Place place, bool local, bool tcp);
  awaitable<bool> answer(Stream& stream, const Response& response, unsigned version, bool keep_alive);
  awaitable<std::optional<Response>> wait(Stream& stream, const Wait& wait);
  void make_room(const std::string& address);

  asio::io_context& context_;
  Api& api_;
  std::list<Entry> entries_;  // the oldest in front
  std::vector<std::function<void()>> closers_;
};

namespace {

// Returns when the peer has closed the connection. Further requests that it sends meanwhile stay where they
// are.
awaitable<void> peer_gone(Socket& socket) {
  const auto [error] = co_await socket.async_wait(Socket::wait_read, kNoThrow);
  char byte = 0;
  if (!error && recv(socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0) {
    asio::steady_timer never(socket.get_executor(), asio::steady_timer::time_point::max());
    co_await never.async_wait(kNoThrow);
  }
}

struct Peer {
  std::string address;
  bool local = false;
  bool tcp = false;
};

Peer peer_of(Socket& socket) {
  if (socket.local_endpoint().protocol().family() != AF_UNIX) {
    const auto endpoint = socket.remote_endpoint();
    char text[INET6_ADDRSTRLEN] = "";
    const auto* address = endpoint.data();
    if (address->sa_family == AF_INET)
      inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
    else
      inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
    return {text, false, true};
  }
  ucred user{};
  socklen_t size = sizeof user;
  const bool known = getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &user, &size) == 0;
  return {"unix", known && (user.uid == 0 || user.uid == geteuid()), false};
}

}  // namespace

template <typename Acceptor>
awaitable<void> Server::Connections::accept(std::shared_ptr<Acceptor> acceptor) {
  const auto self = shared_from_this();
  while (acceptor->is_open()) {
    Socket socket(context_);
    const auto [error] = co_await acceptor->async_accept(socket, kNoThrow);
    if (error == asio::error::operation_aborted) co_return;
    if (error) {
      // Out of descriptors, most likely: those that are open go on.
      asio::steady_timer pause(context_, std::chrono::milliseconds{100});
      co_await pause.async_wait(kNoThrow);
      continue;
    }
    try {
      const Peer peer = peer_of(socket);
      asio::co_spawn(context_, serve(std::move(socket), peer.address, peer.local, peer.tcp), asio::detached);
    } catch (const boost::system::system_error&) {
      // It has gone already.
    }
  }
}

// Whoever has not shown a token yet makes room for newcomers: a till says who it is with its first bytes.
void Server::Connections::make_room(const std::string& address) {
  const auto close_oldest = [&](auto fits) {
    const auto oldest = std::find_if(entries_.begin(), entries_.end(), fits);
    if (oldest == entries_.end()) return;
    oldest->stream->cancel();
    boost::system::error_code ignored;
    oldest->stream->socket().close(ignored);
    oldest->address.clear();  // counted no longer
    oldest->known = true;
  };
  const auto unknown_here = [&](const Entry& entry) {
    return !entry.known && !entry.serving && entry.address == address;
  };
  if (std::count_if(entries_.begin(), entries_.end(), unknown_here) >= static_cast<long>(kMostUnknown)) {
    close_oldest(unknown_here);
  }
  if (entries_.size() >= kMostConnections) {
    close_oldest([](const Entry& entry) { return !entry.known && !entry.serving; });
  }
}

awaitable<void> Server::Connections::serve(Socket socket, std::string address, bool local, bool tcp) {
  const auto self = shared_from_this();
  make_room(address);
  if (entries_.size() >= kMostConnections + kMostUnknown) co_return;
  Stream stream(std::move(socket));
  const auto place = entries_.insert(entries_.end(), Entry{&stream, std::move(address), local, false});
  try {
    co_await converse(stream, place, local, tcp);
  } catch (const std::exception& error) {
    // A connection is lost, never the hub.
    fprintf(stderr, "talvex-hub: %s\n", error.what());
  }
  entries_.erase(place);
}

awaitable<void> Server::Connections::converse(Stream& stream, Place place, bool local, bool tcp) {
  beast::flat_buffer buffer(64 * 1024);
  while (stream.socket().is_open()) {
    http::request_parser<http::string_body> parser;
    parser.header_limit(kLargestHeader);
    parser.body_limit(kLargestBody);
    stream.expires_after(place->known && buffer.size() == 0 ? kIdleLimit : kRequestLimit);
    auto [error, count] = co_await http::async_read_header(stream, buffer, parser, kNoThrow);
    if (!error) {
      stream.expires_after(kRequestLimit);
      if (beast::iequals(parser.get()[http::field::expect], "100-continue")) {
        http::response<http::empty_body> go_on{http::status::continue_, parser.get().version()};
        co_await http::async_write(stream, go_on, kNoThrow);
      }
      std::tie(error, count) = co_await http::async_read(stream, buffer, parser, kNoThrow);
    }
    const bool is_lost = error == http::error::end_of_stream || error == beast::error::timeout ||
                         error.category() == asio::error::get_system_category();
    if (error && is_lost) co_return;
    if (error) {
      co_await answer(stream, response_of(problem_of(error)), 11, false);
      co_return;
    }
    const unsigned version = parser.get().version();
    const bool keep_alive = parser.keep_alive();
    const Request request = request_from(parser.release(), local, tcp);
    place->serving = true;
    if (!place->known && !request.token.empty()) place->known = api_.caller_of(request).has_value();
    auto reaction = api_.react(request);
    if (const auto* waiting = std::get_if<Wait>(&reaction)) {
      auto response = co_await wait(stream, *waiting);
      if (!response) co_return;
      reaction = std::move(*response);
    }
    if (!co_await answer(stream, std::get<Response>(reaction), version, keep_alive) || !keep_alive) co_return;
    place->serving = false;
  }
}

awaitable<bool> Server::Connections::answer(Stream& stream, const Response& response, unsigned version,
                                            bool keep_alive) {
  auto message = message_of(response, version, keep_alive);
  stream.expires_after(kWriteLimit);
  const auto [error, count] = co_await http::async_write(stream, message, kNoThrow);
  co_return !error;
}

// None: whoever asked has gone.
awaitable<std::optional<Response>> Server::Connections::wait(Stream& stream, const Wait& wait) {
  Broker& broker = api_.broker();
  stream.expires_never();
  asio::steady_timer timer(context_, wait.most);
  const auto end = timer.expiry();
  const auto listener =
      broker.listen(wait.job, [&timer] { timer.expires_at(asio::steady_timer::time_point::min()); });
  broker.request_opened(wait.job);
  bool gone = false;
  while (!gone && !api_.is_over(wait) && asio::steady_timer::clock_type::now() < end) {
    timer.expires_at(end);
    const auto first = co_await (timer.async_wait(kNoThrow) || peer_gone(stream.socket()));
    gone = first.index() == 1;
  }
  broker.stop_listening(listener);
  // The answer is taken before the request closes: a question without askers is forgotten.
  std::optional<Response> response;
  if (!gone) response = api_.finish(wait);
  broker.request_closed(wait.job);
  co_return response;
}

// ---- The server ----

Server::Server(asio::io_context& context, Api& api)
    : context_(context), connections_(std::make_shared<Connections>(context, api)) {}

Server::~Server() = default;

void Server::stop() {
  connections_->stop();
}

std::string Server::listen(const std::string& address) {
  using asio::ip::tcp;
  const auto colon = address.rfind(':');
  boost::system::error_code error;
  std::string host = address.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  const auto ip = asio::ip::make_address(host, error);
  const std::string port = colon == std::string::npos ? "" : address.substr(colon + 1);
  if (error || !all_digits(port) || port.size() > 5 || std::stoi(port) > 65535) {
    throw ListenError(fill({"{} is no address and port", "{} não é endereço e porta"}, {address}));
  }
  if (!ip.is_loopback()) {
    throw ListenError(
        fill({"{}: only loopback addresses can be served", "{}: só endereços de loopback podem ser servidos"},
             {address}));
  }
  auto acceptor = std::make_shared<tcp::acceptor>(context_);
  try {
    const tcp::endpoint endpoint(ip, static_cast<unsigned short>(std::stoi(port)));
    acceptor->open(endpoint.protocol());
    acceptor->set_option(tcp::acceptor::reuse_address(true));
    acceptor->bind(endpoint);
    acceptor->listen();
  } catch (const boost::system::system_error& failed) {
    throw ListenError(address + ": " + failed.code().message());
  }
  connections_->keep([acceptor] { acceptor->close(); });
  asio::co_spawn(context_, connections_->accept(acceptor), asio::detached);
  return (ip.is_v6() ? "[" + ip.to_string() + "]" : ip.to_string()) + ":" +
         std::to_string(acceptor->local_endpoint().port());
}

void Server::listen(const std::filesystem::path& path) {
  using asio::local::stream_protocol;
  const auto failed = [&](const std::string& why) { return ListenError(path.string() + ": " + why); };
  try {
    const stream_protocol::endpoint endpoint(path.string());
    std::filesystem::create_directories(path.parent_path());
    boost::system::error_code error;
    stream_protocol::socket(context_).connect(endpoint, error);
    if (!error) throw failed(tr({"another hub listens there", "outro hub já escuta ali"}));
    // What a hub that was killed has left.
    if (std::filesystem::is_socket(path)) std::filesystem::remove(path);
    auto acceptor = std::make_shared<stream_protocol::acceptor>(context_);
    acceptor->open(endpoint.protocol());
    acceptor->bind(endpoint);
    chmod(path.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP);
    acceptor->listen();
    connections_->keep([acceptor, path] {
      acceptor->close();
      std::error_code ignored;
      std::filesystem::remove(path, ignored);
    });
    asio::co_spawn(context_, connections_->accept(acceptor), asio::detached);
  } catch (const boost::system::system_error& reason) {
    throw failed(reason.code().message());
  } catch (const std::filesystem::filesystem_error& reason) {
    throw failed(reason.code().message());
  }
}

// ---- The command line's side ----

Response ask_hub(const std::filesystem::path& path, const std::string& method, const std::string& target,
                 const std::string& body) {
  using asio::local::stream_protocol;
  asio::io_context context;
  beast::basic_stream<asio::generic::stream_protocol> stream(context);
  try {
    stream.socket().connect(stream_protocol::endpoint(path.string()));
    http::request<http::string_body> message{http::string_to_verb(method), target, 11};
    message.set(http::field::host, "localhost");
    message.set(http::field::content_type, "application/json");
    message.body() = body;
    message.prepare_payload();
    http::write(stream, message);
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(boost::none);
    http::read(stream, buffer, parser);
    Response response;
    response.status = static_cast<int>(parser.get().result_int());
    response.body = parser.get().body();
    return response;
  } catch (const boost::system::system_error& error) {
    throw NoHubError(fill({"no hub answers on {}: {}", "nenhum hub responde em {}: {}"},
                          {path.string(), error.code().message()}));
  }
}

}  // namespace hub
