// What hub and device child say to each other, and the locks.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "hub/desk/sessions.h"
#include "hub/device/messages.h"
#include "hub/device/port.h"
#include "support/scratch_directory.h"

namespace hub {
namespace {

TEST(Messages, ComeBackAsTheyWere) {
  ChildOrder order;
  order.function = "EnviarDadosVenda";
  order.session = 42;
  order.values = {"code", std::string("\xE7\0", 2)};
  const auto decoded = decode_order(encode(order));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->values, order.values);
  EXPECT_EQ(decoded->session, 42);
  const auto answer = decode_answer(encode(ChildAnswer{ChildAnswer::Kind::reply, "\xE7|", true}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->text, "\xE7|");
  EXPECT_TRUE(answer->port_changed);
}

TEST(Messages, WhatIsNoneIsRefused) {
  for (const char* text :
       {"", "{}", "[]", "{\"is\": 1}", R"({"is": "reply", "text": 1, "port_changed": false})",
        R"({"is": "nothing", "text": "", "port_changed": false})"}) {
    EXPECT_FALSE(decode_answer(text)) << text;
  }
  for (const char* text : {"", "{}", R"({"call": "x"})", R"({"call": "x", "session": 1, "values": ["?"]})"}) {
    EXPECT_FALSE(decode_order(text)) << text;
  }
}

TEST(Messages, LengthsAreBounded) {
  EXPECT_EQ(length_in(framed(std::string(300, 'x')).substr(0, kLengthBytes)), 300U);
  EXPECT_FALSE(length_in("\xFF\xFF\xFF\xFF"));
  EXPECT_FALSE(length_in("abc"));
}

TEST(Port, OnlyCharacterDevicesAreOne) {
  EXPECT_TRUE(node_of("/dev/null"));
  EXPECT_FALSE(node_of("/"));
  EXPECT_FALSE(node_of("/nowhere"));
  EXPECT_NE(node_of("/dev/null"), node_of("/dev/zero"));
}

TEST(Locks, AreHeldUntilTheProcessEnds) {
  const ScratchDirectory scratch;
  const auto folder = std::filesystem::current_path();
  EXPECT_EQ(lock_for_life(folder, "a.lock"), LockResult::locked);
  EXPECT_EQ(lock_for_life(folder, "a.lock"), LockResult::held);
  EXPECT_EQ(lock_for_life(folder, "b.lock"), LockResult::locked);
  EXPECT_EQ(lock_for_life("/nowhere", "a.lock"), LockResult::impossible);
}

TEST(Locks, ASerialNumberNamesNoOtherFolder) {
  EXPECT_EQ(lock_name_of_serial("../x"), "talvex-serial-___x.lock");
}

TEST(Sessions, StayBelowAHundredThousandAndNeverRepeat) {
  Sessions sessions(kLastSession);
  ASSERT_TRUE(sessions.needs_block());
  EXPECT_EQ(sessions.end_of_next_block(), kSessionBlock);
  sessions.add_block();
  EXPECT_EQ(sessions.take(), kLastSession);
  EXPECT_EQ(sessions.take(), kFirstSession);
  for (int i = 2; i < kSessionBlock; ++i) sessions.take();
  EXPECT_TRUE(sessions.needs_block());
  EXPECT_EQ(Sessions(kSessionBlock).end_of_next_block(), 2 * kSessionBlock);
}

}  // namespace
}  // namespace hub
