#include "hub/journal/journal.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <array>

#include "support/scratch_directory.h"

namespace hub {
namespace {

constexpr std::array kStates{State::queued, State::sent,    State::unknown,   State::undecided,
                             State::done,   State::expired, State::not_issued};

std::string key(int number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%06d", number);
  return "35260311222333000181" + std::string("59900000001") + digits + "1234567";
}

class JournalTest : public testing::Test {
 protected:
  Operation entered(State state = State::queued, const std::string& name = "k1") {
    Operation operation;
    operation.till = till.id;
    operation.function = function_name::kSale;
    operation.key = name;
    operation.body = std::string("with\0zero", 9);
    operation.state = state;
    return journal.enter(operation);
  }

  static Change to(State state) {
    Change change;
    change.to = state;
    change.serial = "900000001";
    change.session = 7;
    return change;
  }

  Receipt receipt(int number) {
    Receipt one;
    one.key = key(number);
    one.serial = "900000001";
    one.number = number;
    one.total = "10.00";
    one.moment = 1000;
    return one;
  }

  // By any way that the diagram has.
  Operation brought_to(State state, const std::string& name) {
    for (const State beginning : kStates) {
      if (state == beginning && is_allowed(std::nullopt, beginning)) return entered(beginning, name);
    }
    Operation operation = entered(State::queued, name);
    if (state == State::expired) return journal.change(operation, to(State::expired));
    operation = journal.change(operation, to(State::sent));
    if (state == State::sent) return operation;
    return journal.change(operation, to(State::unknown));
  }

  ScratchDirectory scratch;
  std::filesystem::path file = std::filesystem::current_path() / "journal.sqlite";
  Journal journal{file};
  Till till = journal.add_till("Caixa 1", "till");
};

TEST_F(JournalTest, EveryArrowOfTheDiagramAndNoOther) {
  int number = 0;
  for (const State from : kStates) {
    for (const State to_state : kStates) {
      const Operation operation = brought_to(from, "k" + std::to_string(++number));
      if (is_allowed(from, to_state)) {
        EXPECT_EQ(journal.change(operation, to(to_state)).state, to_state);
        EXPECT_EQ(journal.find(operation.id)->state, to_state);
      } else {
        EXPECT_THROW(journal.change(operation, to(to_state)), std::logic_error);
        EXPECT_EQ(journal.find(operation.id)->state, from);
      }
    }
  }
}

TEST_F(JournalTest, TheDiagramItself) {
  const auto from = [](State state) {
    std::vector<State> targets;
    for (const State to_state : kStates) {
      if (is_allowed(state, to_state)) targets.push_back(to_state);
    }
    return targets;
  };
  using enum State;
  EXPECT_EQ(from(queued), (std::vector{sent, expired, not_issued}));
  EXPECT_EQ(from(sent), (std::vector{queued, unknown, done}));
  EXPECT_EQ(from(unknown), (std::vector{queued, undecided, done}));
  EXPECT_EQ(from(undecided), (std::vector{done, not_issued}));
  EXPECT_EQ(from(done), std::vector<State>{});
  EXPECT_EQ(from(expired), (std::vector{queued, not_issued}));
  EXPECT_EQ(from(not_issued), std::vector<State>{});
}

TEST_F(JournalTest, NothingBeginsAsSent) {
  EXPECT_THROW(entered(State::sent), std::logic_error);
  EXPECT_THROW(entered(State::unknown), std::logic_error);
  EXPECT_THROW(entered(State::expired), std::logic_error);
  EXPECT_TRUE(journal.latest(10).empty());
}

TEST_F(JournalTest, AChangeOfAnOldViewIsRefused) {
  const Operation queued = entered();
  journal.change(queued, to(State::sent));
  EXPECT_THROW(journal.change(queued, to(State::expired)), StaleOperation);
  EXPECT_EQ(journal.find(queued.id)->state, State::sent);
}

TEST_F(JournalTest, KeepsBytesAsTheyAre) {
  Operation operation = journal.change(entered(), to(State::sent));
  Change done = to(State::done);
  done.reply = std::string("\xE7\0|", 3);
  journal.change(operation, done);
  const auto kept = journal.find(till.id, function_name::kSale, "k1");
  EXPECT_EQ(kept->body, std::string("with\0zero", 9));
  EXPECT_EQ(kept->reply, done.reply);
  EXPECT_EQ(kept->session, 7);
}

TEST_F(JournalTest, AReceiptBelongsToOneOperation) {
  journal.keep_device({"900000001", "", "", 100, 0, {}});
  Change done = to(State::done);
  done.receipt = receipt(1);
  const Operation first = journal.change(journal.change(entered(State::queued, "k1"), to(State::sent)), done);
  EXPECT_EQ(journal.device("900000001")->last, key(1));
  const Operation second = journal.change(entered(State::queued, "k2"), to(State::sent));
  EXPECT_THROW(journal.change(second, done), JournalError);
  EXPECT_EQ(journal.find(second.id)->state, State::sent) << "nothing of a change that fails is kept";
  EXPECT_EQ(journal.receipt(key(1))->operation, first.id);
}

TEST_F(JournalTest, TheLastReceiptNeverGoesBack) {
  journal.keep_device({"900000001", "", key(5), 100, 0, {}});
  Change done = to(State::done);
  done.receipt = receipt(4);
  journal.change(journal.change(entered(), to(State::sent)), done);
  EXPECT_EQ(journal.device("900000001")->last, key(5));
}

TEST_F(JournalTest, AnOrphanCanBeNamedByADecision) {
  journal.add_orphan(receipt(1), {"hub", "found"});
  EXPECT_EQ(journal.orphans().size(), 1U);
  Change issued = to(State::done);
  issued.receipt = receipt(1);
  journal.change(entered(State::undecided), issued);
  EXPECT_TRUE(journal.orphans().empty());
  EXPECT_EQ(journal.receipt(key(1))->till, "Caixa 1");
}

TEST_F(JournalTest, TokensCanBeRevokedAndTheTillStays) {
  journal.add_token(till.id, std::string(32, 'a'));
  EXPECT_EQ(journal.till_with_token(std::string(32, 'a'))->name, "Caixa 1");
  EXPECT_EQ(journal.revoke_tokens(till.id), 1);
  EXPECT_FALSE(journal.till_with_token(std::string(32, 'a')));
  EXPECT_EQ(journal.till_named("Caixa 1")->id, till.id);
}

TEST_F(JournalTest, ClosedSessionsOpenAgainAfterADay) {
  journal.close_session(till.id, 4711);
  EXPECT_TRUE(journal.is_closed(till.id, 4711, wall_clock() - 10));
  EXPECT_FALSE(journal.is_closed(till.id, 4711, wall_clock() + 10));
  EXPECT_FALSE(journal.is_closed(till.id, 4712, 0));
}

TEST_F(JournalTest, ANewerOneIsRefusedAndLeftAlone) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
  sqlite3_exec(database, "PRAGMA user_version = 99", nullptr, nullptr, nullptr);
  sqlite3_close(database);
  EXPECT_THROW(Journal{file}, JournalError);
}

TEST_F(JournalTest, SearchesReceipts) {
  journal.keep_device({"900000001", "", "", 100, 0, {}});
  for (int number = 1; number <= 3; ++number) {
    Change done = to(State::done);
    done.receipt = receipt(number);
    done.receipt->moment = 1000 * number;
    journal.change(journal.change(entered(State::queued, "k" + std::to_string(number)), to(State::sent)),
                   done);
  }
  ReceiptSearch search;
  EXPECT_EQ(journal.receipts(search).size(), 3U);
  search.from = 2000;
  search.to = 3000;
  ASSERT_EQ(journal.receipts(search).size(), 1U);
  EXPECT_EQ(journal.receipts(search).front().number, 2);
  search.till = "Caixa 2";
  EXPECT_TRUE(journal.receipts(search).empty());
}

}  // namespace
}  // namespace hub
