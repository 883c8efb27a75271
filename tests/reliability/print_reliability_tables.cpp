// Prints the fault matrix and the time rules as the pages docs/tables/faults.md and times.md.
//
//   print-reliability-tables faults|times
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "link/fault_matrix.h"
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

std::string duration_of(const Cell& cell) {
  if (cell.ends_sharply()) return duration(cell.ms);
  return std::to_string(cell.ms / 1000) + " s and a little";
}

// What follows a cell's fault in its row; neighbours that agree in it share a row.
std::string end_of_row(const Cell& cell) {
  const std::string detail = cell.detail.empty() ? "" : " (" + cell.detail + ")";
  return detail + " | " + outcome(cell) + " | " + duration_of(cell) + " |";
}

void print_stage(Stage stage) {
  std::printf("\n| Stage: %s | What the call returns | After |\n|---|---|---|\n",
              kStageNames[static_cast<int>(stage)]);
  std::string faults;
  std::string end;
  const auto print_row = [&] {
    if (!faults.empty()) std::printf("| %s%s\n", faults.c_str(), end.c_str());
  };
  for (const Cell& cell : cells()) {
    if (cell.stage != stage) continue;
    if (end_of_row(cell) == end) {
      faults += ", " + cell.fault;
      continue;
    }
    print_row();
    faults = cell.fault;
    end = end_of_row(cell);
  }
  print_row();
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string joined(const std::vector<Stage>& stages) {
  if (stages.size() == static_cast<std::size_t>(Stage::kWholeCall)) return "each";
  std::vector<std::string> names;
  names.reserve(stages.size());
  for (const Stage stage : stages) names.emplace_back(kStageNames[static_cast<int>(stage)]);
  return joined(names);
}

void print_head(const char* title, const char* source) {
  std::printf(
      "# %s\n\nWritten by `scripts/reliability-tables` from `%s`. What it means: "
      "[reliability](../reliability.md).\n\n",
      title, source);
}

void print_faults() {
  print_head("Fault matrix", "tests/link/fault_matrix.cpp");
  const std::size_t pairs = families().size() * static_cast<std::size_t>(Stage::kWholeCall);
  std::size_t with_reason = 0;
  for (const Reason& reason : reasons()) with_reason += reason.families.size() * reason.stages.size();
  std::printf("%zu cells. Of %zu pairs of a fault and a stage, %zu have cells and %zu a reason.\n",
              cells().size(), pairs, pairs - with_reason, with_reason);
  for (int stage = 0; stage <= static_cast<int>(Stage::kWholeCall); ++stage)
    print_stage(static_cast<Stage>(stage));
  std::printf("\n| No cell for | at | because |\n|---|---|---|\n");
  for (const Reason& reason : reasons())
    std::printf("| %s | %s | %s |\n", joined(reason.families).c_str(), joined(reason.stages).c_str(),
                reason.why);
}

void print_times() {
  print_head("Time rules", "tests/reliability/time_rules.h");
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
