// Exit statuses: what a script has to know.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

#include "text.h"

namespace satctl {

enum class ExitStatus : int {
  success = 0,
  refused = 1,
  usage = 2,
  no_device = 3,
  busy = 4,
  link_failure = 5,
  other_session = 6,
};

struct ExitStatusRow {
  ExitStatus status;
  const char* name;  // in --json
  Text meaning;
};

inline constexpr std::array kExitStatuses{
    ExitStatusRow{ExitStatus::success, "success", {"success", "sucesso"}},
    ExitStatusRow{
        ExitStatus::refused,
        "refused",
        {"the device refused, or a check said no", "o equipamento recusou, ou a verificação reprovou"}},
    ExitStatusRow{ExitStatus::usage,
                  "usage",
                  {"wrong usage, or a file, folder or library that cannot be used",
                   "uso incorreto, ou arquivo, pasta ou biblioteca que não pode ser usado"}},
    ExitStatusRow{ExitStatus::no_device, "no-device", {"no device found", "nenhum equipamento encontrado"}},
    ExitStatusRow{ExitStatus::busy,
                  "busy",
                  {"the device is busy with another call", "o equipamento está ocupado com outra chamada"}},
    ExitStatusRow{
        ExitStatus::link_failure,
        "link-failure",
        {"the link failed; the outcome is unknown", "a comunicação falhou; o resultado é desconhecido"}},
    ExitStatusRow{ExitStatus::other_session,
                  "other-session",
                  {"the reply carries another session number", "a resposta traz outro número de sessão"}},
};

constexpr const ExitStatusRow& row_of(ExitStatus status) {
  return kExitStatuses[static_cast<std::size_t>(status)];
}

// Something the caller has to put right before the device is touched: ends with ExitStatus::usage.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace satctl
