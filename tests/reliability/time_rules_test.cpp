// Every limit at its true value, to the millisecond, through the exported functions.
#include "reliability/time_rules.h"

#include <cctype>
#include <ostream>

#include "link/virtual_link_fixture.h"

namespace time_rules {

void PrintTo(const Rule& rule, std::ostream* out) {
  *out << rule.what << ", " << rule.function;
}

namespace {

class TimeRules : public VirtualLinkTest, public testing::WithParamInterface<Rule> {};

TEST_P(TimeRules, HoldToTheMillisecond) {
  const Rule& rule = GetParam();
  write_file("SAT.ini", configuration(device().path(), std::string("[SAT_TIMEOUT]\n") + rule.settings, "1"));
  device().play(rule.script);
  const std::int64_t start = virtual_clock::monotonic_ms();
  const std::string text = rule.call();
  EXPECT_EQ(virtual_clock::monotonic_ms() - start, rule.ms);
  if (rule.code == 0) {
    EXPECT_EQ(text, "000042|R");
  } else {
    EXPECT_TRUE(text.starts_with(printed("SAT Erro[%06d]Lnx ", rule.code))) << text;
  }
  // A reply that the host no longer waited for was never sent.
  if (rule.script.back().kind != scripted::Step::Kind::kPause) expect_script_played();
}

std::string name_of(const testing::TestParamInfo<Rule>& test) {
  std::string name =
      std::string(test.param.function) + "_" + test.param.what + "_" + std::to_string(test.index);
  for (char& character : name) {
    if (!std::isalnum(static_cast<unsigned char>(character))) character = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, TimeRules, testing::ValuesIn(rules()), name_of);

}  // namespace

}  // namespace time_rules
