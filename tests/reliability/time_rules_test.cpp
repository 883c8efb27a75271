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

class TimeRules : public VirtualLinkTest, public testing::WithParamInterface<Rule> {
 protected:
  scripted::Script prepare_line(const Rule& rule) {
    scripted::Script script = rule.script;
    if (rule.line == Line::kFull) {
      open_port();
      std::size_t left = fill_line() + kLongSale;
      lSerialCloseL(port());
      for (scripted::Step& step : script) {
        if (step.kind != scripted::Step::Kind::kTake) continue;
        if (step.count == 0) step.count = left;
        left -= step.count;
      }
    }
    if (rule.line == Line::kRunsOver) {
      virtual_clock::on_turn([this] { return take_turn_of_flood(); });
    }
    return script;
  }

  std::string expected_text(const Rule& rule) {
    if (rule.code == 0) return rule.reply;
    const char* port = device().path().c_str();
    return is_failure_of_sending(rule)
               ? printed(
                     "SAT Erro[%06d]Lnx Dev[%s] L[2305] F[Communicate] >> CMD or << ACK "
                     "LibVer[23-JUL-2020]",
                     rule.code, port)
               : printed(
                     "SAT Erro[%06d]Lnx SAT  Dev[%s] falhou na recepcao da resposta L[2324] "
                     "F[Communicate] LibVer[23-JUL-2020]",
                     rule.code, port);
  }

 private:
  // Every ten bytes but the first ones come a millisecond later, until the library has had enough of them.
  std::int64_t take_turn_of_flood() {
    constexpr std::int64_t kDrainLimitMs = 60000;
    pollfd queue{device().port(), POLLIN, 0};
    if (pieces_ <= kDrainLimitMs + 1 && poll(&queue, 1, 0) == 0 && pieces_++ > 0)
      virtual_clock::advance_ms(1);
    if (pieces_ > kDrainLimitMs + 1) device().release();
    return device().take_turn();
  }

  std::int64_t pieces_ = 0;
};

TEST_P(TimeRules, HoldToTheMillisecond) {
  const Rule& rule = GetParam();
  write_file("SAT.ini", configuration(device().path(), std::string("[SAT_TIMEOUT]\n") + rule.settings, "1"));
  device().play(prepare_line(rule));
  const std::int64_t start = virtual_clock::monotonic_ms();
  const std::string text = rule.call();
  EXPECT_EQ(virtual_clock::monotonic_ms() - start, rule.ms);
  EXPECT_EQ(text, expected_text(rule));
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
