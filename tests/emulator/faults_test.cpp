#include "desk/faults.h"

#include <gmock/gmock.h>

#include "desk/profiles.h"
#include "desk/settings.h"
#include "device/device_clock.h"
#include "support/text_files.h"

namespace emulator {
namespace {

using testing::HasSubstr;

Command call(const std::string& function, int session = 1) {
  return parse_command(function + "|" + std::to_string(1'000'000 + session).substr(1));
}

// The names of the faults that meet `count` calls of the function.
std::vector<std::string> faults_of(FaultRules& rules, int count,
                                   const std::string& function = "ConsultarSAT") {
  std::vector<std::string> names;
  for (int i = 1; i <= count; ++i) names.push_back(rules.plan(call(function, i)).names);
  return names;
}

FaultRules rules_of(const std::string& text, std::uint64_t seed = 1) {
  FaultRules rules(seed);
  rules.add(text);
  return rules;
}

TEST(Rules, MeetEveryCallWithoutACondition) {
  auto rules = rules_of("on ConsultarSAT do silence");
  EXPECT_THAT(faults_of(rules, 2), testing::ElementsAre("silence", "silence"));
  EXPECT_EQ(rules.plan(call("BloquearSAT")).names, "");
}

TEST(Rules, NthCountsCallsOfThatFunctionOnly) {
  auto rules = rules_of("on EnviarDadosVenda nth=2 do nak 3");
  EXPECT_EQ(rules.plan(call("EnviarDadosVenda")).names, "");
  EXPECT_EQ(rules.plan(call("ConsultarSAT")).names, "");
  const CallPlan plan = rules.plan(call("EnviarDadosVenda"));
  EXPECT_EQ(plan.names, "nak");
  EXPECT_EQ(plan.link.naks, 3);
  EXPECT_EQ(rules.plan(call("EnviarDadosVenda")).names, "");
}

TEST(Rules, ConditionsHoldTogether) {
  auto every = rules_of("on any every=2 do no-reply");
  EXPECT_THAT(faults_of(every, 4), testing::ElementsAre("", "no-reply", "", "no-reply"));
  auto from = rules_of("on any from=2 times=2 do duplicate");
  EXPECT_THAT(faults_of(from, 5), testing::ElementsAre("", "duplicate", "duplicate", "", ""));
  auto session = rules_of("on any session=3 do previous");
  EXPECT_THAT(faults_of(session, 4), testing::ElementsAre("", "", "previous", ""));
}

TEST(Rules, AnyAndFiscalNameGroups) {
  auto rules = rules_of("on fiscal do blocked sefaz\non any do late 5");
  EXPECT_EQ(rules.plan(call("ConsultarSAT")).names, "late");
  EXPECT_EQ(rules.plan(call("CancelarUltimaVenda")).names, "blocked,late");
  EXPECT_EQ(rules.plan(call("Inventada")).names, "");
}

TEST(Rules, ProcessingHoldsForTheNextCallsThatMatch) {
  auto rules = rules_of("on ConsultarSAT nth=2 do processing 3");
  EXPECT_THAT(faults_of(rules, 6),
              testing::ElementsAre("", "processing", "processing", "processing", "", ""));
}

TEST(Rules, ChanceIsTheSameUnderTheSameSeed) {
  auto first = rules_of("on any chance=30 do silence", 5),
       second = rules_of("on any chance=30 do silence", 5);
  auto other = rules_of("on any chance=30 do silence", 6);
  const auto names = faults_of(first, 200);
  EXPECT_EQ(faults_of(second, 200), names);
  EXPECT_NE(faults_of(other, 200), names);
  const auto hits = std::count(names.begin(), names.end(), "silence");
  EXPECT_GT(hits, 30);
  EXPECT_LT(hits, 100);
  auto never = rules_of("on any chance=0 do silence"), always = rules_of("on any chance=100 do silence");
  EXPECT_EQ(never.plan(call("ConsultarSAT")).names, "");
  EXPECT_EQ(always.plan(call("ConsultarSAT")).names, "silence");
}

TEST(Rules, SeveralMayMeetOneCall) {
  auto rules =
      rules_of("on any do stop 50 20\non any do stray 3 # three bytes\n\n# nothing\non any do stop 10 30");
  const CallPlan plan = rules.plan(call("ConsultarSAT"));
  EXPECT_EQ(plan.link.stray_bytes, "UUU");
  ASSERT_EQ(plan.link.cuts.size(), 2U);
  EXPECT_EQ(plan.link.cuts[0].at, 10U);
  EXPECT_EQ(plan.link.cuts[1].at, 50U);
}

TEST(Rules, ListAndClear) {
  auto rules = rules_of("  on   any do   silence  # x\n");
  EXPECT_THAT(rules.lines(), testing::ElementsAre("on any do silence"));
  rules.clear();
  EXPECT_TRUE(rules.lines().empty());
}

TEST(Rules, ArgumentsReachTheirPlaces) {
  auto plan = rules_of("on any do hangup 7 back=50 as=ttySAT1").plan(call("ConsultarSAT"));
  ASSERT_EQ(plan.link.cuts.size(), 1U);
  EXPECT_TRUE(plan.link.cuts[0].unplug);
  EXPECT_EQ(plan.link.cuts[0].at, 7U);
  EXPECT_EQ(plan.link.absence.duration.count(), 50);
  EXPECT_EQ(plan.link.absence.new_name, "ttySAT1");
  plan = rules_of("on any do return 06010 1999 Falha do leitor").plan(call("ConsultarSAT"));
  ASSERT_TRUE(plan.fiscal.imposed);
  EXPECT_EQ(plan.fiscal.imposed->code, 6010);
  EXPECT_EQ(plan.fiscal.imposed->cccc, 1999);
  EXPECT_EQ(plan.fiscal.imposed->message, "Falha do leitor");
  EXPECT_FALSE(plan.fiscal.imposed->carried_out);
  plan = rules_of("on any do carry-out-return 06098 stored=yes").plan(call("ConsultarSAT"));
  ASSERT_TRUE(plan.fiscal.imposed);
  EXPECT_EQ(plan.fiscal.imposed->code, 6098);
  EXPECT_TRUE(plan.fiscal.imposed->carried_out);
  EXPECT_TRUE(plan.fiscal.imposed->stored);
  plan = rules_of("on any do split 10 2").plan(call("ConsultarSAT"));
  EXPECT_EQ(plan.link.piece_size, 10U);
  EXPECT_EQ(plan.link.piece_pause.count(), 2);
}

ImposedReturn imposed_by(const std::string& action) {
  const CallPlan plan = rules_of("on any do " + action).plan(call("ConsultarSAT"));
  EXPECT_TRUE(plan.fiscal.imposed) << action;
  return plan.fiscal.imposed.value_or(ImposedReturn{});
}

TEST(Rules, ReturnTakesAMessageWithoutACccc) {
  const ImposedReturn imposed = imposed_by("return 08099 Falha do leitor 1999");
  EXPECT_EQ(imposed.code, 8099);
  EXPECT_EQ(imposed.cccc, 0);
  EXPECT_EQ(imposed.message, "Falha do leitor 1999");
}

TEST(Rules, ReturnTakesAWholeReplyAsItStands) {
  const std::string reply = "{session}|06000|0000|a  b#1 x=2|||QUI=|{date}|{key}|10.00||QUJDRA==";
  EXPECT_EQ(imposed_by("return " + reply + "   # a comment").whole, reply);
  const ImposedReturn denied = imposed_by("carry-out-return stored=yes " + reply);
  EXPECT_EQ(denied.whole, reply);
  EXPECT_TRUE(denied.carried_out);
  EXPECT_TRUE(denied.stored);
}

TEST(Replies, ForCertainCallsWinOverThoseForAll) {
  FaultRules rules(1);
  rules.add_replies(
      "# what this device answers\n"
      "ConsultarSAT nth=2 {session}|08098|Ocupado||\n"
      "ConsultarSAT       {session}|08000|Em uso  por A||\n");
  std::vector<std::string> replies;
  for (int i = 1; i <= 3; ++i) replies.push_back(rules.plan(call("ConsultarSAT", i)).fiscal.imposed->whole);
  EXPECT_THAT(replies, testing::ElementsAre("{session}|08000|Em uso  por A||", "{session}|08098|Ocupado||",
                                            "{session}|08000|Em uso  por A||"));
  EXPECT_FALSE(rules.plan(call("BloquearSAT")).fiscal.imposed);
}

TEST(Replies, WrongOnesAreRefusedWithTheirLine) {
  for (const auto& [text, complaint] :
       {std::pair("ConsultarSAT", "line 1: a line reads: WHAT [CONDITION...] REPLY"),
        {"{session}|08000|x||", "a line reads"},
        {"\nNada {session}|08000|x||", "line 2: no function is called \"Nada\""},
        {"ConsultarSAT when=2 {session}|08000|x||", "is no condition"},
        {"ConsultarSAT {session}|8000|x||", "a reply reads SESSION|EEEEE|..."}}) {
    FaultRules rules(1);
    try {
      rules.add_replies(text);
      ADD_FAILURE() << text;
    } catch (const FaultSyntaxError& error) {
      EXPECT_THAT(error.what(), HasSubstr(complaint)) << text;
    }
  }
}

TEST(Rules, WrongOnesAreRefusedWithTheirLine) {
  const std::pair<const char*, const char*> rows[] = {
      {"on any silence", "line 1: a rule reads"},
      {"any do silence", "a rule reads"},
      {"on any do", "a rule reads"},
      {"on Nada do silence", "no function is called \"Nada\""},
      {"on any when=2 do silence", "\"when=2\" is no condition"},
      {"on any nth do silence", "\"nth\" is no condition"},
      {"on any nth=x do silence", "\"x\" is no number"},
      {"on any chance=101 do silence", "\"101\" is no number from 0 to 100"},
      {"on any do explode", "no action is called \"explode\""},
      {"on any do nak", "the action reads: nak N"},
      {"on any do nak 1 2", "the action reads: nak N"},
      {"on any do nak many", "\"many\" is no number"},
      {"on any do hangup 1 with=2", "unknown argument with="},
      {"on any do blocked nobody", "\"nobody\" is none of"},
      {"on any do return 06000 0000 a|b", "a reply reads SESSION|EEEEE|..."},
      {"on any do return {session}|08000|{what}||", "the places of a reply are {session}, {date} and {key}"},
      {"on any do return {session}|08000|a\x03||", "a reply holds no STX or ETX"},
      {"on any do carry-out-return 06099 stored=maybe", "stored= is yes or no"},
      {"on any do silence\non any do x", "line 2: "},
  };
  for (const auto& [text, complaint] : rows) {
    FaultRules rules(1);
    try {
      rules.add(text);
      ADD_FAILURE() << text;
    } catch (const FaultSyntaxError& error) {
      EXPECT_THAT(error.what(), HasSubstr(complaint)) << text;
    }
    EXPECT_TRUE(rules.lines().empty()) << text;
  }
}

TEST(Guide, ExplainsEveryActionAndEveryProfile) {
  const std::string guide = read_file(EMULATOR_GUIDE);
  for (const FaultAction& action : fault_actions()) {
    EXPECT_THAT(guide, HasSubstr("| `" + std::string(action.name))) << action.name;
  }
  for (const Profile& profile : profiles())
    EXPECT_THAT(guide, HasSubstr("| `" + std::string(profile.name) + "`"));
}

TEST(Moments, AreRealOnes) {
  EXPECT_EQ(format_moment(*parse_moment("2026-03-01T10:20:30")), "20260301102030");
  EXPECT_EQ(format_moment(*parse_moment("2026-03-01")), "20260301000000");
  EXPECT_EQ(format_moment(*parse_moment("20260301102030")), "20260301102030");
  for (const char* text :
       {"", "2026", "2026-02-30T00:00:00", "2026-03-01T24:00:00", "yesterday", "2026/03/01"}) {
    EXPECT_EQ(parse_moment(text), std::nullopt) << text;
  }
}

TEST(Durations, HaveUnits) {
  EXPECT_EQ(parse_duration("90"), 90);
  EXPECT_EQ(parse_duration("31m"), 1'860);
  EXPECT_EQ(parse_duration("2h"), 7'200);
  EXPECT_EQ(parse_duration("3d"), 259'200);
  for (const char* text : {"", "m", "-1", "1w", "1 m"}) EXPECT_EQ(parse_duration(text), std::nullopt) << text;
}

TEST(DeviceClock, StandsStillAndMovesOnOrder) {
  DeviceClock clock;
  clock.stop_at(*parse_moment("2026-03-01"));
  EXPECT_EQ(clock.now(), *parse_moment("2026-03-01"));
  clock.advance(60);
  EXPECT_EQ(format_moment(clock.now()), "20260301000100");
}

TEST(States, ByNumberOrLetters) {
  EXPECT_EQ(uf_code("35"), 35);
  EXPECT_EQ(uf_code("SP"), 35);
  EXPECT_EQ(uf_code("DF"), 53);
  EXPECT_THROW(uf_code("XX"), std::invalid_argument);
  EXPECT_THROW(uf_code("34"), std::invalid_argument);
}

}  // namespace
}  // namespace emulator
