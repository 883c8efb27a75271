// The routes, as a table, and what each of them does.
#pragma once

#include <functional>
#include <optional>
#include <variant>

#include "hub/broker/broker.h"
#include "hub/desk/device_view.h"
#include "hub/http/messages.h"
#include "hub/http/parsing.h"
#include "hub/tills/tills.h"

namespace hub {

// An answer that is worth waiting for: when it is over, or the time is, the answer is then().
struct Wait {
  JobId job = 0;
  std::chrono::seconds most{0};
  std::function<bool()> over;
  std::function<Response()> then;
};
using Reaction = std::variant<Response, Wait>;

class Api {
 public:
  Api(Journal& journal, Broker& broker, const DeviceView& device);

  // Names under which the hub may be addressed, without the port. A page elsewhere that found its way to this
  // address by a name of its own is refused.
  void allow_host(std::string name) { hosts_.push_back(std::move(name)); }

  // Whoever the token names; nobody for a wrong one.
  std::optional<Caller> caller_of(const Request& request);
  Reaction react(const Request& request);
  bool is_over(const Wait& wait) const;
  Response finish(const Wait& wait) const;

  Broker& broker() { return broker_; }

 private:
  struct Call {
    const Caller* caller = nullptr;
    const Request* request = nullptr;
    std::vector<std::string> arguments;  // what stands in the path's places
    std::map<std::string, std::string> query;
  };
  struct Route {
    const char* method;
    const char* path;  // "{}" is a place
    unsigned roles;    // 0: everybody, without a token
    Reaction (Api::*handle)(const Call&);
  };
  static const std::vector<Route>& routes();
  friend std::vector<std::string> route_names();

  bool host_allowed(const Request& request) const;
  Reaction dispatch(const Request& request);

  Reaction put_sale(const Call& call);
  Reaction put_cancellation(const Call& call);
  Reaction get_sale(const Call& call);
  Reaction get_cancellation(const Call& call);
  Reaction delete_sale(const Call& call);
  Reaction post_function(const Call& call);
  Reaction get_devices(const Call& call);
  Reaction get_device(const Call& call);
  Reaction get_receipts(const Call& call);
  Reaction get_receipt(const Call& call);
  Reaction get_operations(const Call& call);
  Reaction get_operation(const Call& call);
  Reaction post_decision(const Call& call);
  Reaction get_health(const Call& call);

  Reaction put(const Call& call, Fiscal function);
  Reaction get(const Call& call, Fiscal function);
  Reaction ask_journal(const Call& call, const FunctionRequest& request);
  Wait wait_for(OperationId id, std::chrono::seconds most, bool by_id = false);
  bool may_see(const Caller& caller, TillId till) const;

  Journal& journal_;
  Broker& broker_;
  const DeviceView& device_;
  std::vector<std::string> hosts_{"localhost", "127.0.0.1", "[::1]"};
};

// "PUT /v1/vendas/{}", for whoever describes them.
std::vector<std::string> route_names();

}  // namespace hub
