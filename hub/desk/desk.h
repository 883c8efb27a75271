// The device's desk: the one place that gives orders to a device. It finds the device, proves which one it
// is, finds out what became of orders whose reply was lost, and only then serves who waits.
#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <string>

#include "hub/broker/broker.h"
#include "hub/desk/device_view.h"
#include "hub/desk/sessions.h"
#include "hub/device/child.h"
#include "hub/device/port.h"
#include "hub/settings.h"

namespace hub {

class Desk {
 public:
  Desk(boost::asio::any_io_executor executor, Journal& journal, Broker& broker, const Settings& settings,
       const std::filesystem::path& child_program);

  // Until stop(); then the call that is with the device is waited for.
  boost::asio::awaitable<void> run();
  void stop();
  const DeviceView& view() const { return view_; }

 private:
  // Finding the device
  boost::asio::awaitable<bool> appear();
  boost::asio::awaitable<void> identify();
  void meet(const Identity& identity);
  boost::asio::awaitable<bool> lock_serial(const std::string& serial);
  std::optional<std::filesystem::path> port() const;

  // What its past says
  boost::asio::awaitable<void> find_out(const Operation& operation);
  boost::asio::awaitable<void> watch();
  boost::asio::awaitable<void> compare();
  boost::asio::awaitable<int> collect_orphans(const DeviceRecord& record, const AccessKey& newest);
  void begin_epoch(DeviceRecord record, const AccessKey& newest, int missing);
  std::optional<Operation> first_unknown() const;
  bool is_held() const;

  // Serving
  boost::asio::awaitable<void> work();
  boost::asio::awaitable<void> take_turn();
  boost::asio::awaitable<void> carry_out(const Job& job);
  boost::asio::awaitable<void> answer_question(JobId id);
  boost::asio::awaitable<void> administer(const Operation& operation);
  boost::asio::awaitable<void> sell(const Operation& operation);
  boost::asio::awaitable<void> refresh_status();
  bool may_run(const Job& job) const;

  // One call
  boost::asio::awaitable<std::optional<ChildAnswer>> order(const satctl::Function& function, int session,
                                                           std::vector<std::string> values);
  boost::asio::awaitable<Reply> question(const char* function, std::optional<int> about = std::nullopt);
  bool code_usable();
  void notice(const satctl::Function& function, const Reply& reply);
  void refuse_code();

  // Journal
  Operation mark_sent(const Operation& operation);
  void judge_reply(const Operation& sent, const ChildAnswer& answer);
  void settle(const Operation& operation, Change change, Instant not_before = {});
  void settle_issued(const Operation& operation, const Reply& reply, const std::string& reason,
                     bool port_changed);
  Receipt receipt_in(const Reply& reply) const;
  bool knows(const AccessKey& key) const;
  void alarm(const std::string& text);
  int next_session();
  void reserve_sessions();

  boost::asio::awaitable<void> pause(Instant until);
  void wake();
  void tell_tills();

  Journal& journal_;
  Broker& broker_;
  const Settings& settings_;
  Child child_;
  boost::asio::steady_timer timer_;
  bool woken_ = false;
  bool stopping_ = false;

  std::optional<ActivationCode> code_;
  std::string refused_code_;  // its stamp
  Sessions sessions_;
  bool sessions_owed_ = false;  // a block is in use that the journal does not know of
  DeviceView view_;
  std::optional<Identity> identity_;
  bool compared_ = false;
  std::optional<PortNode> node_;
  Instant next_start_{}, next_identification_{}, next_comparison_{}, next_finding_{}, next_status_{},
      next_order_{}, next_settlement_{};
  int failures_ = 0, findings_ = 0, unsent_ = 0;

  // What the journal could not take; nothing fiscal happens until it has.
  struct Unsettled {
    Operation operation;
    Change change;
    Instant not_before;
  };
  std::optional<Unsettled> unsettled_;
};

}  // namespace hub
