#include "hub/broker/broker.h"

#include <gtest/gtest.h>

#include "support/scratch_directory.h"

namespace hub {
namespace {

using std::chrono::seconds;

class BrokerTest : public testing::Test {
 protected:
  FiscalRequest sale(const std::string& key, const std::string& body = "<CFe/>") {
    FiscalRequest request;
    request.key = key;
    request.body = body;
    return request;
  }

  std::optional<Job> next() {
    return broker.next([](const Job&) { return true; });
  }

  Operation sent(OperationId id) {
    Change change;
    change.to = State::sent;
    change.serial = "900000001";
    change.session = 7;
    return journal.change(*journal.find(id), change);
  }

  void done(const Operation& operation, const std::string& reply) {
    Change change;
    change.to = State::done;
    change.reply = reply;
    broker.changed(journal.change(operation, change), {});
  }

  ScratchDirectory scratch;
  Journal journal{std::filesystem::current_path() / "journal.sqlite"};
  Instant now{};
  Broker broker{journal, [this] { return now; }};
  Till till = journal.add_till("Caixa 1", "till");
};

TEST_F(BrokerTest, AQueuedSaleIsInTheJournalBeforeAnybodyIsTold) {
  const Receiving receiving = broker.put(till, sale("k1"));
  EXPECT_EQ(receiving.taken, Taken::operation);
  EXPECT_EQ(journal.find(receiving.operation->id)->state, State::queued);
  EXPECT_EQ(next()->id, receiving.operation->id);
}

TEST_F(BrokerTest, SameKeySameBodyIsTheSameOperation) {
  const auto first = broker.put(till, sale("k1")).operation->id;
  EXPECT_EQ(broker.put(till, sale("k1")).operation->id, first);
  EXPECT_EQ(broker.put(till, sale("k1", "<other/>")).taken, Taken::other_body);
  EXPECT_EQ(journal.latest(10).size(), 1U);
}

TEST_F(BrokerTest, ALateRequestOfAnAttemptThatIsOverAsksForNothing) {
  const auto id = broker.put(till, sale("k1")).operation->id;
  now += seconds{61};
  broker.expire();
  EXPECT_EQ(journal.find(id)->state, State::expired);
  EXPECT_EQ(broker.put(till, sale("k1")).operation->state, State::expired);
  FiscalRequest second = sale("k1");
  second.attempt = 2;
  EXPECT_EQ(broker.put(till, second).operation->state, State::queued);
  now += seconds{59};
  EXPECT_EQ(broker.put(till, sale("k1")).operation->state, State::queued);
  now += seconds{1};
  broker.expire();
  EXPECT_EQ(journal.find(id)->state, State::expired) << "the late request must not keep it alive";
}

TEST_F(BrokerTest, AfterARestartNothingRunsUnasked) {
  const auto queued = broker.put(till, sale("k1")).operation->id;
  const auto out = broker.put(till, sale("k2")).operation->id;
  sent(out);
  Broker again(journal, [this] { return now; });
  again.load();
  EXPECT_EQ(journal.find(out)->state, State::unknown);
  EXPECT_FALSE(again.next([](const Job&) { return true; }));
  again.put(till, sale("k1"));
  EXPECT_EQ(again.next([](const Job&) { return true; })->id, queued);
}

TEST_F(BrokerTest, AReplyThatTheJournalCouldNotTakeIsHandedOver) {
  const auto id = broker.put(till, sale("k1")).operation->id;
  next();
  Operation said = sent(id);
  said.state = State::done;
  said.reply = "000007|06010|1464|x||";
  broker.hand_over(said);
  EXPECT_EQ(broker.put(till, sale("k1")).operation->reply, said.reply);
  EXPECT_EQ(journal.find(id)->state, State::sent);
}

TEST_F(BrokerTest, RepliesBearTheTillsOwnSession) {
  FiscalRequest request = sale("k1");
  request.session = 4711;
  const auto id = broker.put(till, request).operation->id;
  next();
  done(sent(id), "000007|06010|1464|x||");
  EXPECT_EQ(broker.find(id)->reply_for_till(), "004711|06010|1464|x||");
  EXPECT_EQ(broker.session_reply(till, 1, 4711), "004711|06010|1464|x||");
}

TEST_F(BrokerTest, ASessionThatIsNotSettledIsInProcess) {
  FiscalRequest request = sale("k1");
  request.session = 4711;
  broker.put(till, request);
  EXPECT_EQ(broker.session_reply(till, 5, 4711).substr(0, 12), "000005|11098");
  EXPECT_EQ(broker.last_fiscal_reply(till, 6).substr(0, 12), "000006|19098");
}

TEST_F(BrokerTest, WhatWasSaidNotToExistNeverSells) {
  EXPECT_EQ(broker.session_reply(till, 5, 4711).substr(0, 12), "000005|11003");
  FiscalRequest request = sale("k1");
  request.session = 4711;
  const auto operation = *broker.put(till, request).operation;
  EXPECT_EQ(operation.state, State::done);
  EXPECT_EQ(operation.reply.substr(0, 12), "004711|06097");
  EXPECT_FALSE(next());
}

TEST_F(BrokerTest, AnExpiredSaleWhoseSessionWasAskedForNeverSells) {
  FiscalRequest request = sale("k1");
  request.session = 4711;
  broker.put(till, request);
  now += seconds{60};
  broker.expire();
  EXPECT_EQ(broker.session_reply(till, 5, 4711).substr(0, 12), "000005|11003");
  request.attempt = 2;
  EXPECT_EQ(broker.put(till, request).operation->state, State::expired);
}

TEST_F(BrokerTest, EqualStatusQuestionsAreMerged) {
  const auto* function = satctl::find_function("ConsultarStatusOperacional");
  const Till other = journal.add_till("Caixa 2", "till");
  const auto first = broker.ask(till, {function, 1, {}});
  EXPECT_EQ(broker.ask(other, {function, 2, {}}), first);
  next();
  EXPECT_EQ(broker.ask(other, {function, 2, {}}), first) << "it is with the device already";
  broker.request_opened(*first);
  broker.answer(*first, "reply");
  EXPECT_NE(broker.ask(other, {function, 2, {}}), first);
  EXPECT_EQ(broker.answer(*first), "reply");
  broker.request_closed(*first);
  EXPECT_FALSE(broker.answer(*first));
}

TEST_F(BrokerTest, ADecisionNeedsAnUndecidedOperationAndAReceiptOfItsOwn) {
  const auto id = broker.put(till, sale("k1")).operation->id;
  Settlement settlement{Decision::not_issued, {}, "seen", "Chefe"};
  EXPECT_FALSE(broker.decide(id, settlement).empty());
  next();
  Change unknown;
  unknown.to = State::unknown;
  broker.changed(journal.change(sent(id), unknown), {});
  settlement.decision = Decision::undecided;
  EXPECT_EQ(broker.decide(id, settlement), "");
  settlement.decision = Decision::issued;
  settlement.receipt = "CFe" + std::string(44, '1');
  EXPECT_FALSE(broker.decide(id, settlement).empty()) << "another device's";
  settlement.decision = Decision::not_issued;
  EXPECT_EQ(broker.decide(id, settlement), "");
  EXPECT_EQ(broker.put(till, sale("k1")).operation->state, State::not_issued);
  EXPECT_EQ(journal.alarms(10).front(), "seen");
}

}  // namespace
}  // namespace hub
