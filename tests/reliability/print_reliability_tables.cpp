// Prints the fault matrix and the time rules as the tables of docs/reliability.md.
//
//   print-reliability-tables faults|times
#include <cstdio>
#include <cstring>
#include <string>

#include "reliability/fault_matrix.h"
#include "reliability/time_rules.h"

namespace {

using namespace fault_matrix;

std::string duration(std::int64_t ms) {
  if (ms == 0) return "at once";
  std::string digits = std::to_string(ms);
  for (std::size_t end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, ",");
  return digits + " ms";
}

std::string outcome(const Cell& cell) {
  switch (cell.outcome) {
    case Outcome::kReply:
      return "right reply";
    case Outcome::kLateReply:
      return "the late reply";
    case Outcome::kBusy:
      return "busy reply";
    default:
      break;
  }
  char code[16];
  std::snprintf(code, sizeof code, "%06d", cell.code);
  static constexpr const char* kTexts[] = {
      "",
      "",
      "`SAT Nao Encontrado L[2193]`",
      "`SAT nao encontrado ... L[2254]`",
      "",
      "`ocupado L[2272]`",
      "`falhou ao configurar L[2286]`",
      "`>> CMD or << ACK`, `L[2305]`",
      "`falhou na recepcao da resposta L[2324]`",
  };
  return std::string("`SAT Erro[") + code + "]`, " + kTexts[static_cast<int>(cell.outcome)];
}

void print_faults() {
  std::printf("%zu cells.\n", cells().size());
  for (int stage = 0; stage <= static_cast<int>(Stage::kWholeCall); ++stage) {
    std::printf("\n| Stage: %s | What the call returns | After |\n|---|---|---|\n", kStageNames[stage]);
    for (const Cell& cell : cells()) {
      if (static_cast<int>(cell.stage) != stage) continue;
      const std::string detail = cell.detail.empty() ? "" : " (" + cell.detail + ")";
      std::printf("| %s%s | %s | %s |\n", cell.fault.c_str(), detail.c_str(), outcome(cell).c_str(),
                  duration(cell.ms).c_str());
    }
  }
}

void print_times() {
  std::printf("| What happens | Function | Result | After | Made up of |\n|---|---|---|---|---|\n");
  for (const time_rules::Rule& rule : time_rules::rules()) {
    char code[32] = "reply";
    if (rule.code != 0) std::snprintf(code, sizeof code, "`SAT Erro[%06d]`", rule.code);
    std::printf("| %s | `%s` | %s | %s | %s |\n", rule.what, rule.function, code, duration(rule.ms).c_str(),
                rule.why);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  (std::strcmp(argv[1], "times") == 0 ? print_times : print_faults)();
  return 0;
}
