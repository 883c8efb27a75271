// The one rule for sales and cancellations: what a reply settles, and what is known after the device was
// asked. Whatever it does not settle is unknown: the device may have issued a receipt, and nothing may be
// sent again.
#pragma once

#include <optional>
#include <string_view>

namespace satctl {

// Session numbers are drawn below this. The library prints the number in its own busy reply as it is, while
// devices pad it to six digits; with six digits nobody could tell that nothing was sent.
constexpr int kSessionsToDraw = 100'000;

// The fields of a reply that the rule looks at, as they came; empty where there is none.
struct Evidence {
  std::string_view session;
  std::string_view code;  // EEEEE
  std::string_view key;   // access key
};

enum class Settlement {
  issued,
  cancelled,
  refused,   // nothing was issued
  not_sent,  // the library's own busy reply: the command never left
  unknown,
};

// The reply of EnviarDadosVenda (code_prefix 60) or CancelarUltimaVenda (70) to the call with this session.
Settlement settlement_of(int code_prefix, int session, const Evidence& reply);

// Whether it is one of the codes 06097 to 06099 and 07097 to 07099. They are no refusals: where the line
// garbles an ACK, the library sends the command again, and the device, which has carried it out, answers the
// repetition.
bool settles_nothing(std::string_view code);

// What became of a sale or cancellation whose reply was lost.
enum class Fate {
  issued,
  cancelled,
  refused,
  not_issued,      // the last receipt is still the one from before
  no_comparison,   // the last receipt is another session's, the one from before is not known
  newer_receipts,  // another session's receipt came after the one from before
  misfit,          // the one from before does not belong in front of the device's last one
};

// By the device's answer to ConsultarNumeroSessao. `before`: access key of the last receipt that the till
// knew before the call. Nothing: the device's last receipt has to be looked at.
std::optional<Fate> fate_by_session(int session, const Evidence& stored,
                                    std::optional<std::string_view> before);

// By its answer to ConsultarUltimaSessaoFiscal, when the session alone has not decided.
Fate fate_by_last_receipt(int session, const Evidence& last, std::optional<std::string_view> before);

// Whether it is an access key: "CFe" and 44 digits.
bool is_access_key(std::string_view text);

}  // namespace satctl
