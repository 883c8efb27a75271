// The rule for sales and cancellations, case by case.
#include "calls/settlement.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace satctl {

namespace {

constexpr int kSale = 60, kCancellation = 70;

std::string key_of(const std::string& serial, const std::string& number) {
  return "CFe35" + std::string("2603") + "11222333000181" + "59" + serial + number + "123456" + "7";
}

struct ReplyCase {
  const char* what;
  int code_prefix;
  int session;
  Evidence reply;
  Settlement settlement;
};

void PrintTo(const ReplyCase& row, std::ostream* out) {
  *out << row.what;
}

class AReply : public testing::TestWithParam<ReplyCase> {};

TEST_P(AReply, settles) {
  const ReplyCase& row = GetParam();
  EXPECT_EQ(settlement_of(row.code_prefix, row.session, row.reply), row.settlement) << row.what;
}

using enum Settlement;

INSTANTIATE_TEST_SUITE_P(
    Table, AReply,
    testing::Values(
        ReplyCase{"sold", kSale, 42, {"000042", "06000", ""}, issued},
        ReplyCase{"cancelled", kCancellation, 42, {"000042", "07000", ""}, cancelled},
        ReplyCase{"sold in six digits", kSale, 123456, {"123456", "06000", ""}, issued},
        ReplyCase{"refused sale", kSale, 42, {"000042", "06010", ""}, refused},
        ReplyCase{"refused cancellation", kCancellation, 42, {"000042", "07002", ""}, refused},
        ReplyCase{"code without a name", kSale, 42, {"000042", "06042", ""}, refused},
        ReplyCase{"097 from a device", kSale, 42, {"000042", "06097", ""}, unknown},
        ReplyCase{"098 from a device", kSale, 42, {"000042", "06098", ""}, unknown},
        ReplyCase{"099 from a device", kSale, 42, {"000042", "06099", ""}, unknown},
        ReplyCase{"097 to a cancellation", kCancellation, 42, {"000042", "07097", ""}, unknown},
        ReplyCase{"098 to a cancellation", kCancellation, 42, {"000042", "07098", ""}, unknown},
        ReplyCase{"099 to a cancellation", kCancellation, 42, {"000042", "07099", ""}, unknown},
        ReplyCase{"the library's busy reply", kSale, 42, {"42", "06098", ""}, not_sent},
        ReplyCase{
            "the library's busy reply to a cancellation", kCancellation, 42, {"42", "07098", ""}, not_sent},
        ReplyCase{"the library's busy reply, session 0", kSale, 0, {"0", "06098", ""}, not_sent},
        ReplyCase{"the library's busy reply, five digits", kSale, 99999, {"99999", "06098", ""}, not_sent},
        ReplyCase{"098 from a device, five digits", kSale, 99999, {"099999", "06098", ""}, unknown},
        ReplyCase{"098 from anybody, six digits", kSale, 100000, {"100000", "06098", ""}, unknown},
        ReplyCase{"097 without zeros", kSale, 42, {"42", "06097", ""}, unknown},
        ReplyCase{"099 without zeros", kSale, 42, {"42", "06099", ""}, unknown},
        ReplyCase{"098 of another session", kSale, 42, {"41", "06098", ""}, unknown},
        ReplyCase{"sold, another session", kSale, 42, {"000041", "06000", ""}, unknown},
        ReplyCase{"refused, another session", kSale, 42, {"000041", "06010", ""}, unknown},
        ReplyCase{"a cancellation's code to a sale", kSale, 42, {"000042", "07000", ""}, unknown},
        ReplyCase{"a cancellation's refusal to a sale", kSale, 42, {"000042", "07010", ""}, unknown},
        ReplyCase{"a sale's code to a cancellation", kCancellation, 42, {"000042", "06000", ""}, unknown},
        ReplyCase{"another function's success", kSale, 42, {"000042", "08000", ""}, unknown},
        ReplyCase{"another function's busy reply", kSale, 42, {"42", "08098", ""}, unknown},
        ReplyCase{"an unknown command", kSale, 42, {"000042", "99099", ""}, unknown},
        ReplyCase{"six digits of code", kSale, 42, {"000042", "006000", ""}, unknown},
        ReplyCase{"letters in the code", kSale, 42, {"000042", "0600x", ""}, unknown},
        ReplyCase{"no code", kSale, 42, {"000042", "", ""}, unknown},
        ReplyCase{"no session", kSale, 42, {"", "06000", ""}, unknown},
        ReplyCase{"a session that is no number", kSale, 42, {"42x", "06000", ""}, unknown},
        ReplyCase{"a session beyond all numbers", kSale, 42, {"99999999999999999999", "06000", ""}, unknown},
        ReplyCase{"a failure text", kSale, 42, {"", "", ""}, unknown}));

TEST(Codes, ThatSettleNothing) {
  for (const char* code : {"06097", "06098", "06099", "07097", "07098", "07099"})
    EXPECT_TRUE(settles_nothing(code)) << code;
  for (const char* code : {"06000", "06010", "06096", "08098", "11099", "99099", "098", "06098x", ""})
    EXPECT_FALSE(settles_nothing(code)) << code;
}

const std::string kBefore = key_of("900000001", "000100");
const std::string kAfter = key_of("900000001", "000101");
const std::string kOlder = key_of("900000001", "000099");
const std::string kOtherDevice = key_of("900000002", "000101");
const std::string kBeforeTheWrap = key_of("900000001", "999999");
const std::string kBehindTheWrap = key_of("900000001", "000001");

struct SessionCase {
  const char* what;
  Evidence stored;
  std::optional<std::string_view> before;
  std::optional<Fate> fate;  // none: the last receipt has to be looked at
};

void PrintTo(const SessionCase& row, std::ostream* out) {
  *out << row.what;
}

class AStoredReply : public testing::TestWithParam<SessionCase> {};

TEST_P(AStoredReply, decides) {
  const SessionCase& row = GetParam();
  EXPECT_EQ(fate_by_session(42, row.stored, row.before), row.fate) << row.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, AStoredReply,
    testing::Values(
        SessionCase{"sold", {"000042", "06000", kAfter}, {}, Fate::issued},
        SessionCase{"sold, new", {"000042", "06000", kAfter}, kBefore, Fate::issued},
        SessionCase{"sold on a device that the till did not know",
                    {"000042", "06000", kOtherDevice},
                    kBefore,
                    Fate::issued},
        SessionCase{"sold before, under the same number", {"000042", "06000", kBefore}, kBefore, {}},
        SessionCase{"sold long before, under the same number", {"000042", "06000", kOlder}, kBefore, {}},
        SessionCase{"cancelled", {"000042", "07000", kAfter}, kBefore, Fate::cancelled},
        SessionCase{"refused", {"000042", "06010", ""}, kBefore, Fate::refused},
        SessionCase{"refused cancellation", {"000042", "07002", ""}, {}, Fate::refused},
        SessionCase{"097", {"000042", "06097", ""}, {}, {}},
        SessionCase{"098", {"000042", "06098", ""}, kBefore, {}},
        SessionCase{"099", {"000042", "07099", ""}, {}, {}},
        SessionCase{
            "098 without zeros: nothing that is stored is the library's", {"42", "06098", ""}, {}, {}},
        SessionCase{"another function under this number", {"000042", "08000", ""}, {}, {}},
        SessionCase{"another session", {"000041", "06000", kAfter}, {}, {}}));

struct LastCase {
  const char* what;
  Evidence last;
  std::optional<std::string_view> before;
  Fate fate;
};

void PrintTo(const LastCase& row, std::ostream* out) {
  *out << row.what;
}

class ALastReceipt : public testing::TestWithParam<LastCase> {};

TEST_P(ALastReceipt, decides) {
  const LastCase& row = GetParam();
  EXPECT_EQ(fate_by_last_receipt(42, row.last, row.before), row.fate) << row.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ALastReceipt,
    testing::Values(
        LastCase{"own", {"000042", "06000", kAfter}, {}, Fate::issued},
        LastCase{"own, new", {"000042", "06000", kAfter}, kBefore, Fate::issued},
        LastCase{"own cancellation", {"000042", "07000", kAfter}, kBefore, Fate::cancelled},
        LastCase{"own number, but the receipt from before",
                 {"000042", "06000", kBefore},
                 kBefore,
                 Fate::not_issued},
        LastCase{"own number, but older", {"000042", "06000", kOlder}, kBefore, Fate::misfit},
        LastCase{"own refusal", {"000042", "06010", ""}, kBefore, Fate::refused},
        LastCase{"the one from before", {"000041", "06000", kBefore}, kBefore, Fate::not_issued},
        LastCase{
            "the one from before, a cancellation", {"000041", "07000", kBefore}, kBefore, Fate::not_issued},
        LastCase{"a newer one", {"000043", "06000", kAfter}, kBefore, Fate::newer_receipts},
        LastCase{"a newer one behind the wrap",
                 {"000043", "06000", kBehindTheWrap},
                 kBeforeTheWrap,
                 Fate::newer_receipts},
        LastCase{"an older one in front of the wrap",
                 {"000043", "06000", kBeforeTheWrap},
                 kBehindTheWrap,
                 Fate::misfit},
        LastCase{"an older one", {"000040", "06000", kOlder}, kBefore, Fate::misfit},
        LastCase{"another device's", {"000040", "06000", kOtherDevice}, kBefore, Fate::misfit},
        LastCase{"no key", {"000040", "06000", ""}, kBefore, Fate::misfit},
        LastCase{"own 098", {"000042", "06098", ""}, kBefore, Fate::misfit},
        LastCase{
            "another one, and nothing to compare", {"000041", "06000", kBefore}, {}, Fate::no_comparison},
        LastCase{"own 098, and nothing to compare", {"000042", "06098", ""}, {}, Fate::no_comparison},
        LastCase{"none ever", {"000077", "19003", ""}, {}, Fate::not_issued},
        LastCase{"none ever, though the till knew one", {"000077", "19003", ""}, kBefore, Fate::misfit}));

TEST(AccessKeys, HaveTheirForm) {
  EXPECT_TRUE(is_access_key(kBefore));
  for (const std::string& text : {std::string(), kBefore.substr(3), kBefore + "1", "NFe" + kBefore.substr(3),
                                  "CFe" + std::string(44, 'x')})
    EXPECT_FALSE(is_access_key(text)) << text;
}

}  // namespace

}  // namespace satctl
