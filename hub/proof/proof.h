// The rules of proof: what library, device and journal said, and what it proves. Pure logic, as two tables;
// each row names the trial that taught it, in which the simpler rule doubled or lost a sale.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "hub/sat/access_key.h"
#include "hub/sat/document.h"
#include "hub/sat/reply.h"

namespace hub {

// One fiscal order, as it was committed before the device got it.
struct Order {
  Fiscal function = Fiscal::sale;
  int session = 0;
  std::string serial;
  std::optional<AccessKey> baseline;  // the device's last receipt before this order
  DocumentFacts data;
  bool stood_in = false;  // the port changed while the order was out, and another device was seen since
};

// Whether the journal has this receipt already.
using Known = std::function<bool(const AccessKey&)>;

// ---- What the call itself returned
// --------------------------------------------------------------------------

enum class Outcome {
  issued,
  refused,
  nothing_sent,      // no byte reached a device
  held_by_stranger,  // likewise, because another program has the port
  unknown,
};

struct OutcomeRow {
  const char* name;
  bool (*fits)(const Order&, const Reply&, const Known&);
  Outcome outcome;
  const char* trial;
};

std::span<const OutcomeRow> outcome_rows();
const OutcomeRow& judge(const Order& order, const Reply& reply, const Known& known);

// ---- What the device says afterwards
// ------------------------------------------------------------------------

// Asked in this order, under sessions of their own. A reply that never came is a failure text.
struct Answers {
  Reply status;   // ConsultarStatusOperacional
  Reply session;  // ConsultarNumeroSessao, about the order's session
  Reply last;     // ConsultarUltimaSessaoFiscal
};

enum class Finding {
  issued_by_session,  // the reply is Answers::session
  issued_by_last,     // the reply is Answers::last
  not_issued,
  ask_again,
  undecided,
};

struct FindingRow {
  const char* name;
  bool (*fits)(const Order&, const Answers&, const Known&);
  Finding finding;
  const char* trial;
};

std::span<const FindingRow> finding_rows();
const FindingRow& find_out(const Order& order, const Answers& answers, const Known& known);

// Whether a stored reply proves that this order issued the receipt in it.
bool proves_issue(const Order& order, const Reply& stored, const Known& known);

// The device that a status reply speaks of; none if it is no such reply.
struct Identity {
  std::string serial;
  std::optional<AccessKey> last;
};
std::optional<Identity> identity_in(const Reply& status);

}  // namespace hub
