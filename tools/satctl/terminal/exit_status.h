// Exit statuses: what a script has to know.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

#include "terminal/text.h"

namespace satctl {

enum class ExitStatus : int {
  success = 0,
  refused = 1,
  usage = 2,
  no_device = 3,
  busy = 4,
  link_failure = 5,
  other_session = 6,
  not_written = 7,
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
    ExitStatusRow{ExitStatus::link_failure,
                  "link-failure",
                  {"the outcome is unknown: the link failed, or the reply does not decide",
                   "o resultado é desconhecido: a comunicação falhou, ou a resposta não decide"}},
    ExitStatusRow{ExitStatus::other_session,
                  "other-session",
                  {"the reply carries another session number; the outcome is unknown",
                   "a resposta traz outro número de sessão; o resultado é desconhecido"}},
    ExitStatusRow{ExitStatus::not_written,
                  "not-written",
                  {"done, but the output or the document of --save-xml could not be written",
                   "feito, mas não foi possível gravar a saída ou o documento de --save-xml"}},
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
