#include "calls/settlement.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "terminal/text.h"

namespace satctl {

namespace {

constexpr std::string_view kIssued = "06000";
constexpr std::string_view kCancelled = "07000";
constexpr std::string_view kNoReceiptYet = "19003";
constexpr std::array<std::string_view, 3> kSettlingNothing{"097", "098", "099"};

// An access key: CFe, state (2), year and month (4), CNPJ (14), model (2), serial number of the device (9),
// number of the receipt (6), random number (6), check digit.
constexpr std::string_view kKeyStart = "CFe";
constexpr std::size_t kKeySize = 47;
constexpr std::size_t kSerialAt = 25, kSerialSize = 9;
constexpr std::size_t kNumberAt = 34, kNumberSize = 6;

bool is_five_digits(std::string_view code) {
  return code.size() == 5 && all_digits(code);
}

bool is_fiscal(std::string_view code) {
  return is_five_digits(code) && (code.starts_with("06") || code.starts_with("07"));
}

int number_of(std::string_view digits) {
  int number = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

bool is_of(int session, const Evidence& reply) {
  return all_digits(reply.session) && number_of(reply.session) == session;
}

// Only a device pads the session number to six digits.
bool is_composed_by_library(int session, const Evidence& reply) {
  return session < kSessionsToDraw && reply.session == std::to_string(session) && reply.code.ends_with("098");
}

Settlement settlement_of_own(std::string_view code) {
  if (code == kIssued) return Settlement::issued;
  if (code == kCancelled) return Settlement::cancelled;
  return is_fiscal(code) && !settles_nothing(code) ? Settlement::refused : Settlement::unknown;
}

enum class Order { same, newer, older, unrelated };

Order order_of(std::string_view key, std::string_view before) {
  if (key == before) return Order::same;
  if (!is_access_key(key) || !is_access_key(before)) return Order::unrelated;
  if (key.substr(kSerialAt, kSerialSize) != before.substr(kSerialAt, kSerialSize)) return Order::unrelated;
  // Receipts are numbered 1 to 999999, then from 1 again: the shorter way round decides.
  constexpr int kNumbers = 999'999;
  const int ahead =
      number_of(key.substr(kNumberAt, kNumberSize)) - number_of(before.substr(kNumberAt, kNumberSize));
  const int way = (ahead + kNumbers) % kNumbers;
  return way >= 1 && way <= kNumbers / 2 ? Order::newer : Order::older;
}

Fate fate_of(Settlement settlement) {
  return settlement == Settlement::issued ? Fate::issued : Fate::cancelled;
}

bool made_receipt(Settlement settlement) {
  return settlement == Settlement::issued || settlement == Settlement::cancelled;
}

}  // namespace

bool settles_nothing(std::string_view code) {
  return is_fiscal(code) && std::any_of(kSettlingNothing.begin(), kSettlingNothing.end(),
                                        [code](std::string_view ending) { return code.ends_with(ending); });
}

bool is_access_key(std::string_view text) {
  return text.size() == kKeySize && text.starts_with(kKeyStart) && all_digits(text.substr(kKeyStart.size()));
}

Settlement settlement_of(int code_prefix, int session, const Evidence& reply) {
  if (!is_five_digits(reply.code) || number_of(reply.code) / 1000 != code_prefix / 10)
    return Settlement::unknown;
  if (!is_of(session, reply)) return Settlement::unknown;
  if (is_composed_by_library(session, reply)) return Settlement::not_sent;
  return settlement_of_own(reply.code);
}

std::optional<Fate> fate_by_session(int session, const Evidence& stored,
                                    std::optional<std::string_view> before) {
  if (!is_of(session, stored)) return std::nullopt;
  const Settlement settlement = settlement_of_own(stored.code);
  if (settlement == Settlement::refused) return Fate::refused;
  if (!made_receipt(settlement)) return std::nullopt;
  // A receipt that the till knew before belongs to an earlier call, which had the same number.
  const Order order = before ? order_of(stored.key, *before) : Order::newer;
  if (order == Order::same || order == Order::older) return std::nullopt;
  return fate_of(settlement);
}

Fate fate_by_last_receipt(int session, const Evidence& last, std::optional<std::string_view> before) {
  if (last.code == kNoReceiptYet) return before ? Fate::misfit : Fate::not_issued;
  if (const auto fate = fate_by_session(session, last, before)) return *fate;
  if (!before) return Fate::no_comparison;
  switch (order_of(last.key, *before)) {
    case Order::same:
      return Fate::not_issued;
    case Order::newer:
      return Fate::newer_receipts;
    default:
      return Fate::misfit;
  }
}

}  // namespace satctl
